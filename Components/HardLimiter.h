#pragma once

#include <memory>

#include "Components/TableDriven.h"

namespace dsp {
class HardLimit;
}

namespace zuc::components {

inline constexpr char16_t kHardLimiterComponentID[] = u"zuc.HardLimiter";

/// A look-ahead limiter: no peak of the output exceeds the ceiling.
///
///     out[c][n] = drive * in[c][n - latency] * gain[c][n]
///
/// The gain needed at each peak, ceiling / |peak|, is held over the look-ahead, released, and smoothed so that
/// it is there before the peak and never above what the peak needs. With "True Peak" peaks between the samples
/// count, by four-fold interpolation: tones up to 20 kHz at 48 kHz stay within 0.1 dB of the ceiling, as a
/// converter or encoder will see them. Where nothing exceeds the ceiling the output is the driven input, delayed,
/// bit for bit.
///
/// "Release" is the time until 1/e of the reduction (in dB) is left. "Auto" adds a release of eight times that,
/// which only takes hold where much is limited for long, so that bass does not pump. "Link Channels" at 100 %
/// gives all channels the gain of the one that needs most, at 0 % each its own; between, a mix in dB.
/// "Gain Reduction" is a meter: the most that the last block was lowered by.
///
/// Latency: the look-ahead in frames, to nearest, and 24 with true peaks; tail 0; 1 to 32 channels. Drive ramps
/// over 10 ms, a new ceiling holds for what enters under it, and all other changes act through the smoothing;
/// another latency starts from silence. `in[c]` and `out[c]` may be the same buffer.
/// Sources: see kraaudiodsp/PeakGain.h.
class ZUC_API HardLimiter final : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kCeilingDb,
        kDriveDb,
        kLookAheadMs,
        kReleaseMs,
        kReleaseMode,  // Manual, Auto
        kLinkPercent,
        kTruePeak,
        kGainReductionDb,  // meter
        kParameterCount
    };

    HardLimiter();
    ~HardLimiter() override;

    void SetSampleRate(float rateHz) override;  // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Resume() override;                                                             // [audio]
    int GetInitialDelay() const override;  // with the present parameters [host]

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    struct Derived;
    Derived DeriveSettings() const;
    void SetupParameterInfos();
    void PrepareBuffers();
    float RateHz() const;

    std::unique_ptr<dsp::HardLimit> dsp_;
};

}  // namespace zuc::components
