#include "Components/private/delay-reverb/ChorusDSP.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kraaudiodsp/Units.h"

namespace zuc::components {
namespace {

constexpr double kGlideMs = 50.0;
constexpr double kPartSeconds = 1.0;
constexpr std::uint64_t kFirstSeed = 0x5eed;
// Voices start apart from each other: multiples of the golden section spread evenly for any count.
constexpr double kPhaseApart = 0.6180339887498949;

template <std::size_t... kIndex>
std::array<dsp::Drift, sizeof...(kIndex)> MakeDrifts(std::index_sequence<kIndex...>) {
    return {dsp::Drift(kFirstSeed + kIndex)...};
}

float Between(float a, float b, float weight) { return a + (b - a) * weight; }

}  // namespace

// ---- The random part ----

ChorusDrift::ChorusDrift() : drifts_(MakeDrifts(std::make_index_sequence<kVoiceCount>())) {}

void ChorusDrift::Prepare(double pointsPerSecond) {
    secondsPerPoint_ = 1.0 / pointsPerSecond;
    partPoints_ = static_cast<std::int64_t>(std::ceil(kPartSeconds * pointsPerSecond));
    for (Half& half : halves_) {
        half.state.store(kFree);
        half.part = -1;
        half.values.assign(static_cast<std::size_t>(partPoints_) * kVoiceCount, 0.0f);
    }
}

float ChorusDrift::Make(std::size_t voice, std::int64_t point) const {
    return drifts_[voice].At(static_cast<double>(point) * secondsPerPoint_);
}

std::int64_t ChorusDrift::PartOf(std::int64_t point) const {
    return std::max<std::int64_t>(point, 0) / partPoints_;
}

float ChorusDrift::Read(std::size_t voice, std::int64_t point) const {
    const std::int64_t part = PartOf(point);
    const Half& half = halves_[static_cast<std::size_t>(part % 2)];
    if (point < 0 || half.state.load(std::memory_order_acquire) != kReady || half.part != part)
        return Make(voice, point);
    return half.values[static_cast<std::size_t>(point % partPoints_) * kVoiceCount + voice];
}

bool ChorusDrift::RequestAfter(std::int64_t point) {
    const std::int64_t part = PartOf(point) + 1;
    Half& half = halves_[static_cast<std::size_t>(part % 2)];
    if (half.state.load(std::memory_order_acquire) == kRequested || half.part == part) return false;
    half.part = part;
    half.state.store(kRequested, std::memory_order_release);
    return true;
}

bool ChorusDrift::IsRequested() const {
    return std::any_of(halves_.begin(), halves_.end(), [](const Half& half) {
        return half.state.load(std::memory_order_acquire) == kRequested;
    });
}

void ChorusDrift::Fill() {
    for (Half& half : halves_) {
        if (half.state.load(std::memory_order_acquire) != kRequested) continue;
        for (std::int64_t k = 0; k < partPoints_; ++k)
            for (std::size_t v = 0; v < kVoiceCount; ++v)
                half.values[static_cast<std::size_t>(k) * kVoiceCount + v] =
                    Make(v, half.part * partPoints_ + k);
        half.state.store(kReady, std::memory_order_release);
    }
}

// ---- The voices ----

void ChorusDSP::Prepare(std::size_t channels, double rateHz, int maxDelayFrames, int maxRunFrames) {
    channelCount_ = channels;
    line_.Prepare(channels, maxDelayFrames + kLatencyFrames, maxRunFrames);
    dryLines_.resize(channels);
    for (dsp::SlidingBuffer& line : dryLines_)
        line.Prepare(static_cast<std::size_t>(kLatencyFrames),
                     static_cast<std::size_t>(maxRunFrames));
    dryPlaces_.assign(channels, nullptr);
    filters_.assign(channels, {});
    for (auto& wet : wet_) wet.assign(static_cast<std::size_t>(kControlFrames), 0.0f);
    glidePoints_ = std::max(1, dsp::MsToFrames(kGlideMs, rateHz / kControlFrames));
    drift_.Prepare(std::max(1.0, rateHz) / kControlFrames);
    driftRequested_ = false;
}

void ChorusDSP::Reset(const Settings& settings, const Rates& rates) {
    line_.Reset();
    for (dsp::SlidingBuffer& line : dryLines_) line.Reset();
    std::fill(filters_.begin(), filters_.end(), Filter{});
    from_ = target_ = newest_ = settings;
    rates_ = rates;
    glideLeft_ = 0;
    for (std::size_t v = 0; v < kVoiceCount; ++v) {
        lfos_[v].SetPhase(kPhaseApart * static_cast<double>(v));
        gains_[v] = settings.voices[v].gain;
    }
    mix_ = GetMix(settings);
    point_ = -2;
    for (int k = 0; k < 3; ++k) AddControlPoint();  // before, at and after the first frame
    segmentLeft_ = 0;
    // A request from before may have been dropped with the effect's place in the queue.
    driftRequested_ = driftRequested_ || drift_.IsRequested();
}

void ChorusDSP::GlideTo(const Settings& settings, const Rates& rates) {
    from_ = newest_;
    target_ = settings;
    rates_ = rates;
    glideLeft_ = glidePoints_;
}

bool ChorusDSP::TakeDriftRequest() { return std::exchange(driftRequested_, false); }

ChorusDSP::Settings ChorusDSP::GetGliding() const {
    if (glideLeft_ == 0) return target_;
    const float weight = 1.0f - static_cast<float>(glideLeft_) / static_cast<float>(glidePoints_);
    const auto glide = [weight](float a, float b) { return Between(a, b, weight); };
    Settings now;
    for (std::size_t v = 0; v < kVoiceCount; ++v) {
        const Voice& a = from_.voices[v];
        const Voice& b = target_.voices[v];
        now.voices[v] = {glide(a.delayFrames, b.delayFrames),
                         glide(a.swingFrames, b.swingFrames),
                         glide(a.driftFrames, b.driftFrames),
                         {glide(a.gain[0], b.gain[0]), glide(a.gain[1], b.gain[1])}};
    }
    now.dry = glide(from_.dry, target_.dry);
    now.wet = glide(from_.wet, target_.wet);
    now.feedback = glide(from_.feedback, target_.feedback);
    now.lowCutCoefficient = glide(from_.lowCutCoefficient, target_.lowCutCoefficient);
    now.highCutCoefficient = glide(from_.highCutCoefficient, target_.highCutCoefficient);
    return now;
}

ChorusDSP::Mix ChorusDSP::GetMix(const Settings& settings) const {
    Mix mix{
        settings.dry, settings.wet, settings.lowCutCoefficient, settings.highCutCoefficient, {}};
    for (std::size_t side = 0; side < 2; ++side) {
        float sum = 0.0f;
        for (const Voice& voice : settings.voices) sum += voice.gain[side];
        mix.feedback[side] = sum > 0.0f ? settings.feedback / sum : 0.0f;
    }
    return mix;
}

/// One more point of every voice's delay.
void ChorusDSP::AddControlPoint() {
    ++point_;
    if (glideLeft_ > 0) --glideLeft_;
    newest_ = GetGliding();
    bool drifts = false;
    for (std::size_t v = 0; v < kVoiceCount; ++v) {
        const Voice& voice = newest_.voices[v];
        double delay = kLatencyFrames + voice.delayFrames;
        if (voice.swingFrames > 0.0f)
            delay += voice.swingFrames * lfos_[v].Next(rates_[v]);
        else
            lfos_[v].Skip(rates_[v]);
        if (voice.driftFrames > 0.0f) {
            delay += voice.driftFrames * drift_.Read(v, point_);
            drifts = true;
        }
        auto& points = delays_[v];
        points = {points[1], points[2], points[3], delay};
    }
    if (drifts && drift_.RequestAfter(point_)) driftRequested_ = true;
}

/// Takes up the next control point and sets every tap's way to the one before it: a cubic through both
/// whose slopes are those of their neighbours (Catmull and Rom, 1974).
void ChorusDSP::StartSegment() {
    AddControlPoint();
    segmentLeft_ = kControlFrames;
    tapCount_ = 0;
    double shortest = delays_[0][1];
    for (std::size_t v = 0; v < kVoiceCount; ++v) {
        const std::array<float, 2> gain = gains_[v];
        gains_[v] = newest_.voices[v].gain;
        if (gain == std::array<float, 2>{} && gains_[v] == gain) continue;
        dsp::vector::MovingTap& tap = taps_[tapCount_++];
        for (std::size_t side = 0; side < 2; ++side) {
            tap.gain[side] = gain[side];
            tap.gainStep[side] = (gains_[v][side] - gain[side]) / kControlFrames;
        }
        const auto& p = delays_[v];
        dsp::FractionalDelay::Follow(
            tap,
            {{p[1], 0.5 * (p[2] - p[0]), p[0] - 2.5 * p[1] + 2.0 * p[2] - 0.5 * p[3],
              0.5 * (p[3] - p[0]) + 1.5 * (p[1] - p[2])}},
            kControlFrames);
        // The cubic leaves the range of its points by less than a quarter of it.
        const auto [least, most] = std::minmax({p[0], p[1], p[2], p[3]});
        shortest = std::min(shortest, least - 0.25 * (most - least));
    }
    mixEnd_ = GetMix(newest_);
    const Mix& end = mixEnd_;
    const auto step = [](float from, float to) { return (to - from) / kControlFrames; };
    mixStep_ = {step(mix_.dry, end.dry),
                step(mix_.wet, end.wet),
                step(mix_.lowCut, end.lowCut),
                step(mix_.highCut, end.highCut),
                {step(mix_.feedback[0], end.feedback[0]), step(mix_.feedback[1], end.feedback[1])}};
    const std::array<float, 2> none{};
    hasFeedback_ = mix_.feedback != none || end.feedback != none;
    isSteady_ = !hasFeedback_ && mix_ == end;
    longestRun_ = std::clamp(static_cast<int>(shortest) - kLatencyFrames + 1, 1, kControlFrames);
}

int ChorusDSP::LimitRun(int frames) const {
    const int run = std::min(frames, segmentLeft_);
    return hasFeedback_ ? std::min(run, longestRun_) : run;
}

void ChorusDSP::Process(const float* const* in, float* const* out, int frames) {
    for (int done = 0; done < frames;) {
        if (segmentLeft_ == 0) StartSegment();
        const int run = LimitRun(frames - done);
        line_.Append(run);
        for (std::size_t c = 0; c < channelCount_; ++c) {
            dryPlaces_[c] = dryLines_[c].Append(static_cast<std::size_t>(run));
            std::copy_n(in[c] + done, run, dryPlaces_[c]);
            std::copy_n(in[c] + done, run, line_.Place(c));
        }
        const auto taps = taps_;
        const Mix mix = mix_;
        for (std::size_t c = 0; c < channelCount_; c += 2) {
            taps_ = taps;
            mix_ = mix;
            const bool isAlone = channelCount_ - c == 1;
            isAlone ? ProcessTogether<1>(c, out, done, run) : ProcessTogether<2>(c, out, done, run);
        }
        segmentLeft_ -= run;
        if (segmentLeft_ == 0) mix_ = mixEnd_;  // without what rounding left
        done += run;
    }
}

/// One or two channels from `first` on. Moves taps and mix on.
template <std::size_t kChannels>
void ChorusDSP::ProcessTogether(std::size_t first, float* const* out, int done, int run) {
    std::array<float*, kChannels> wet{};
    std::array<float*, kChannels> place{};
    std::array<const float*, kChannels> dry{};
    std::array<Filter, kChannels> filters;
    for (std::size_t c = 0; c < kChannels; ++c) {
        wet[c] = wet_[c].data();
        place[c] = line_.Place(first + c);
        dry[c] = dryPlaces_[first + c] - kLatencyFrames;
        filters[c] = filters_[first + c];
    }
    line_.Read(first, kChannels, wet.data(), taps_.data(), tapCount_, run);
    Mix mix = mix_;
    const auto filter = [&](std::size_t c, int i) {
        Filter& state = filters[c];
        const double voices = static_cast<double>(wet[c][i]);
        const double low = static_cast<double>(mix.lowCut);
        const double high = static_cast<double>(mix.highCut);
        // A product and a sum from frame to frame, which is what the loop's time hangs on.
        state.low = (1.0 - low) * state.low + low * voices;
        state.high = (1.0 - high) * state.high + high * (voices - state.low);
        out[first + c][done + i] = mix.dry * dry[c][i] + mix.wet * static_cast<float>(state.high);
    };
    if (isSteady_) {
        for (int i = 0; i < run; ++i)
            for (std::size_t c = 0; c < kChannels; ++c) filter(c, i);
    } else {
        for (int i = 0; i < run; ++i) {
            for (std::size_t c = 0; c < kChannels; ++c) {
                place[c][i] += mix.feedback[c] * wet[c][i];
                filter(c, i);
                mix.feedback[c] += mixStep_.feedback[c];
            }
            mix.dry += mixStep_.dry;
            mix.wet += mixStep_.wet;
            mix.lowCut += mixStep_.lowCut;
            mix.highCut += mixStep_.highCut;
        }
    }
    mix_ = mix;
    for (std::size_t c = 0; c < kChannels; ++c) filters_[first + c] = filters[c];
}

}  // namespace zuc::components
