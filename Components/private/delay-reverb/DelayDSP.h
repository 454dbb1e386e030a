#pragma once

#include <cstddef>

#include "kraaudiodsp/DelayLine.h"
#include "kraaudiodsp/SettingsFade.h"

namespace zuc::components {

/// The two taps of Delay for each channel. Channel 1 has settings of its own, all others share one.
class DelayDSP {
public:
    struct Tap {
        int delayFrames = 0;  // behind the dry tap; negative is before it
        float wet = 0.0f;     // factor of the delayed sound
        float dry = 0.0f;     // factor of the sound that is only late
        bool operator==(const Tap&) const = default;
    };
    struct Settings {
        Tap common;
        Tap second;  // of channel 1
        bool operator==(const Settings&) const = default;
    };

    /// Delays reach up to `dryFrames` either way. [host]
    void Prepare(std::size_t channels, int dryFrames, int fadeFrames, int maxRunFrames);
    /// Silence everywhere; settings stay, a running fade ends. [audio]
    void Reset();
    void StartWith(const Settings& settings) { fade_.Reset(settings); }  // without a fade [audio]
    void FadeTo(const Settings& settings) { fade_.Request(settings); }   // [audio]
    /// At most maxRunFrames frames; `in[c]` and `out[c]` may be the same buffer. [audio]
    void Process(const float* const* in, float* const* out, int frames);

private:
    static const Tap& TapOf(const Settings& settings, std::size_t channel) {
        return channel == 1 ? settings.second : settings.common;
    }
    int LimitRun(int frames) const;
    void ProcessChannel(std::size_t channel, const float* in, float* out, int frames);

    std::size_t channelCount_ = 0;
    int dryFrames_ = 0;
    dsp::DelayLine line_;
    dsp::SettingsFade<Settings> fade_;
};

}  // namespace zuc::components
