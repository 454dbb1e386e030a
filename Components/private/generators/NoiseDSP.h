#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kraaudiodsp/NoiseColoring.h"
#include "kraaudiodsp/NoiseSource.h"

namespace zuc::components {

/// How the channels of noise are related.
enum class NoiseRelation { kSame, kIndependent, kDiffuse, kByCorrelation };

/// What the audio thread works from; a pure function of the parameter values.
struct NoiseSettings {
    dsp::NoiseColoring::Spec coloring;
    dsp::NoiseDistribution distribution = dsp::NoiseDistribution::kGaussian;
    NoiseRelation relation = NoiseRelation::kIndependent;
    float correlation = 0.0f;  // of each further channel with the first
    float level = 0.1f;        // linear RMS, before offset and limit
    float offset = 0.0f;       // linear
    float limit = 1.0f;        // linear; samples beyond it are cut off
    int seed = 0;              // 0: new each time
    bool operator==(const NoiseSettings&) const = default;
};

/// Noise for all channels together: sources, how they are related, level, offset and limit.
class NoiseDSP {
public:
    void Prepare(std::size_t channels, double rateHz);  // [host]
    /// Begins anew. `seed` is what the numbers come from. [audio]
    void Start(const NoiseSettings& settings, std::uint64_t seed, bool isSettled);
    /// Writes the next frames of every channel; the same whatever the block length. [audio]
    void Process(float* const* out, int frames);

private:
    static constexpr int kPieceFrames = 256;
    void ProcessPiece(float* const* out, int frames);

    double rateHz_ = 48000.0;
    NoiseSettings settings_;
    dsp::NoiseColoring coloring_;
    std::vector<dsp::NoiseSource> sources_;  // one a channel
    std::vector<dsp::DiffusePair> pairs_;    // of channels 2k and 2k + 1
    std::vector<float*> channels_;
};

}  // namespace zuc::components
