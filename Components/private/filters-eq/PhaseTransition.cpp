#include "Components/private/filters-eq/PhaseTransition.h"

#include <algorithm>

namespace zuc::components {
namespace {

using dsp::LinearPhaseDesign;

bool IsFlat(const PhaseTransition::Settings& settings, double rateHz) {
    return std::all_of(settings.bands.begin(), settings.bands.end(), [rateHz](const auto& band) {
        return dsp::MakeAnalog(band, rateHz).count == 0;
    });
}

}  // namespace

void PhaseTransition::Prepare(double rateHz) {
    rateHz_ = rateHz;
    design_.Prepare(rateHz);
    for (dsp::FirSpectra& response : responses_)
        response.Prepare(LinearPhaseDesign::GetPartFrames(rateHz), LinearPhaseDesign::kPartCount);
    // 3/16 of the taps: 64 frames a step at 48 kHz.
    designFrames_ = static_cast<int>(LinearPhaseDesign::GetTaps(rateHz) / 16 * 3);
    stage_ = Stage::kRest;
}

dsp::ParametricCurve PhaseTransition::MakeCurve(const Settings& settings) const {
    return {settings.bands, settings.gain, rateHz_};
}

/// The path of some settings; begins to design its response in the place that is free.
dsp::Parametric::Path PhaseTransition::MakePath(const Settings& settings) {
    dsp::Parametric::Path path;
    path.isLinear = settings.isLinear;
    path.gain = static_cast<float>(settings.gain);
    stepsDone_ = LinearPhaseDesign::kStepCount;
    if (!path.isLinear || IsFlat(settings, rateHz_)) return path;
    design_.Start(settings.bands, settings.gain, responses_[1 - heard_]);
    stepsDone_ = 0;
    path.response = &responses_[1 - heard_];
    return path;
}

void PhaseTransition::DesignFor(int frames) {
    const int due = std::min<int>(LinearPhaseDesign::kStepCount,
                                  1 + frames * LinearPhaseDesign::kStepCount / designFrames_);
    for (; stepsDone_ < due; ++stepsDone_) design_.Step();
}

void PhaseTransition::Start(const Settings& settings, Channels channels) {
    stage_ = Stage::kRest;
    inForce_ = settings;
    const dsp::Parametric::Path path = MakePath(settings);
    DesignFor(designFrames_);
    heard_ = 1 - heard_;
    const dsp::ParametricCurve curve = MakeCurve(settings);
    for (dsp::Parametric& channel : channels) {
        channel.Start(path);
        channel.SetCurve(curve, true);
    }
}

void PhaseTransition::Begin(const Settings& wanted, Channels channels) {
    const bool wasLinear = inForce_.isLinear;
    if (!wanted.isLinear) {
        const dsp::ParametricCurve curve = MakeCurve(wanted);
        for (dsp::Parametric& channel : channels) {
            channel.Feed({});
            channel.SetCurve(curve, wasLinear);
        }
    }
    if (!wanted.isLinear && !wasLinear) {
        inForce_ = wanted;
        return;
    }
    target_ = wanted;
    path_ = MakePath(wanted);
    for (dsp::Parametric& channel : channels) channel.Feed(path_);
    stage_ = Stage::kLead;
    stageLeft_ =
        wanted.isLinear == wasLinear ? designFrames_ : dsp::Parametric::GetSettlingFrames(rateHz_);
    sinceBegin_ = 0;
}

int PhaseTransition::Advance(const Settings& wanted, Channels channels, int frames) {
    if (stage_ == Stage::kFade && stageLeft_ == 0) {
        inForce_ = target_;
        heard_ = 1 - heard_;
        stage_ = Stage::kRest;
    }
    if (stage_ == Stage::kRest && !(wanted == inForce_)) Begin(wanted, channels);
    if (stage_ == Stage::kRest) return frames;
    if (stage_ == Stage::kLead && stageLeft_ == 0) {
        for (dsp::Parametric& channel : channels) channel.FadeTo(path_);
        stage_ = Stage::kFade;
        stageLeft_ = dsp::Parametric::GetFadeFrames(rateHz_);
    }
    const int run = std::min(frames, stageLeft_);
    sinceBegin_ += run;
    if (stage_ == Stage::kLead) DesignFor(sinceBegin_);
    stageLeft_ -= run;
    return run;
}

}  // namespace zuc::components
