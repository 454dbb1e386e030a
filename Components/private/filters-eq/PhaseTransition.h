#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "kraaudiodsp/LinearPhaseDesign.h"
#include "kraaudiodsp/Parametric.h"

namespace zuc::components {

/// Takes the channels of a Parametric Equalizer from one set of settings to the next, at frames that
/// follow from when the settings came and not from the blocks.
///
/// Within minimum phase the filters ramp. A new response of linear phase is designed in small steps while
/// the old one sounds, then fades in. From one phase to the other, what comes in first runs unheard for
/// as long as it takes to be settled. Settings that come during a transition wait for its end, the last
/// ones win.
class PhaseTransition {
public:
    struct Settings {
        dsp::ParametricCurve::Bands bands;
        double gain = 1.0;
        bool isLinear = false;
        bool operator==(const Settings&) const = default;
    };
    using Channels = std::span<dsp::Parametric>;

    void Prepare(double rateHz);  // [host]
    /// In force at once; the channels have just been reset. [audio]
    void Start(const Settings& settings, Channels channels);
    /// Called before each run of frames: does what is due and returns how many frames, at most `frames`,
    /// may be processed before the next call. [audio]
    int Advance(const Settings& wanted, Channels channels, int frames);

private:
    enum class Stage { kRest, kLead, kFade };

    void Begin(const Settings& wanted, Channels channels);
    void DesignFor(int frames);
    dsp::ParametricCurve MakeCurve(const Settings& settings) const;
    dsp::Parametric::Path MakePath(const Settings& settings);

    double rateHz_ = 1.0;
    Settings inForce_;
    Settings target_;
    Stage stage_ = Stage::kRest;
    int stageLeft_ = 0;  // frames
    int designFrames_ = 1;
    int sinceBegin_ = 0;  // frames
    int stepsDone_ = 0;   // of the design
    dsp::LinearPhaseDesign design_;
    std::array<dsp::FirSpectra, 2> responses_;
    std::size_t heard_ = 0;       // place of the response that sounds, if one does
    dsp::Parametric::Path path_;  // to which the transition leads
};

}  // namespace zuc::components
