#include "kraaudiodsp/NoiseSource.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "kraaudiodsp/RealFft.h"
#include "kraaudiodsp/vector/FirOps.h"

namespace dsp {
namespace {

using std::numbers::pi;

constexpr int kSettleFrames = 12288;  // a quarter of a second at 48 kHz
constexpr double kEarDistanceSeconds = 0.175 / 343.0;
constexpr double kHalfLengthSeconds = 0.005;
constexpr std::size_t kLeastPoints =
    4096;  // of the pair's frequency responses, 0 to the sample rate

/// Widths of 256 layers of equal area under exp(-x^2 / 2), the widest first.
struct Ziggurat {
    static constexpr int kLayers = 256;
    static constexpr double kTail = 3.6541528853610088;  // where the lowest layer's tail begins
    static constexpr double kArea = 0.00492867323399;    // of each layer
    std::array<double, kLayers + 1> width{};
    std::array<double, kLayers> ratio{};  // of a layer's width that lies wholly under the curve

    Ziggurat() {
        double density = std::exp(-0.5 * kTail * kTail);
        width[0] = kArea / density;
        width[1] = kTail;
        for (std::size_t i = 2; i < kLayers; ++i) {
            width[i] = std::sqrt(-2.0 * std::log(kArea / width[i - 1] + density));
            density = std::exp(-0.5 * width[i] * width[i]);
        }
        for (std::size_t i = 0; i < kLayers; ++i) ratio[i] = width[i + 1] / width[i];
    }
};
const Ziggurat kZiggurat;

double NextTail(RandomBits& random, bool isNegative) {
    for (;;) {
        const double x = std::log(1.0 - random.NextUnit()) / Ziggurat::kTail;
        const double y = std::log(1.0 - random.NextUnit());
        if (-2.0 * y >= x * x) return isNegative ? x - Ziggurat::kTail : Ziggurat::kTail - x;
    }
}

double NextGaussian(RandomBits& random) {
    for (;;) {
        const std::uint64_t bits = random.Next();
        const std::size_t layer = bits & 255u;
        const double u = static_cast<double>(bits >> 11) * 0x1p-52 - 1.0;
        if (std::abs(u) < kZiggurat.ratio[layer]) return u * kZiggurat.width[layer];
        if (layer == 0) return NextTail(random, u < 0.0);
        const double x = u * kZiggurat.width[layer];
        const auto above = [x](double edge) { return std::exp(-0.5 * (edge * edge - x * x)); };
        const double low = above(kZiggurat.width[layer]);
        const double high = above(kZiggurat.width[layer + 1]);
        if (high + random.NextUnit() * (low - high) < 1.0) return x;
    }
}

}  // namespace

// ---- One channel ----

void NoiseSource::Start(std::uint64_t seed,
                        int stream,
                        NoiseDistribution distribution,
                        const NoiseColoring& coloring,
                        bool isSettled) {
    random_ = RandomBits(seed, stream);
    distribution_ = distribution;
    sections_.fill(0.0);
    biquads_.fill({});
    const bool hasMemory = coloring.GetSectionCount() + coloring.GetBiquadCount() > 0;
    if (!isSettled || !hasMemory) return;
    for (int done = 0; done < kSettleFrames; done += kPieceFrames) {
        MakeWhite(piece_.data(), kPieceFrames);
        Color(coloring, piece_.data(), kPieceFrames);
    }
}

void NoiseSource::MakeWhite(double* out, int frames) {
    switch (distribution_) {
        case NoiseDistribution::kGaussian:
            for (int i = 0; i < frames; ++i) out[i] = NextGaussian(random_);
            return;
        case NoiseDistribution::kUniform:
            for (int i = 0; i < frames; ++i)
                out[i] = std::numbers::sqrt3 * (2.0 * random_.NextUnit() - 1.0);
            return;
        case NoiseDistribution::kTriangular: {
            const double scale = std::sqrt(6.0);  // the sum of two uniforms varies by 1/6
            for (int i = 0; i < frames; ++i) {
                const double first = random_.NextUnit();
                out[i] = scale * (first + random_.NextUnit() - 1.0);
            }
            return;
        }
    }
}

void NoiseSource::Color(const NoiseColoring& coloring, double* samples, int frames) {
    constexpr std::size_t kLanes = NoiseColoring::kLanes;
    const std::size_t count = coloring.GetSectionCount();
    const double* const poles = coloring.GetPoles().data();
    const double* const residues = coloring.GetResidues().data();
    double* const state = sections_.data();
    for (int i = 0; i < frames && count > 0; ++i) {
        const double in = samples[i];
        // One sum a lane: the compiler may run the lanes side by side, and rounding is the same if not.
        std::array<double, kLanes> sums{};
        for (std::size_t group = 0; group < count; group += kLanes)
            for (std::size_t lane = 0; lane < kLanes; ++lane) {
                const std::size_t k = group + lane;
                sums[lane] += residues[k] * state[k];
                state[k] = poles[k] * state[k] + in;
            }
        samples[i] = in + (((sums[0] + sums[1]) + (sums[2] + sums[3])) +
                           ((sums[4] + sums[5]) + (sums[6] + sums[7])));
    }
    for (std::size_t k = 0; k < coloring.GetBiquadCount(); ++k)
        Limit(coloring.GetBiquads()[k], k, samples, frames);
}

void NoiseSource::Limit(const NoiseColoring::Biquad& biquad,
                        std::size_t index,
                        double* samples,
                        int frames) {
    auto [first, second] = biquads_[index];
    for (int i = 0; i < frames; ++i) {
        const double in = samples[i];
        const double out = biquad.b0 * in + first;
        first = biquad.b1 * in - biquad.a1 * out + second;
        second = biquad.b2 * in - biquad.a2 * out;
        samples[i] = out;
    }
    biquads_[index] = {first, second};
}

void NoiseSource::Process(const NoiseColoring& coloring, float* out, int frames) {
    const double gain = coloring.GetGain();
    for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, kPieceFrames);
        MakeWhite(piece_.data(), count);
        Color(coloring, piece_.data(), count);
        for (int i = 0; i < count; ++i)
            out[done + i] = static_cast<float>(gain * piece_[static_cast<std::size_t>(i)]);
        done += count;
    }
}

// ---- Two channels ----

void DiffusePair::Prepare(double rateHz) {
    half_ = static_cast<std::size_t>(kHalfLengthSeconds * rateHz + 0.5);
    sumTaps_.assign(half_ + 1, 0.0f);
    differenceTaps_.assign(half_ + 1, 0.0f);
    first_.assign(2 * half_ + kPieceFrames, 0.0f);
    second_.assign(2 * half_ + kPieceFrames, 0.0f);
    // Responses are sampled on a circle long enough for what lies beyond the filters to have faded.
    RealFft<double> fft;
    fft.Prepare(RealFft<double>::GoodSize(std::max(kLeastPoints, 8 * half_)));
    const std::size_t points = fft.GetSize();
    std::vector<std::complex<double>> sums(points / 2 + 1);
    std::vector<std::complex<double>> differences(points / 2 + 1);
    const double step = 2.0 * pi * rateHz / static_cast<double>(points) * kEarDistanceSeconds;
    for (std::size_t m = 0; m <= points / 2; ++m) {
        const double x = step * static_cast<double>(m);
        const double coherence = x > 0.0 ? std::sin(x) / x : 1.0;
        sums[m] = std::sqrt(0.5 * (1.0 + coherence));
        differences[m] = std::sqrt(0.5 * (1.0 - coherence));
    }
    std::vector<double> response(points);
    const auto takeTaps = [&](const std::vector<std::complex<double>>& spectrum,
                              std::vector<float>& taps) {
        fft.Inverse(spectrum.data(), response.data());
        for (std::size_t k = 0; k <= half_; ++k) {
            // Hann's window ends the kink that the difference has at 0 Hz.
            const double window =
                0.5 + 0.5 * std::cos(pi * static_cast<double>(k) / static_cast<double>(half_ + 1));
            taps[half_ - k] = static_cast<float>(response[k] * window);
        }
    };
    takeTaps(sums, sumTaps_);
    takeTaps(differences, differenceTaps_);
}

void DiffusePair::Reset() {
    std::fill(first_.begin(), first_.end(), 0.0f);
    std::fill(second_.begin(), second_.end(), 0.0f);
}

void DiffusePair::Process(float* left, float* right, int frames) {
    for (std::size_t done = 0; done < static_cast<std::size_t>(frames);) {
        const std::size_t count = std::min(static_cast<std::size_t>(frames) - done, kPieceFrames);
        const auto filter = [&](std::vector<float>& past, const float* in,
                                const std::vector<float>& taps, float* out) {
            std::copy_n(in + done, count, past.begin() + static_cast<std::ptrdiff_t>(2 * half_));
            vector::SymmetricFir(out, past.data(), taps.data(), half_, count);
            std::copy_n(past.begin() + static_cast<std::ptrdiff_t>(count), 2 * half_, past.begin());
        };
        filter(first_, left, sumTaps_, sum_.data());
        filter(second_, right, differenceTaps_, difference_.data());
        for (std::size_t i = 0; i < count; ++i) {
            left[done + i] = sum_[i] + difference_[i];
            right[done + i] = sum_[i] - difference_[i];
        }
        done += count;
    }
}

}  // namespace dsp
