#pragma once

#include <memory>

#include "Components/TableDriven.h"

namespace dsp::intraclip {
class IntraClip;
}

namespace zuc::components {

inline constexpr char16_t kIntraClipComponentComponentID[] = u"zuc.IntraClipComponent";

/// The Speech Volume Leveler: brings the words of loud and quiet talkers to one level and leaves the pauses as
/// low as they are.
///
/// The level is that of the louder syllables of the last half second; it counts where it stands out of the room's
/// noise by "Noise Offset". From it come the gain that brings this talker to the target, by "Leveling Amount" of
/// the way and within +-10 dB (18 with "Boost Low Signals"), a compressor of what the talker departs from the
/// own level beyond "Target Dynamic Range", and with "Noise Gate Active" up to 12 dB less in pauses. The
/// audio waits 200 ms, so that the gain is there before the word. "Compressor Active" catches peaks above the
/// threshold, and a limiter keeps true peaks at -1 dB. kraaudiodsp/IntraClip.h has the formulas.
///
/// Ranges and initial values are the kernel's. The console commands "IntraClip.Setup" and "IntraClip.Debug" change
/// the record that tunes all levelers from their next Resume on; a debug mode puts a control curve into the right
/// channel. "Amplification Meter" shows the gain of the moment.
///
/// Latency: 205 ms, each part to the nearest frame, and 24 frames, or what the record says; tail 0; made stereo,
/// takes 1 to 32 channels, which share one gain. Changes act from the next 5 ms on and move the gain no faster
/// than speech does. `in[c]` and `out[c]` may be the same buffer.
class ZUC_API IntraClipComponent final : public TableDriven<MultiChannelComponentBase> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kTargetVolumeLevelDb,
        kLevelingAmountPercent,
        kCompressorActive,
        kCompressorThresholdDb,
        kNoiseGateActive,
        kNoiseOffsetDb,
        kBoostLowSignals,
        kAmplificationMeterDb,  // meter
        kTargetDynamicRangeDb,
        kParameterCount
    };

    IntraClipComponent();
    ~IntraClipComponent() override;

    void SetSampleRate(float rateHz) override;  // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Resume() override;                                                             // [audio]
    int GetInitialDelay() const override;                                               // [host]

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    void SetupParameterInfos();
    void InitializeKernel();
    void HandOverSettings();

    std::unique_ptr<dsp::intraclip::IntraClip> kernel_;
};

}  // namespace zuc::components
