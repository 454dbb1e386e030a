#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/DryDelay.h"
#include "host/PluginInfo.h"

namespace zuc::host {

/// One instance of a plugin, whatever the plugin format: takes values in units, blocks of any length
/// and buffers in any arrangement, and drives an effect with them.
///
/// A format's shell sets the switches and controls that its host changed, then calls Process, once per
/// block. Nothing on the audio thread allocates, locks or waits: the effect gets pieces of at most
/// kPieceFrames, for which no effect waits for another thread. Instances are independent of each other;
/// the library is initialized as long as there is one.
///
/// A plugin that is switched off puts out its input, late by the latency; switching fades over 10 ms and
/// the effect runs on unheard. Switching off is heard when the sound of that moment comes out, a latency
/// later, so that a plugin that is on keeps no copy of its input. An effect with a side chain listens to it when it is both used and
/// connected, else to its main input; a change between the two starts the effect anew, from silence.
class PluginProcessor {
public:
    static constexpr int kPieceFrames = 1024;
    static constexpr std::size_t kMaxChannels = 6;

    /// Throws Error when the effect cannot be made. [host]
    PluginProcessor(PluginInfo info, float rateHz);
    ~PluginProcessor();
    PluginProcessor(const PluginProcessor&) = delete;
    PluginProcessor& operator=(const PluginProcessor&) = delete;

    const PluginInfo& GetInfo() const { return info_; }

    /// Gets ready to process; the first block begins anew, with the controls as they stand then. [host]
    void Start();
    void Stop();  // after the last block [host]

    void SetEnabled(bool enabled) { isEnabled_ = enabled; }  // [audio]
    /// Before the controls of a block. [audio]
    void SetSideChainUsed(bool used);
    /// Control `index` of the info, in its own unit; values beyond its range count as the range's end,
    /// values that are not finite as no change. [audio]
    void SetControl(std::size_t index, float value);
    /// All controls at once, `*values[i]`; asks no more than one comparison of each that stays. [audio]
    void SetControls(const float* const* values);
    /// Latency with the present controls, in frames. [audio]
    int GetLatencyFrames();

    /// `in` and `out` have a buffer for each channel, `side` one for each side channel, or is null.
    /// Any output may be the same buffer as any input. 0 frames are fine. [audio]
    void Process(const float* const* in, const float* const* side, float* const* out, int frames);

    /// The settings that are no controls, as text; the effect's settings as they were loaded. [host]
    const std::string& GetSettings() const { return settings_; }
    /// Takes them up again; the controls stay as they are. False, and nothing changed, for what is no
    /// settings of this effect. Not while processing. [host]
    bool LoadSettings(std::string_view settings);

private:
    /// The effect in one bus configuration.
    struct Engine {
        AudioFilterPtr filter;
        std::vector<kraaudiofilterhost::AudioFilterParameterInfoPtr> controlInfos;
    };
    using Inputs = std::array<const float*, 2 * kMaxChannels>;
    using Outputs = std::array<float*, kMaxChannels>;

    Engine MakeEngine(std::size_t sideChannels, float rateHz) const;
    int FindLargestLatency(float rateHz) const;
    void ForgetControls();
    bool CrossesBuffers(const Inputs& in, const float* const* out) const;
    void ProcessPiece(Inputs in, const Outputs& out, int frames, bool crosses);
    void MixDry(const Outputs& out, int frames);

    PluginInfo info_;
    std::array<Engine, 2> engines_;  // without and with the side chain; the second may be empty
    std::size_t engine_ = 0;         // the one that is heard
    std::vector<float> controls_;    // as last set; not a number: to be set anew
    std::string settings_;
    bool isFresh_ = true;      // the effect resumes before its next frame
    bool hasStarted_ = false;  // a frame was processed since Start

    int latencyFrames_ = 0;
    bool isLatencyStale_ = true;

    bool isEnabled_ = true;
    float wet_ = 1.0f;      // linear; 0 is the input alone
    float wetStep_ = 1.0f;  // per frame of a fade
    DryDelay dry_;
    int dryFrames_ = 0;  // of input without a gap that it has seen, as far as they count
    std::vector<float>
        scratch_;  // a piece for each input channel, or one of a channel's dry signal
};

}  // namespace zuc::host
