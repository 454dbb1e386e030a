#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/AlignedVector.h"
#include "kraaudiodsp/PeakGain.h"
#include "kraaudiodsp/SlidingBuffer.h"
#include "kraaudiodsp/TruePeak.h"

namespace dsp {

/// A look-ahead limiter: no peak of a stream leaves it above the ceiling.
///
///     peak[c][n]   = the true peak from sample n to n + 1 (TruePeak), or |x[c][n]|
///     needed[c][n] = max(0, 20 log10(peak[c][n] / ceiling)), linked:
///                    (1 - link) needed[c][n] + link max over channels
///     out[c][n]    = x[c][n - latency] 10^(-attenuation / 20), attenuation = PeakGain of needed
///
/// Where nothing above the ceiling is near, the output is the delayed input bit for bit (times drive). True
/// peaks stay within 0.1 dB of the ceiling for content up to 0.417 of the rate; what is above may reach
/// 0.35 dB. Samples are also clamped at the ceiling, which only acts on what float cannot hold;
/// GetClampedCount tells how often. Finite input.
class HardLimit {
public:
    struct Settings {
        float ceiling = 1.0f;  // linear, above 0
        float drive = 1.0f;    // linear
        int lookAheadFrames = 240;
        float releaseFrames = 4800.0f;  // until 1/e of the attenuation is left
        bool isReleaseAuto = true;
        float link = 1.0f;  // 0 to 1
        bool usesTruePeaks = true;
    };
    /// Most frames for one call of Process.
    static constexpr int kMaxPieceFrames = 1024;

    /// Least and most of a look-ahead in frames are 2 and `maxLookAheadFrames`; a new drive ramps linearly
    /// over `rampFrames`. [host]
    void Prepare(std::size_t channels, int maxLookAheadFrames, int rampFrames, double rateHz);
    /// Starts from silence with these settings. [audio]
    void Reset(const Settings& settings);
    /// From the next frame on. A ceiling holds for the frames that enter under it; another latency starts
    /// from silence. [audio]
    void SetSettings(const Settings& settings);
    /// `out[c]` may be `in[c]`. `reductionDb`, where given, receives what each frame of the first channel was
    /// lowered by. [audio]
    void Process(const float* const* in,
                 float* const* out,
                 int frames,
                 float* reductionDb = nullptr);

    /// Look-ahead, and 24 frames with true peaks. [any]
    static int GetLatency(const Settings& settings);
    int GetLatency() const { return GetLatency(settings_); }  // [audio]
    /// The most by which the last call of Process lowered any channel; 0 for nothing. [audio]
    float GetReductionDb() const { return reductionDb_; }
    std::size_t GetClampedCount() const { return clampedCount_; }  // since Reset [audio]

private:
    using Piece = std::array<float, kMaxPieceFrames>;
    struct Channel {
        SlidingBuffer delay;
        TruePeak truePeak;
        PeakGain gain;
        AlignedVector<float> attenuation;  // one piece, in dB
        const float* newest = nullptr;     // this run's input, driven
    };
    void ProcessRun(const float* const* in, float* const* out, std::size_t frames);
    void TakeInput(const float* const* in, std::size_t frames);
    void FindNeeds(std::size_t frames);
    void Link(std::size_t frames);
    void Apply(float* const* out, std::size_t frames);
    float GetDrive() const;

    Settings settings_;
    std::vector<Channel> channels_;
    AlignedVector<float> loudest_;  // one piece: needs of all channels
    AlignedVector<float> gains_;    // one piece
    bool isOneGain_ = true;         // all channels have had the gain of the first since Reset
    int rampFrames_ = 1;
    int rampLeft_ = 0;
    float rampStart_ = 1.0f;  // drive
    float rampStep_ = 0.0f;
    float clampAt_ = 1.0f;
    int clampFramesLeft_ = 0;  // until the clamp comes down to the ceiling
    float reductionDb_ = 0.0f;
    std::size_t clampedCount_ = 0;
};

}  // namespace dsp
