#pragma once

#include <array>
#include <cstddef>

#include "Components/TableDriven.h"

namespace zuc::components {

inline constexpr char16_t kAmplifyComponentID[] = u"zuc.Amplify";

/// One gain for each of up to 32 channels, in dB.
///
///     out[c][i] = in[c][i] * 10^(gainDb[c] / 20)
///
/// Every change ramps linearly over 10 ms of audio from wherever the gains are; after Resume the first
/// block plays at the settings. While "Link Sliders" is on, a gain that the user is dragging (between
/// BeginEditing and EndEditing) moves all 32; automation and presets set one channel at a time.
/// Latency 0, tail 0, any layout of 1 to 32 channels. `in[c]` and `out[c]` may be the same buffer.
class ZUC_API Amplify final : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kChannelCount,  // follows the layout
        kLinkSliders,
        kFirstGain,  // of channel 0; one parameter a channel from here on, -96 to +48 dB
        kParameterCount = kFirstGain + kMaxChannelCount
    };

    Amplify();
    ~Amplify() override;

    void SetSampleRate(float rateHz) override;  // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Suspend() override;                                                            // [audio]
    void Resume() override;                                                             // [audio]
    void SetParameter(int index, float normalized) override;                            // [host]
    /// Deliberate: a gain of a channel that is absent answers its stored target while linked and 0 dB
    /// otherwise, and every index that is neither a gain nor the channel count answers the link. [host]
    float GetParameter(int index) const override;
    void BeginEditing(int index) override;  // [host]
    void EndEditing(int index) override;    // [host]

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    /// What the audio thread works from; a pure function of the parameter values.
    struct Settings {
        std::array<float, kMaxChannelCount> gainDb{};
        std::array<float, kMaxChannelCount> gain{};  // linear
    };
    Settings DeriveSettings() const;
    void SetupParameterInfos();
    WStr GainName(std::size_t channel) const;
    bool IsPresentGain(int index) const;
    void StartRamp();
    float CurrentGain(std::size_t channel) const;
    void ProcessPiece(const float* const* in, float* const* out, int frames);

    std::size_t channelCount_;
    std::array<bool, kParameterCount> isEditing_{};
    int rampFrames_ = 1;    // of the next ramp; follows the sample rate
    int rampLength_ = 0;    // frames of the present ramp
    int rampPosition_ = 0;  // frames of it done
    Settings target_;
    std::array<float, kMaxChannelCount> rampStart_{};  // linear
    std::array<float, kMaxChannelCount> rampStep_{};   // linear, per frame
};

}  // namespace zuc::components
