#include "kraaudiodsp/HardLimit.h"

#include <algorithm>
#include <cmath>

#include "kraaudiodsp/vector/CurveOps.h"
#include "kraaudiodsp/vector/LevelOps.h"
#include "kraaudiodsp/vector/PeakOps.h"
#include "kraaudiodsp/vector/VectorOps.h"

namespace dsp {
namespace {

constexpr float kDbPerNeper = 8.6858896f;  // of amplitudes

}  // namespace

int HardLimit::GetLatency(const Settings& settings) {
    return settings.lookAheadFrames + (settings.usesTruePeaks ? TruePeak::kLatencyFrames : 0);
}

void HardLimit::Prepare(std::size_t channels,
                        int maxLookAheadFrames,
                        int rampFrames,
                        double rateHz) {
    rampFrames_ = std::max(rampFrames, 1);
    channels_.resize(channels);
    for (Channel& channel : channels_) {
        channel.delay.Prepare(
            static_cast<std::size_t>(maxLookAheadFrames + TruePeak::kLatencyFrames),
            kMaxPieceFrames);
        channel.truePeak.Prepare(kMaxPieceFrames);
        channel.gain.Prepare(maxLookAheadFrames, rateHz);
        channel.attenuation.assign(kMaxPieceFrames, 0.0f);
    }
    loudest_.assign(kMaxPieceFrames, 0.0f);
    gains_.assign(kMaxPieceFrames, 1.0f);
    Reset(settings_);
}

void HardLimit::Reset(const Settings& settings) {
    settings_ = settings;
    for (Channel& channel : channels_) {
        channel.delay.Reset();
        channel.truePeak.Reset();
        channel.gain.Reset(settings.lookAheadFrames);
        channel.gain.SetRelease(settings.releaseFrames, settings.isReleaseAuto);
    }
    isOneGain_ = settings.link == 1.0f;
    rampLeft_ = 0;
    clampAt_ = settings.ceiling;
    clampFramesLeft_ = 0;
    reductionDb_ = 0.0f;
    clampedCount_ = 0;
}

void HardLimit::SetSettings(const Settings& settings) {
    const Settings before = settings_;
    if (settings.lookAheadFrames != before.lookAheadFrames ||
        settings.usesTruePeaks != before.usesTruePeaks) {
        Reset(settings);
        return;
    }
    if (settings.drive != before.drive) {
        rampStart_ = GetDrive();
        rampStep_ = (settings.drive - rampStart_) / static_cast<float>(rampFrames_);
        rampLeft_ = rampFrames_;
    }
    settings_ = settings;
    if (settings.ceiling != before.ceiling) {
        // What is in the delay was held to the old one.
        clampAt_ = std::max(clampAt_, settings.ceiling);
        clampFramesLeft_ = GetLatency();
    }
    if (isOneGain_ && settings.link != 1.0f) {
        for (Channel& channel : channels_) channel.gain = channels_.front().gain;
        isOneGain_ = false;
    }
    for (Channel& channel : channels_)
        channel.gain.SetRelease(settings.releaseFrames, settings.isReleaseAuto);
}

float HardLimit::GetDrive() const {
    return rampLeft_ > 0 ? rampStart_ + rampStep_ * static_cast<float>(rampFrames_ - rampLeft_)
                         : settings_.drive;
}

void HardLimit::Process(const float* const* in, float* const* out, int frames, float* reductionDb) {
    constexpr std::size_t kMostChannels = 32;
    std::array<const float*, kMostChannels> from{};
    std::array<float*, kMostChannels> to{};
    reductionDb_ = 0.0f;
    // A run ends where the ramp does, and where the clamp comes down.
    for (int done = 0; done < frames;) {
        int run = frames - done;
        if (rampLeft_ > 0) run = std::min(run, rampLeft_);
        if (clampFramesLeft_ > 0) run = std::min(run, clampFramesLeft_);
        for (std::size_t c = 0; c < channels_.size(); ++c) {
            from[c] = in[c] + done;
            to[c] = out[c] + done;
        }
        ProcessRun(from.data(), to.data(), static_cast<std::size_t>(run));
        if (reductionDb && !channels_.empty())
            std::copy_n(channels_.front().attenuation.data(), run, reductionDb + done);
        rampLeft_ = std::max(0, rampLeft_ - run);
        clampFramesLeft_ = std::max(0, clampFramesLeft_ - run);
        if (clampFramesLeft_ == 0) clampAt_ = settings_.ceiling;
        done += run;
    }
}

void HardLimit::ProcessRun(const float* const* in, float* const* out, std::size_t frames) {
    TakeInput(in, frames);
    FindNeeds(frames);
    Link(frames);
    Apply(out, frames);
}

void HardLimit::TakeInput(const float* const* in, std::size_t frames) {
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        float* place = channels_[c].delay.Append(frames);
        channels_[c].newest = place;
        if (rampLeft_ > 0)
            vector::MultiplyRamp(place, in[c], rampStart_, rampStep_,
                                 static_cast<std::size_t>(rampFrames_ - rampLeft_), frames);
        else
            vector::Multiply(place, in[c], settings_.drive, frames);
    }
}

/// The attenuation that each frame of each channel needs for itself, in dB.
void HardLimit::FindNeeds(std::size_t frames) {
    const float ceiling = settings_.ceiling;
    for (Channel& channel : channels_) {
        float* needs = channel.attenuation.data();
        if (settings_.usesTruePeaks)
            channel.truePeak.Process(channel.newest, needs, frames, ceiling);
        else
            std::transform(channel.newest, channel.newest + frames, needs,
                           [](float x) { return std::fabs(x); });
        if (vector::PeakOf(needs, frames) <= ceiling) {
            std::fill_n(needs, frames, 0.0f);
            continue;
        }
        // Divided, so that the ceiling itself gives exactly 1 and no attenuation.
        std::transform(needs, needs + frames, needs,
                       [ceiling](float peak) { return peak / ceiling; });
        vector::ToDb(needs, needs, kDbPerNeper, 0.0f, frames);
    }
}

void HardLimit::Link(std::size_t frames) {
    const float link = settings_.link;
    if (link == 0.0f || channels_.size() < 2) return;
    std::copy_n(channels_.front().attenuation.data(), frames, loudest_.data());
    for (Channel& channel : channels_)
        vector::Maximum(loudest_.data(), channel.attenuation.data(), frames);
    for (Channel& channel : channels_) {
        float* needs = channel.attenuation.data();
        for (std::size_t i = 0; i < frames; ++i)
            needs[i] = link == 1.0f ? loudest_[i] : needs[i] + link * (loudest_[i] - needs[i]);
    }
}

void HardLimit::Apply(float* const* out, std::size_t frames) {
    const auto latency = static_cast<std::size_t>(GetLatency());
    bool lowers = false;
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        Channel& channel = channels_[c];
        if (c == 0 || !isOneGain_) {
            float* attenuation = channel.attenuation.data();
            lowers = channel.gain.Process(attenuation, frames);
            if (lowers) {
                const float most = *std::max_element(attenuation, attenuation + frames);
                reductionDb_ = std::max(reductionDb_, most);
                std::transform(attenuation, attenuation + frames, gains_.data(),
                               [](float db) { return -db; });
                vector::FromDb(gains_.data(), gains_.data(), frames);
            } else {
                std::fill_n(gains_.data(), frames, 1.0f);
            }
        }
        clampedCount_ += vector::MultiplyWithin(out[c], channel.newest - latency, gains_.data(),
                                                clampAt_, frames);
    }
}

}  // namespace dsp
