#pragma once

#include <string>
#include <vector>

#include "host/AudioReader.h"
#include "host/Chain.h"
#include "host/EffectCatalogue.h"
#include "host/Figure.h"
#include "host/TimeRange.h"
#include "host/UserPresets.h"

namespace zuc::host {

/// What a chain does to the level of a recording, in steps of 10 ms. Latency is taken off.
struct GainTrace {
    struct Step {
        float inputLo = 0.0f;  // least and largest sample of any channel
        float inputHi = 0.0f;
        float outputLo = 0.0f;
        float outputHi = 0.0f;
        double inputPower = 0.0;  // mean over frames and channels
        double outputPower = 0.0;
        double gainLoDb = 0.0;  // not a number where the input is too quiet to tell
        double gainHiDb = 0.0;
    };
    double stepSeconds = 0.01;
    double beginSeconds = 0.0;  // of the file
    std::vector<Step> steps;
    /// The gain is what the last effect itself says, make-up and output gain excluded; otherwise it is
    /// the ratio of output and input power.
    bool isGainExact = false;
    /// What a meter of an effect shows, in dB.
    struct Meter {
        std::string name;
        std::vector<double> valuesDb;  // one per step; not a number where it has shown nothing yet
    };
    std::vector<Meter> meters;  // in the order of the chain
};

/// Runs `range` of the file through the chain. `sideChain` may be null. Throws Error. [worker]
GainTrace MeasureGain(AudioReader& reader,
                      const TimeRange& range,
                      const Chain& chain,
                      const EffectCatalogue& catalogue,
                      const UserPresets& presets,
                      AudioReader* sideChain);

/// Waveform, levels and gain over time, one panel each; meters stand with the gain. [host]
Figure PlotGain(const GainTrace& trace, const std::string& title);

}  // namespace zuc::host
