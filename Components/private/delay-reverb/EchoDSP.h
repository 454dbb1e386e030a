#pragma once

#include <cstddef>
#include <vector>

#include "kraaudiodsp/DelayLine.h"
#include "kraaudiodsp/OctaveEqualizer.h"
#include "kraaudiodsp/SettingsFade.h"

namespace zuc::components {

/// The recirculating delay of Echo. Channel 1 has a tap of its own, all others share one.
class EchoDSP {
public:
    /// What a channel does; its delay is read before the line is written, so that 0 frames is the whole
    /// line.
    struct Tap {
        int delayFrames = 0;
        float feedback = 0.0f;  // factor of what comes back
        float level = 0.0f;     // factor of the input on its way into the line
        bool operator==(const Tap&) const = default;
    };
    struct Settings {
        Tap common;
        Tap second;           // of channel 1
        bool bounce = false;  // channels 0 and 1 write each other's line
        bool operator==(const Settings&) const = default;
    };

    /// [host]
    void Prepare(std::size_t channels, int lineFrames, int fadeFrames, int maxRunFrames);
    /// Silence everywhere; settings stay, a running fade ends. [audio]
    void Reset();
    void StartWith(const Settings& settings) { fade_.Reset(settings); }  // without a fade [audio]
    void FadeTo(const Settings& settings) { fade_.Request(settings); }   // [audio]
    /// At once. [audio]
    void SetBandGains(const dsp::OctaveEqualizer::BandGains& bands) { equalizer_.SetGains(bands); }
    /// At most maxRunFrames frames; `in[c]` and `out[c]` may be the same buffer. [audio]
    void Process(const float* const* in, float* const* out, int frames);

    /// How far back a tap really reads. [any]
    int ReadFrames(const Tap& tap) const;

private:
    static const Tap& TapOf(const Settings& settings, std::size_t channel) {
        return channel == 1 ? settings.second : settings.common;
    }
    int LimitRun(int frames) const;
    void ReadTaps(int frames);
    void Write(const float* const* in, float* const* out, int done, int frames);

    std::size_t channelCount_ = 0;
    dsp::DelayLine line_;
    dsp::OctaveEqualizer equalizer_;
    dsp::SettingsFade<Settings> fade_;
    std::vector<float> echoes_;  // channels x longest run
    std::vector<float*> echo_;   // one for each channel
};

}  // namespace zuc::components
