#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

#include "Components/TableDriven.h"

namespace zuc::components {

class EchoDSP;

inline constexpr char16_t kEchoComponentID[] = u"zuc.Echo";

/// Echoes that come back again and again: for each channel a delay of up to 2000 ms whose output returns
/// through an eight-band equalizer.
///
///     echo = equalizer(feedback * line[now - delay])
///     out  = in + echo
///     line[now] = clamp(level * in + echo, -1, 1), and 0 if that is not finite
///
/// The line is read before it is written. Deliberate: a delay of 0 ms therefore is the whole line,
/// 2 * rate + 200 frames. Delays are whole frames, int(ms / 1000 * rate).
///
/// Mono uses the left settings, stereo the left for channel 0 and the right for channel 1; wider
/// layouts the left for every channel. "Echo Bounce" lets channels 0 and 1 write each other's line, in
/// wider layouts too, where channel 1 then takes the right echo level.
///
/// A change of delays, feedback, levels or bounce crossfades over 100 ms: the taps of both settings are
/// mixed before the equalizer, the levels and what is written with the same weights. A change during a
/// crossfade waits for its end. Band gains change at once; with every band within 0.001 dB of 0 the
/// equalizer is left out and the loop's gain is the feedback. After Resume, and after a change of rate
/// or layout, everything is silent and the first block plays at the settings without a crossfade.
///
/// "Lock Left & Right Channels" and "Delay Time Units" are stored for the user interface; the units
/// decide how delay times are shown.
///
/// Latency 0. Tail: until the loop has decayed by 90 dB, at most 60 s. 1 to 32 channels; `in[c]` and
/// `out[c]` may be the same buffer.
class ZUC_API Echo final : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kDelayLeft,  // ms, 0 to 2000
        kDelayRight,
        kFeedbackLeft,  // %, 0.1 to 100
        kFeedbackRight,
        kLevelLeft,  // %, 0.1 to 100
        kLevelRight,
        kFirstBand,  // the lowest of eight, dB, -15 to 15
        kLockChannels = kFirstBand + 8,
        kBounce,
        kTimeUnit,      // 0 ms, 1 samples, 2 seconds
        kChannelCount,  // follows the layout
        kParameterCount
    };

    Echo();
    ~Echo() override;

    void SetSampleRate(float rateHz) override;  // [host]
    int GetTail() const override;               // [host]
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
    std::unique_ptr<EchoDSP> dsp_;
    bool isFirstBlock_ = true;  // its settings are not faded in
};

}  // namespace zuc::components
