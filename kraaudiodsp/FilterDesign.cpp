#include "kraaudiodsp/FilterDesign.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace dsp {
namespace {

using Complex = std::complex<double>;

// The map r(x): a minimax fit of w^2 in the frequency's relative error over 0 to 0.45 of the rate.
constexpr double kN = -0.8313650703;
constexpr double kD = -1.1844564901;
constexpr double kE = 0.2606424508;

double MapFrequency(double x) { return 4.0 * x * (1.0 + kN * x) / (1.0 + kD * x + kE * x * x); }

/// The two values of x, or of z, that belong to one root of s.
using RootPair = std::array<Complex, 2>;

/// The root of z inside the unit circle for a root x of |H|^2; on the circle the upper one.
Complex ZOfX(Complex x) {
    const Complex center = 1.0 - 2.0 * x;
    Complex root = std::sqrt(center * center - 1.0);
    // The larger of both is free of cancellation; the other one is its inverse.
    if (std::norm(center + root) < std::norm(center - root)) root = -root;
    const Complex z = 1.0 / (center + root);
    return z.imag() < 0.0 && x.imag() == 0.0 ? std::conj(z) : z;
}

/// For u = w^2 in rad per frame: 4 x + 4 n x^2 = u (1 + d x + e x^2), the x near u / 4 first.
RootPair ZOfU(Complex u) {
    const Complex a = 4.0 * kN - u * kE;
    const Complex b = 4.0 - u * kD;
    Complex root = std::sqrt(b * b + 4.0 * a * u);
    if ((std::conj(b) * root).real() < 0.0) root = -root;
    const Complex q = -0.5 * (b + root);
    return {ZOfX(-u / q), a == 0.0 ? Complex(0.0) : ZOfX(q / a)};
}

RootPair MakeFillingRoots() {
    const double root = std::sqrt(kD * kD - 4.0 * kE);
    return {ZOfX((-kD - root) / (2.0 * kE)), ZOfX((-kD + root) / (2.0 * kE))};
}

/// The roots of the denominator of r, which fill up a polynomial of lower degree. Made when the library is
/// loaded, since coefficients are designed on the audio thread.
const RootPair kFillingRoots = MakeFillingRoots();

/// One polynomial of z as factors 1 + first / z + second / z^2.
struct Factor {
    double first = 0.0;
    double second = 0.0;
};
Factor Multiply(Complex z1, Complex z2) { return {-(z1 + z2).real(), (z1 * z2).real()}; }

/// The factors of one side of the filter, one for each biquad; `u0` is r at the section's frequency.
std::array<Factor, 2> MapPolynomial(const std::array<double, 3>& p, std::size_t degree, double u0) {
    const auto map = [u0](Complex s) { return ZOfU(-s * s * u0); };
    RootPair first = kFillingRoots;
    RootPair second = kFillingRoots;
    if (p[2] != 0.0) {
        const Complex root = std::sqrt(Complex(p[1] * p[1] - 4.0 * p[0] * p[2]));
        const Complex sum = p[1] + root;
        first = sum == 0.0 ? map(0.0) : map(-sum / (2.0 * p[2]));
        second = root.imag() != 0.0 ? RootPair{std::conj(first[0]), std::conj(first[1])}
                 : sum == 0.0       ? first
                                    : map(-2.0 * p[0] / sum);
    } else if (p[1] != 0.0) {
        first = map(-p[0] / p[1]);
    }
    if (degree == 1) return {Multiply(first[0], first[1]), Factor{}};
    return {Multiply(first[0], second[0]), Multiply(first[1], second[1])};
}

double AmplitudeOfGain(double gainDb) { return std::pow(10.0, gainDb / 40.0); }

}  // namespace

bool IsStable(const Biquad& filter) {
    return std::fabs(filter.a2) < 1.0 && std::fabs(filter.a1) < 1.0 + filter.a2;
}

Complex GetResponse(const Biquad& filter, double cyclesPerFrame) {
    const Complex z = std::polar(1.0, -2.0 * std::numbers::pi * cyclesPerFrame);
    return (filter.b0 + z * (filter.b1 + z * filter.b2)) / (1.0 + z * (filter.a1 + z * filter.a2));
}

double GetPoleRadius(const Biquad& filter) {
    const double square = 0.25 * filter.a1 * filter.a1 - filter.a2;
    return square < 0.0 ? std::sqrt(filter.a2) : 0.5 * std::fabs(filter.a1) + std::sqrt(square);
}

Complex GetResponse(const AnalogSection& section, double frequencyHz) {
    const Complex s(0.0, frequencyHz / section.frequencyHz);
    return (section.b[0] + s * (section.b[1] + s * section.b[2])) /
           (section.a[0] + s * (section.a[1] + s * section.a[2]));
}

AnalogSection MakeBell(double frequencyHz, double gainDb, double q) {
    const double a = AmplitudeOfGain(gainDb);
    return {{1.0, a / q, 1.0}, {1.0, 1.0 / (a * q), 1.0}, frequencyHz};
}

AnalogSection MakeLowShelf(double frequencyHz, double gainDb, double q) {
    const double a = AmplitudeOfGain(gainDb);
    const double middle = std::sqrt(a) / q;
    return {{a * a, a * middle, a}, {1.0, middle, a}, frequencyHz};
}

AnalogSection MakeHighShelf(double frequencyHz, double gainDb, double q) {
    const double a = AmplitudeOfGain(gainDb);
    const double middle = std::sqrt(a) / q;
    return {{a, a * middle, a * a}, {a, middle, 1.0}, frequencyHz};
}

AnalogSection MakeNotch(double frequencyHz, double q) {
    return {{1.0, 0.0, 1.0}, {1.0, 1.0 / q, 1.0}, frequencyHz};
}

AnalogSection MakeBandPass(double frequencyHz, double q) {
    return {{0.0, 1.0 / q, 0.0}, {1.0, 1.0 / q, 1.0}, frequencyHz};
}

AnalogSection MakeLowPass(double frequencyHz, double q) {
    return {{1.0, 0.0, 0.0}, {1.0, 1.0 / q, 1.0}, frequencyHz};
}

AnalogSection MakeHighPass(double frequencyHz, double q) {
    return {{0.0, 0.0, 1.0}, {1.0, 1.0 / q, 1.0}, frequencyHz};
}

AnalogSection MakeLowPass(double frequencyHz) {
    return {{1.0, 0.0, 0.0}, {1.0, 1.0, 0.0}, frequencyHz};
}

AnalogSection MakeHighPass(double frequencyHz) {
    return {{0.0, 1.0, 0.0}, {1.0, 1.0, 0.0}, frequencyHz};
}

DesignedFilter Design(const AnalogSection& section, double rateHz) {
    const double cyclesPerFrame = section.frequencyHz / rateHz;
    const double sine = std::sin(std::numbers::pi * cyclesPerFrame);
    const double u0 = MapFrequency(sine * sine);
    const std::size_t degree = section.a[2] == 0.0 && section.b[2] == 0.0 ? 1 : 2;
    const auto zeros = MapPolynomial(section.b, degree, u0);
    const auto poles = MapPolynomial(section.a, degree, u0);

    DesignedFilter filter{{}, degree};
    Complex unscaled = 1.0;
    // Where the analog filter lets everything stop there is no gain to match.
    const double matched = section.b[0] != 0.0 ? 0.0 : cyclesPerFrame;
    for (std::size_t k = 0; k < degree; ++k) {
        filter.sections[k] = {1.0, zeros[k].first, zeros[k].second, poles[k].first,
                              poles[k].second};
        unscaled *= GetResponse(filter.sections[k], matched);
    }
    const double gain = std::abs(GetResponse(section, matched * rateHz)) / std::abs(unscaled);
    Biquad& first = filter.sections[0];
    first.b0 *= gain;
    first.b1 *= gain;
    first.b2 *= gain;
    return filter;
}

}  // namespace dsp
