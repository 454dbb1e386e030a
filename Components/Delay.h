#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

#include "Components/TableDriven.h"

namespace zuc::components {

class DelayDSP;

inline constexpr char16_t kDelayComponentID[] = u"zuc.Delay";

/// One delayed copy for each channel, from 500 ms before the sound to 500 ms after it.
///
///     out[now] = wet * in[now - latency - delay] + (1 - mix) * in[now - latency]
///
/// with wet = mix, or -mix while the side is inverted. Times before the sound are possible because the
/// sound itself comes out late, by a latency of (200 + rate) / 2 frames, which is reported. Delays are
/// whole frames, int(ms / 1000 * rate + 0.5) truncated towards zero.
///
/// Mono uses the left settings, stereo left and right, wider layouts the left ones for every channel.
/// Every change crossfades over 100 ms; a change during a crossfade waits for its end. After Resume,
/// and after a change of rate or layout, everything is silent and the first block plays at the settings
/// without a crossfade. "Delay Time Units" is stored for the user interface and decides how delay times
/// are shown.
///
/// Tail: the longest delay that is heard, 0 when all of them are before the sound. 1 to 32 channels;
/// `in[c]` and `out[c]` may be the same buffer.
class ZUC_API Delay final : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kDelayLeft,  // ms, -500 to 500
        kInvertLeft,
        kMixLeft,  // %, 0 to 100
        kDelayRight,
        kInvertRight,
        kMixRight,
        kTimeUnit,      // 0 ms, 1 samples, 2 seconds
        kChannelCount,  // follows the layout
        kParameterCount
    };

    Delay();
    ~Delay() override;

    void SetSampleRate(float rateHz) override;  // [host]
    int GetTail() const override;               // [host]
    int GetInitialDelay() const override;       // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Resume() override;                                                             // [audio]
    /// Delay times in the chosen unit; samples need a sample rate. [host]
    WStr GetParameterString(int index) const override;

protected:
    /// Deliberate: the names without "left" and "right" that every width but two brings stay when the
    /// layout becomes stereo again. [host]
    void OnNumberOfChannelsChanged(std::size_t channels) override;

private:
    struct Settings;
    Settings DeriveSettings() const;
    void SetupParameterInfos();
    void Prepare();
    double RateHz() const { return std::max(GetSampleRate(), 0.0f); }  // 0 until it is set

    std::size_t channelCount_;
    std::unique_ptr<DelayDSP> dsp_;
    bool isFirstBlock_ = true;  // its settings are not faded in
};

}  // namespace zuc::components
