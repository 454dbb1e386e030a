#pragma once

#include <cstddef>
#include <memory>

#include "Components/EffectThreadPool.h"
#include "Components/TableDriven.h"

namespace zuc::components {

class ChorusDSP;

inline constexpr char16_t kChorusComponentID[] = u"zuc.Chorus";

/// An ensemble of up to eight voices that follow each channel at moving delays, beside the sound itself.
///
///     delay of a voice = Delay + its part of Delay Spread + swing sin(2 pi rate t) + drift r(t)
///     swing = Depth / 1200 * ln 2 / (2 pi rate) seconds, at most 0.9 of the delay
///     drift = Drift * 3 ms, at most what the swing leaves of 0.9 of the delay
///
/// Depth is the pitch's swing in cents at any rate; the rates of the voices spread by Rate Spread; r is a
/// random curve of 0.1 to 1 Hz for each voice, the same in every run. Voices stand in the stereo image
/// over Stereo Width at equal power, in wider layouts even channels as left and odd ones as right, and
/// are scaled by 1 / sqrt(Voices). Feedback returns the mean of the voices into their delay line. One-pole
/// filters, Wet Low Cut and Wet High Cut, follow the voices.
///
/// The random curves are worked out ahead on the EffectThreadPool, a second at a time. The audio thread
/// never waits for it: what is not ready it works out itself, with the same values, so that the output
/// depends neither on the pool nor on block lengths. While active, the effect is subscribed to the pool;
/// Resume and Suspend may block therefore, and Process wakes a sleeping worker once a second.
///
/// Settings glide over 50 ms, delays too; rates change at once. Latency 16 frames. Tail: the longest delay,
/// repeated until the feedback has decayed by 90 dB. 1 to 32 channels; `in[c]` and `out[c]` may be the
/// same buffer.
class ZUC_API Chorus final : public TableDriven<MultiChannelComponentBase>,
                             public SchedulableEffect {
public:
    enum Parameter {
        kVoices,       // 1 to 8
        kDelay,        // ms, 1 to 60
        kDelaySpread,  // ms, 0 to 30
        kDepth,        // cents, 0 to 100
        kRate,         // Hz, 0.02 to 10
        kRateSpread,   // %, 0 to 100
        kDrift,        // %, 0 to 100
        kFeedback,     // %, -80 to 80
        kStereoWidth,  // %, 0 to 100
        kDry,          // %, 0 to 100
        kWet,          // %, 0 to 100
        kWetLowCut,    // Hz, 20 to 1000
        kWetHighCut,   // Hz, 1000 to 24000
        kParameterCount
    };

    Chorus();
    ~Chorus() override;

    void SetSampleRate(float rateHz) override;  // [host]
    int GetTail() const override;               // [host]
    int GetInitialDelay() const override;       // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Suspend() override;  // [any, may block]; unsubscribes from the pool
    void Resume() override;   // [any, may block]; subscribes to the pool

    void ScheduledFunction() override;  // [worker]

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    struct Settings;
    Settings DeriveSettings() const;
    void SetupParameterInfos();
    void Prepare();
    void Unsubscribe();
    double RateHz() const;

    std::size_t channelCount_;
    std::unique_ptr<ChorusDSP> dsp_;
    bool isSubscribed_ = false;
    bool isFirstBlock_ = true;  // its settings do not glide
};

}  // namespace zuc::components
