#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kraaudiodsp/NoiseColoring.h"
#include "kraaudiodsp/RandomBits.h"

namespace dsp {

enum class NoiseDistribution { kGaussian, kUniform, kTriangular };

/// One channel of noise of unit power.
///
/// The distribution is that of the white noise that is filtered; colouring draws any of them towards the
/// normal one. Gaussian numbers come from a ziggurat of 256 layers (Marsaglia and Tsang 2000, in the form of
/// Doornik, "An improved ziggurat method to generate normal random samples", 2005). The output depends on
/// seed, stream and settings only, not on how it is divided into blocks.
class NoiseSource {
public:
    /// Begins anew; with `isSettled` as if it had been running for long, which takes the time of a quarter of
    /// a second of noise. [audio]
    void Start(std::uint64_t seed,
               int stream,
               NoiseDistribution distribution,
               const NoiseColoring& coloring,
               bool isSettled);
    /// Writes the next `frames` frames. [audio]
    void Process(const NoiseColoring& coloring, float* out, int frames);

private:
    static constexpr int kPieceFrames = 256;
    void MakeWhite(double* out, int frames);
    void Color(const NoiseColoring& coloring, double* samples, int frames);
    void Limit(const NoiseColoring::Biquad& biquad, std::size_t index, double* samples, int frames);

    RandomBits random_;
    NoiseDistribution distribution_ = NoiseDistribution::kGaussian;
    std::array<double, NoiseColoring::kMaxSections> sections_{};
    std::array<std::array<double, 2>, NoiseColoring::kMaxBiquads> biquads_{};
    std::array<double, kPieceFrames> piece_{};
};

/// Turns two independent noises into those of two points in a diffuse sound field.
///
/// Coherence falls as sin(x) / x with x = 2 pi f d / c (Cook et al., "Measurement of correlation coefficients
/// in reverberant sound fields", 1955), d = 0.175 m, c = 343 m/s. Both keep their spectra:
///
///     left, right = A * n0 + B * n1, A * n0 - B * n1     A^2 + B^2 = 1, A^2 - B^2 = coherence
///
/// A and B are filters of linear phase, 10 ms long. Both channels are delayed by GetLatency.
class DiffusePair {
public:
    void Prepare(double rateHz);  // [host]
    void Reset();                 // [audio]
    /// In place. [audio]
    void Process(float* left, float* right, int frames);
    int GetLatency() const { return static_cast<int>(half_); }  // frames

private:
    static constexpr std::size_t kPieceFrames = 256;

    std::size_t half_ = 0;
    std::vector<float> sumTaps_;  // half + 1, see SymmetricFir
    std::vector<float> differenceTaps_;
    std::vector<float> first_;  // 2 half frames of the past, then a piece
    std::vector<float> second_;
    std::array<float, kPieceFrames> sum_{};
    std::array<float, kPieceFrames> difference_{};
};

}  // namespace dsp
