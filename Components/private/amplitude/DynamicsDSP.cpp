#include "Components/private/amplitude/DynamicsDSP.h"

#include <algorithm>
#include <cmath>

#include "kraaudiodsp/vector/LevelOps.h"
#include "kraaudiodsp/vector/VectorOps.h"

namespace zuc::components {
namespace {

constexpr double kInitialDetected = 0.5;
constexpr double kInitialLevelDb = -96.0;
constexpr double kInitialGain = 1.0;
constexpr double kRmsSmoothing = 0.92;  // weight of the value before in each frame
constexpr double kPeakSmoothing = 0.05;
constexpr float kRmsDbPerNeper = 4.3429448f;   // 10 / ln 10
constexpr float kPeakDbPerNeper = 8.6858896f;  // 20 / ln 10
constexpr float kRmsFloorDb = -89.08f;
constexpr float kPeakFloorDb = -200.0f;
constexpr double kLargestDetected = 1e30;  // keeps the detector finite whatever comes in

/// One channel's part in a loop that runs several side by side.
struct Lane {
    float* samples;
    double* state;
};

/// Smooths |x| or x^2 in place: y = c y + (1 - c) v.
template <bool kIsPower, std::size_t kLanes>
void Detect(const std::array<Lane, kLanes>& lanes, double smoothing, std::size_t frames) {
    double state[kLanes];
    for (std::size_t k = 0; k < kLanes; ++k) state[k] = *lanes[k].state;
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t k = 0; k < kLanes; ++k) {
            const double x = lanes[k].samples[i];
            const double value = std::min(kLargestDetected, kIsPower ? x * x : std::fabs(x));
            state[k] = smoothing * state[k] + (1.0 - smoothing) * value;
            lanes[k].samples[i] = static_cast<float>(state[k]);
        }
    for (std::size_t k = 0; k < kLanes; ++k) *lanes[k].state = state[k];
}

/// Envelope in place: the state moves towards each value by `rising` of the distance when the value
/// lies above it and by `falling` when below. Both ways are computed; which one counts is the larger
/// when rising is the faster (kRisesFaster), else the smaller. That leaves three operations from one
/// frame's state to the next.
template <bool kRisesFaster, std::size_t kLanes>
void Follow(const std::array<Lane, kLanes>& lanes,
            double rising,
            double falling,
            std::size_t frames) {
    double state[kLanes];
    for (std::size_t k = 0; k < kLanes; ++k) state[k] = *lanes[k].state;
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t k = 0; k < kLanes; ++k) {
            const double value = lanes[k].samples[i];
            const double up = (1.0 - rising) * state[k] + rising * value;
            const double down = (1.0 - falling) * state[k] + falling * value;
            state[k] = kRisesFaster ? std::max(up, down) : std::min(up, down);
            lanes[k].samples[i] = static_cast<float>(state[k]);
        }
    for (std::size_t k = 0; k < kLanes; ++k) *lanes[k].state = state[k];
}

template <std::size_t kLanes>
void FollowEither(const std::array<Lane, kLanes>& lanes,
                  double rising,
                  double falling,
                  std::size_t frames) {
    if (rising >= falling)
        Follow<true>(lanes, rising, falling, frames);
    else
        Follow<false>(lanes, rising, falling, frames);
}

}  // namespace

// ---- Preparation ----

void DynamicsDSP::Prepare(std::size_t mainChannels,
                          std::size_t sideChannels,
                          int maxLatencyFrames,
                          int rampFrames) {
    hasSideChain_ = sideChannels > 0;
    rampFrames_ = std::max(rampFrames, 1);
    detectors_.resize(hasSideChain_ ? sideChannels : mainChannels);
    for (Detector& detector : detectors_) {
        detector.filter.Prepare(kMaxTaps);
        detector.work.assign(kMaxPieceFrames, 0.0f);
    }
    delays_.resize(mainChannels);
    for (dsp::SlidingBuffer& delay : delays_)
        delay.Prepare(static_cast<std::size_t>(maxLatencyFrames), kMaxPieceFrames);
    newest_.assign(mainChannels, nullptr);
    blended_.assign(kMaxPieceFrames, 0.0f);
    Reset(settings_);
}

void DynamicsDSP::Reset(const Settings& settings) {
    settings_ = settings;
    curve_.SetShape(settings.curve);
    table_.Build(curve_);
    TakeFilters(settings);
    for (Detector& detector : detectors_) {
        detector.filter.Reset();
        detector.detected = kInitialDetected;
        detector.levelDb = kInitialLevelDb;
        detector.gain = kInitialGain;
    }
    for (dsp::SlidingBuffer& delay : delays_) delay.Reset();
    StartRamps();
    rampLeft_ = 0;
}

void DynamicsDSP::TakeFilters(const Settings& settings) {
    for (Detector& detector : detectors_) {
        if (&detector != &detectors_.front()) {
            detector.filter.CopyCoeffs(detectors_.front().filter);
            continue;
        }
        const double low = settings.isBandLimited ? settings.bandLow : 0.0;
        const double high = settings.isBandLimited ? settings.bandHigh : 0.5;
        detector.filter.GenerateFIRCoeffs(low, high, settings.taps);
    }
}

void DynamicsDSP::SetSettings(const Settings& settings) {
    const Settings before = settings_;
    if (settings.latencyFrames != before.latencyFrames) {
        Reset(settings);
        return;
    }
    settings_ = settings;
    if (settings.curve != before.curve) {
        curve_.SetShape(settings.curve);
        table_.Build(curve_);
    }
    if (settings.bandLow != before.bandLow || settings.bandHigh != before.bandHigh ||
        settings.isBandLimited != before.isBandLimited || settings.taps != before.taps)
        TakeFilters(settings);
    if (settings.inputGain != before.inputGain || settings.outputGain != before.outputGain ||
        settings.isLinked != before.isLinked)
        StartRamps();
}

// ---- Ramps ----

void DynamicsDSP::StartRamps() {
    const std::array<float, kRampCount> target{settings_.inputGain, settings_.outputGain,
                                               settings_.isLinked ? 1.0f : 0.0f};
    for (const Ramp ramp : {kInputGain, kOutputGain, kLinkWeight}) {
        const float from = RampValue(ramp);
        rampStart_[ramp] = from;
        rampStep_[ramp] = (target[ramp] - from) / static_cast<float>(rampFrames_);
    }
    rampTarget_ = target;
    rampLeft_ = rampFrames_;
}

float DynamicsDSP::RampValue(Ramp ramp) const {
    if (rampLeft_ == 0) return rampTarget_[ramp];
    return rampStart_[ramp] + rampStep_[ramp] * static_cast<float>(rampFrames_ - rampLeft_);
}

DynamicsDSP::RampPlace DynamicsDSP::PlaceOf(Ramp ramp) const {
    if (rampLeft_ == 0) return {rampTarget_[ramp], 0.0f, 0};
    return {rampStart_[ramp], rampStep_[ramp], static_cast<std::size_t>(rampFrames_ - rampLeft_)};
}

// ---- Processing ----

void DynamicsDSP::Process(const float* const* in, float* const* out, int frames) {
    std::array<const float*, 2 * kMaxDetectors> from{};
    std::array<float*, kMaxDetectors> to{};
    const std::size_t inputs = delays_.size() + (hasSideChain_ ? detectors_.size() : 0);
    // A run ends where the ramps do.
    for (int done = 0; done < frames;) {
        const int run = rampLeft_ > 0 ? std::min(frames - done, rampLeft_) : frames - done;
        for (std::size_t c = 0; c < inputs; ++c) from[c] = in[c] + done;
        for (std::size_t c = 0; c < delays_.size(); ++c) to[c] = out[c] + done;
        ProcessRun(from.data(), to.data(), static_cast<std::size_t>(run));
        rampLeft_ = std::max(0, rampLeft_ - run);
        done += run;
    }
}

void DynamicsDSP::ProcessRun(const float* const* in, float* const* out, std::size_t frames) {
    TakeInput(in, frames);
    FollowLevels(frames);
    FollowGains(frames);
    ApplyGains(out, frames);
}

void DynamicsDSP::TakeInput(const float* const* in, std::size_t frames) {
    const RampPlace gain = PlaceOf(kInputGain);
    for (std::size_t c = 0; c < delays_.size(); ++c) {
        float* place = delays_[c].Append(frames);
        dsp::vector::MultiplyRamp(place, in[c], gain.start, gain.step, gain.first, frames);
        newest_[c] = place;
    }
    const float* const* source = hasSideChain_ ? in + delays_.size() : newest_.data();
    for (std::size_t k = 0; k < detectors_.size(); ++k) {
        std::copy_n(source[k], frames, detectors_[k].work.data());
        detectors_[k].filter.Process(detectors_[k].work.data(), static_cast<int>(frames));
    }
}

/// Calls `run` with four detectors at once, then two, then one: each has to wait for its own state
/// from frame to frame, and several side by side fill the time.
template <class Run>
void DynamicsDSP::ForEachGroup(double Detector::*state, const Run& run) {
    const std::size_t count = detectors_.size();
    const auto lane = [&](std::size_t k) {
        return Lane{detectors_[k].work.data(), &(detectors_[k].*state)};
    };
    std::size_t k = 0;
    for (; k + 4 <= count; k += 4) run(std::array{lane(k), lane(k + 1), lane(k + 2), lane(k + 3)});
    for (; k + 2 <= count; k += 2) run(std::array{lane(k), lane(k + 1)});
    for (; k < count; ++k) run(std::array{lane(k)});
}

/// Signal to smoothed level in dB.
void DynamicsDSP::FollowLevels(std::size_t frames) {
    const bool usesRms = settings_.usesRms;
    ForEachGroup(&Detector::detected, [&](const auto& lanes) {
        if (usesRms)
            Detect<true>(lanes, kRmsSmoothing, frames);
        else
            Detect<false>(lanes, kPeakSmoothing, frames);
    });
    for (Detector& detector : detectors_)
        dsp::vector::ToDb(detector.work.data(), detector.work.data(),
                          usesRms ? kRmsDbPerNeper : kPeakDbPerNeper,
                          usesRms ? kRmsFloorDb : kPeakFloorDb, frames);
    if (settings_.isLinked)
        for (std::size_t k = 1; k < detectors_.size(); ++k)
            dsp::vector::Maximum(detectors_[0].work.data(), detectors_[k].work.data(), frames);
    ForEachGroup(&Detector::levelDb, [&](const auto& lanes) {
        FollowEither(lanes, settings_.levelAttack, settings_.levelRelease, frames);
    });
}

/// Smoothed level to smoothed gain; the gain's attack is its fall.
void DynamicsDSP::FollowGains(std::size_t frames) {
    for (Detector& detector : detectors_)
        table_.LookUp(detector.work.data(), detector.work.data(), frames);
    ForEachGroup(&Detector::gain, [&](const auto& lanes) {
        FollowEither(lanes, settings_.gainRelease, settings_.gainAttack, frames);
    });
}

/// The gains of main channel c: its detector's, or on the way to or from linking a blend with those of
/// detector 0, which all channels follow when linked.
const float* DynamicsDSP::GainsOf(std::size_t channel, std::size_t frames) {
    const float* first = detectors_[0].work.data();
    const float* own = detectors_[std::min(channel, detectors_.size() - 1)].work.data();
    const RampPlace link = PlaceOf(kLinkWeight);
    if (link.step == 0.0f) return link.start == 0.0f ? own : first;
    for (std::size_t i = 0; i < frames; ++i) {
        const float weight = link.start + link.step * static_cast<float>(link.first + i);
        blended_[i] = own[i] + weight * (first[i] - own[i]);
    }
    return blended_.data();
}

void DynamicsDSP::ApplyGains(float* const* out, std::size_t frames) {
    const RampPlace gain = PlaceOf(kOutputGain);
    for (std::size_t c = 0; c < delays_.size(); ++c) {
        const float* gains = GainsOf(c, frames);
        if (settings_.envelopeOnly)
            std::copy_n(gains, frames, out[c]);
        else
            dsp::vector::MultiplyGains(out[c], newest_[c] - settings_.latencyFrames, gains,
                                       gain.start, gain.step, gain.first, frames);
    }
}

}  // namespace zuc::components
