#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Components/TableDriven.h"

namespace zuc::components {

inline constexpr char16_t kDynamicsComponentID[] = u"zuc.Dynamics";

class DynamicsDSP;

/// Compressor, expander, limiter and gate by a transfer curve that the user draws.
///
/// Level detection, per channel: x^2 (RMS) or |x| (peak) is smoothed over a few frames, turned into
/// dB relative to full scale, and followed by an envelope with the level detector's attack and
/// release. The curve gives the gain for this level, in dB
///
///     gain(level) = curve(level) - level
///
/// and a second envelope, on the linear gain, follows with the gain processor's attack (falling) and
/// release (rising). A time is what an envelope takes for 99 % of a step: its constant per frame is
/// 0.01^(1 / (seconds * rate)). The input, delayed by the latency so that the gain is there before the
/// sound, is multiplied by that gain, the output gain and the make-up gain. The band cutoffs filter only
/// what the detector hears.
///
/// The curve runs through up to seven points "Location" (input level), "Value" (output level): straight
/// or as a spline that does not swing beyond them. Levels outside the points keep the end values;
/// above 0 dB the curve goes on with its slope just below. With "Noise Gating" a segment steeper than
/// 50:1 mutes everything below its upper point.
///
/// Side chain: a second input layout, proposed through RequestIOConfiguration, feeds the bus
/// "Side-Chain In", whose channels then drive the detectors instead of the main input: main channel c
/// follows side channel min(c, count - 1). Main and side channels together are at most 34. The input
/// gain acts on the main input before detection and not on the side chain.
///
/// "Link Channels" gives every channel the gain of channel 0, detected from the loudest of all.
/// "Envelope Only" puts out the smoothed linear gain itself instead of audio. "Lock Filter" and
/// "Current Tab" are kept for user interfaces and change no sample.
///
/// Latency: look-ahead + 32 + taps of the band filter, in frames; tail 0; 1 to 32 channels. Gain changes
/// and linking ramp over 10 ms, all else acts through the envelopes; a change of the latency (look-ahead,
/// cutoffs) starts from silence. `in[c]` and `out[c]` may be the same buffer.
class ZUC_API Dynamics final : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;
    static constexpr int kPointCount = 7;
    enum Parameter {
        kLevelAttackMs,
        kLevelReleaseMs,
        kGainAttackMs,
        kGainReleaseMs,
        kLookaheadMs,
        kInputGainDb,
        kOutputGainDb,
        kLowCutoffHz,  // 20 to half the sample rate; presets set the place within that range
        kHighCutoffHz,
        kLockFilter,
        kXYCount,  // points of the curve in use, rounded to nearest
        kLinkChannels,
        kPeakRms,  // off: peak, on: RMS
        kEnvelopeOnly,
        kSplineCurves,
        kNoiseGating,
        kCurrentTab,
        kFirstPoint,  // location and value of each point in turn, dB
        kMakeupGainDb = kFirstPoint + 2 * kPointCount,
        kParameterCount
    };

    Dynamics();
    ~Dynamics() override;

    void SetSampleRate(float rateHz) override;  // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Resume() override;                                                             // [audio]
    /// The transfer curve at `points` even steps from -100 dB to 0 dB, in dB. Only curve 0 exists; none
    /// without curve points. [host]
    std::size_t GetCurveData(int curve, std::size_t points, std::vector<float>& samples) override;
    int GetInitialDelay() const override;  // with the present parameters [host]
    /// Takes one or two input layouts, the second one for the side chain, and one output layout as wide
    /// as the first. A proposal without a second layout leaves the side chain unconnected; one with
    /// more than 34 channels changes nothing. [host]
    void RequestIOConfiguration(
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) override;
    bool CanUseSideChaining() const override { return true; }  // [any]

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    struct Band;
    struct Derived;
    float RateHz() const;
    Band DeriveBand() const;
    Derived DeriveSettings() const;
    void SetupParameterInfos();
    void MoveCutoffBounds();
    void PrepareBuffers();

    kramediatypes::AudioChannelLayout sideLayout_;
    std::unique_ptr<DynamicsDSP> dsp_;
};

}  // namespace zuc::components
