#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/AlignedVector.h"
#include "kraaudiodsp/HardLimit.h"
#include "kraaudiodsp/IntraClipParam.h"
#include "kraaudiodsp/SlidingBuffer.h"
#include "kraaudiodsp/SpeechLevel.h"

namespace dsp::intraclip {

/// Range of a parameter, and where it starts with the record as it is when the process starts.
struct ParameterBounds {
    float lo;
    float hi;
    float initial;
};

/// Brings the words of loud and quiet talkers to one level without lifting the pauses.
///
/// All channels share one gain, decided every 5 ms from their mean power (SpeechLevel) and moving along straight
/// lines in dB between:
///
///     levelling  = (target - body) amount, within +-maxGain
///     compressor = -k clip(level - body, +-range) during speech, else 0,
///                  k = 0.9 amount clip(1.375 - range / 40, 0, 1)
///     total      = levelling + compressor; rises by at most maxGainDelta dB/s and falls by four times that
///     gate       = -min((ratio - 1) (floor + offset - window), 12) where the window is below that sum
///
/// They act on audio that is delayed by -delayCompensationTime, so that the gain is there before the word. A
/// compressor of 4:1 with a knee of 6 dB above its threshold follows, on the peaks of each 5 ms, and HardLimit
/// for true peaks. What the record IntraClipParam says is taken up by Initialize and Reset.
class IntraClip {
public:
    enum Parameter : long {
        kTargetDb,  // level of a talker's louder syllables, dB RMS
        kAmountPercent,
        kCompressor,  // the one on peaks
        kCompressorThresholdDb,
        kGate,
        kNoiseOffsetDb,    // above the floor: what counts as speech, and where the gate closes
        kBoostLowSignals,  // up to 18 dB of levelling instead of maxGain
        kAmplificationDb,  // read: the gain at the moment, limiter aside
        kDynamicRangeDb,   // what a talker keeps
        kParameterCount
    };
    static constexpr std::array<ParameterBounds, kParameterCount> kBounds{{
        {-40, -6, -18},
        {0, 100, 70},
        {0, 1, 1},
        {-40, 0, -6},
        {0, 1, 0},
        {0, 40, 15},
        {0, 1, 0},
        {-60, 60, 0},
        {3, 40, 15},
    }};

    /// Parameters at their initial values, which follow the record: the target is 6 dB below refLevel, the
    /// compressor's threshold finCompThresh, the offset noiseThresholdOffset, the range bodyDynamic. [host]
    IntraClip();

    /// Prepares for channels, rate and any block length; false, and nothing changed, for a channel count other
    /// than 1 to 32 or a rate that is not above 0. [host]
    bool Initialize(long channels, float rateHz, long blockFrames);
    /// From silence, with the record as it is now. [audio]
    void Reset();

    /// By index, clamped to the bounds; acts from the next 5 ms on. Other indices and the meter are ignored.
    /// [audio]
    void SetParameter(long index, float value);
    float GetParameter(long index) const;                    // 0 for other indices [any]
    void GetBounds(long index, float& lo, float& hi) const;  // 0 and 0 for other indices [any]

    /// `out[c]` may be `in[c]`; any number of frames. With a debug mode, channel 1 carries the chosen curve
    /// instead: dB / 60, within +-1. [audio]
    void Process(const float* const* in, float* const* out, long frames);
    /// Frames by which the output comes later, by the record that is in force. [any]
    long GetLatency() const { return latency_.load(std::memory_order_relaxed); }

private:
    enum Block { kIntraClipBlock = 1, kCompressorBlock = 2, kLimiterBlock = 4, kGateBlock = 8 };
    enum DebugMode {
        kNoCurve,
        kTotalCurve,
        kCompressorCurve,
        kLimiterCurve,
        kLevellingCurve,
        kGateCurve,
        kFloorCurve
    };
    /// What is decided for a step, in dB.
    struct Decision {
        float levelling = 0.0f;
        float total = 0.0f;
        float gate = 0.0f;
        float floor = -60.0f;
    };

    void TakeRecord();
    bool HasBlock(Block block) const {
        return (record_.processingBlockActiveBitField & block) != 0;
    }
    bool IsOn(Parameter parameter) const { return GetParameter(parameter) >= 0.5f; }
    double StepShare(double ms) const;
    void Decide();
    void FollowCompressor(double amount);
    double FollowGate();
    void BeginStep();
    float CompressPeaks(float gainDb);
    float GetCurveDb(const Decision& decision, float peakGainDb) const;
    void ProcessPiece(const float* const* in, float* const* out, std::size_t frames);
    bool ShowsCurve() const;

    std::array<std::atomic<float>, kParameterCount> parameters_{};
    IntraClipParam record_;
    std::atomic<long> latency_{0};
    double rateHz_ = 48000.0;
    std::size_t stepFrames_ = 240;
    std::size_t delayFrames_ = 0;  // of the audio
    std::size_t gainDelaySteps_ = 0;
    std::vector<SlidingBuffer> delays_;
    std::size_t stepFramesLeft_ = 240;

    SpeechLevel speech_;
    double compressorDb_ = 0.0;
    double totalDb_ = 0.0;
    double gateDb_ = 0.0;
    double gateHoldSeconds_ = 0.0;
    std::vector<Decision> decisions_;  // ring of the last ones, for gains that come late
    std::size_t decisionCount_ = 0;
    Decision inForce_;  // at the end of this step
    double peakGainDb_ = 0.0;
    float gainDb_ = 0.0f;         // of all, at the end of this step
    float curveDb_ = 0.0f;        // likewise
    AlignedVector<float> gains_;  // one step
    AlignedVector<float> curve_;  // one step, as it is written
    SlidingBuffer curveDelay_;
    HardLimit limiter_;
    HardLimit::Settings limiterSettings_;
    AlignedVector<float> reductions_;  // one piece
};

}  // namespace dsp::intraclip
