#include "kraaudiodsp/NoiseColoring.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace dsp {
namespace {

using std::numbers::pi;

constexpr double kDbPerPower = 6.020599913279624;  // dB per octave of a slope of f^1
constexpr double kLowestCentreHz = 2.5;
constexpr double kHighestWarped = 32.0;  // of the centres: 0.49 of the rate
constexpr double kCentreRatio = std::numbers::sqrt2;
constexpr int kRefinements = 8;
constexpr double kGreyLevelHz = 15.0;
constexpr double kNoLimitFraction = 0.49;  // of the sample rate

/// Frequencies of a bilinear design count as tan(pi f / rate).
double Warp(double frequencyHz, double rateHz) { return std::tan(pi * frequencyHz / rateHz); }

/// Slope of the inverse of A-weighting as a power of f: four zeros at 0 and the corners of IEC 61672-1,
/// turned round; it levels off towards 0 Hz.
double GreySlope(double frequencyHz) {
    const double square = frequencyHz * frequencyHz;
    const auto corner = [square](double hz) { return square / (square + hz * hz); };
    const double slope =
        -4.0 + 2.0 * corner(20.6) + corner(107.7) + corner(737.9) + 2.0 * corner(12194.0);
    const double ratio = square / (kGreyLevelHz * kGreyLevelHz);
    return slope * ratio * ratio / (1.0 + ratio * ratio);
}

/// Slope of the magnitude as a power of f.
double Slope(const NoiseColoring::Spec& spec, double frequencyHz) {
    switch (spec.color) {
        case NoiseColor::kWhite:
            return 0.0;
        case NoiseColor::kPink:
            return -0.5;
        case NoiseColor::kBrown:
            return -1.0;
        case NoiseColor::kBlue:
            return 0.5;
        case NoiseColor::kViolet:
            return 1.0;
        case NoiseColor::kGrey:
            return GreySlope(frequencyHz);
        case NoiseColor::kCustom:
            return spec.slopeDbPerOctave / kDbPerPower;
    }
    return 0.0;
}

double Square(double x) { return x * x; }

}  // namespace

void NoiseColoring::Design(const Spec& spec, double rateHz) {
    rateHz_ = rateHz;
    centreCount_ = sectionCount_ = biquadCount_ = 0;
    warpedLow_ = warpedHigh_ = 0.0;
    if (spec.color != NoiseColor::kWhite) {
        PlaceLadder(spec);
        FindResidues();
    }
    const double low = std::min(spec.lowHz, spec.highHz);
    const double high = std::max(spec.lowHz, spec.highHz);
    const double most = kNoLimitFraction * rateHz;
    if (low > 0.0) AddLimit(std::min(low, most), true);
    if (high < most) AddLimit(high, false);
    gain_ = 1.0 / std::sqrt(IntegratePower());
}

void NoiseColoring::PlaceLadder(const Spec& spec) {
    std::array<double, kMaxSections> centres{};
    std::array<double, kMaxSections> wanted{};     // slope in the warped frequency
    std::array<double, kMaxSections> distances{};  // from zero to pole, in powers of the ratio
    double warped = Warp(kLowestCentreHz, rateHz_);
    while (warped < kHighestWarped && centreCount_ < kMaxSections) {
        const double angle = std::atan(warped);
        centres[centreCount_] = warped;
        wanted[centreCount_] =
            Slope(spec, angle * rateHz_ / pi) * std::sin(2.0 * angle) / (2.0 * angle);
        ++centreCount_;
        warped *= kCentreRatio;
    }
    distances = wanted;
    for (int round = 0; round <= kRefinements; ++round) {
        for (std::size_t i = 0; i < centreCount_; ++i) {
            const double half = std::pow(kCentreRatio, 0.5 * distances[i]);
            warpedPoles_[i] = centres[i] * half;
            warpedZeros_[i] = centres[i] / half;
        }
        if (round == kRefinements) break;
        for (std::size_t i = 0; i < centreCount_; ++i) {
            const double square = Square(centres[i]);
            double slope = 0.0;
            for (std::size_t k = 0; k < centreCount_; ++k)
                slope += square / (square + Square(warpedZeros_[k])) -
                         square / (square + Square(warpedPoles_[k]));
            distances[i] += wanted[i] - slope;
        }
    }
}

void NoiseColoring::FindResidues() {
    sectionCount_ = (centreCount_ + kLanes - 1) / kLanes * kLanes;
    poles_.fill(0.0);
    residues_.fill(0.0);
    // The difference of two bilinear roots, without losing what little they differ near z = 1.
    const auto difference = [](double a, double b) {
        return 2.0 * (b - a) / ((1.0 + a) * (1.0 + b));
    };
    for (std::size_t i = 0; i < centreCount_; ++i) {
        const double pole = warpedPoles_[i];
        double residue = difference(pole, warpedZeros_[i]);
        for (std::size_t k = 0; k < centreCount_; ++k)
            if (k != i)
                residue *= difference(pole, warpedZeros_[k]) / difference(pole, warpedPoles_[k]);
        poles_[i] = (1.0 - pole) / (1.0 + pole);
        residues_[i] = residue;
    }
}

void NoiseColoring::AddLimit(double frequencyHz, bool isHighPass) {
    const double warped = Warp(frequencyHz, rateHz_);
    (isHighPass ? warpedLow_ : warpedHigh_) = warped;
    for (int repeat = 0; repeat < 2; ++repeat)
        for (const double angle : {pi / 8.0, 3.0 * pi / 8.0}) {  // poles of Butterworth's order 4
            const double damping = 2.0 * std::cos(angle) * warped;
            const double square = Square(warped);
            const double scale = 1.0 / (1.0 + damping + square);
            const double b = (isHighPass ? 1.0 : square) * scale;
            biquads_[biquadCount_++] = {b, isHighPass ? -2.0 * b : 2.0 * b, b,
                                        2.0 * (square - 1.0) * scale,
                                        (1.0 - damping + square) * scale};
        }
}

double NoiseColoring::GetPower(double warped) const {
    const double square = Square(warped);
    double power = 1.0;
    for (std::size_t i = 0; i < centreCount_; ++i)
        power *= (square + Square(warpedZeros_[i])) / (square + Square(warpedPoles_[i])) *
                 Square((1.0 + warpedPoles_[i]) / (1.0 + warpedZeros_[i]));
    const auto eighth = [](double x) { return Square(Square(Square(x))); };
    if (warpedLow_ > 0.0) power /= Square(1.0 + eighth(warpedLow_ / warped));
    if (warpedHigh_ > 0.0) power /= Square(1.0 + eighth(warped / warpedHigh_));
    return power;
}

/// Mean of |H|^2 over all frequencies, by the trapezoidal rule over the logarithm of the frequency.
double NoiseColoring::IntegratePower() const {
    if (centreCount_ == 0 && biquadCount_ == 0) return 1.0;
    constexpr int kPointsPerOctave = 24;
    constexpr int kOctaves = 18;  // from 0.09 Hz at 48 kHz up
    constexpr double kStep = std::numbers::ln2 / kPointsPerOctave;
    double sum = 0.0;
    double fraction = 0.5;  // of the sample rate
    for (int i = 0; i <= kPointsPerOctave * kOctaves; ++i) {
        const double warped = std::tan(pi * std::min(fraction, 0.5 - 1e-9));
        const bool isEnd = i == 0 || i == kPointsPerOctave * kOctaves;
        sum += (isEnd ? 0.5 : 1.0) * GetPower(warped) * 2.0 * fraction * kStep;
        fraction *= std::exp2(-1.0 / kPointsPerOctave);
    }
    return sum + GetPower(std::tan(pi * fraction)) * 2.0 * fraction;
}

double NoiseColoring::GetMagnitude(double frequencyHz) const {
    return gain_ * std::sqrt(GetPower(Warp(frequencyHz, rateHz_)));
}

}  // namespace dsp
