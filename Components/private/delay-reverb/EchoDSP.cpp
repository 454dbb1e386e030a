#include "Components/private/delay-reverb/EchoDSP.h"

#include <algorithm>

#include "kraaudiodsp/vector/DelayOps.h"
#include "kraaudiodsp/vector/VectorOps.h"

namespace zuc::components {

void EchoDSP::Prepare(std::size_t channels, int lineFrames, int fadeFrames, int maxRunFrames) {
    channelCount_ = channels;
    line_.Prepare(channels, lineFrames);
    equalizer_.Prepare(channels);
    fade_.SetLength(fadeFrames);
    echoes_.assign(channels * static_cast<std::size_t>(maxRunFrames), 0.0f);
    echo_.resize(channels);
    for (std::size_t c = 0; c < channels; ++c)
        echo_[c] = echoes_.data() + c * static_cast<std::size_t>(maxRunFrames);
}

void EchoDSP::Reset() {
    line_.Reset();
    equalizer_.Reset();
    fade_.Reset(fade_.GetTarget());
}

void EchoDSP::Process(const float* const* in, float* const* out, int frames) {
    for (int done = 0; done < frames;) {
        const int run = LimitRun(frames - done);
        ReadTaps(run);
        equalizer_.Process(echo_.data(), run);
        Write(in, out, done, run);
        line_.Advance(run);
        fade_.Advance(run);
        done += run;
    }
}

int EchoDSP::ReadFrames(const Tap& tap) const {
    return tap.delayFrames == 0 ? line_.GetFrames() : tap.delayFrames;
}

/// As long as nothing is read that the run writes, and no place passes the end of the line.
int EchoDSP::LimitRun(int frames) const {
    int run = fade_.LimitRun(frames);
    for (const Settings* settings : {&fade_.GetCurrent(), &fade_.GetTarget()})
        for (const Tap* tap : {&settings->common, &settings->second}) {
            const int delay = ReadFrames(*tap);
            run = line_.LimitRun(std::min(run, delay), delay);
        }
    return run;
}

void EchoDSP::ReadTaps(int frames) {
    const auto count = static_cast<std::size_t>(frames);
    const auto first = static_cast<std::size_t>(fade_.GetPosition());
    for (std::size_t c = 0; c < channelCount_; ++c) {
        const Tap& current = TapOf(fade_.GetCurrent(), c);
        const Tap& target = TapOf(fade_.GetTarget(), c);
        const float* tap = line_.Tap(c, ReadFrames(current));
        if (!fade_.IsRunning()) {
            dsp::vector::Multiply(echo_[c], tap, current.feedback, count);
            continue;
        }
        const dsp::LinearGain out = fade_.Between(current.feedback, 0.0f);
        const dsp::LinearGain in = fade_.Between(0.0f, target.feedback);
        dsp::vector::MultiplyRamp(echo_[c], tap, out.start, out.step, first, count);
        dsp::vector::AddRamped(echo_[c], line_.Tap(c, ReadFrames(target)), in.start, in.step, first,
                               count);
    }
}

void EchoDSP::Write(const float* const* in, float* const* out, int done, int frames) {
    const auto count = static_cast<std::size_t>(frames);
    const auto first = static_cast<std::size_t>(fade_.GetPosition());
    const bool bounces = fade_.GetCurrent().bounce;
    const bool changesBounce = fade_.GetTarget().bounce != bounces;
    for (std::size_t c = 0; c < channelCount_; ++c) {
        const bool crosses = bounces && !changesBounce && c < 2 && channelCount_ > 1;
        const dsp::LinearGain level =
            fade_.Between(TapOf(fade_.GetCurrent(), c).level, TapOf(fade_.GetTarget(), c).level);
        dsp::vector::FeedBack(line_.WritePlace(crosses ? 1 - c : c), out[c] + done, in[c] + done,
                              echo_[c], level.start, level.step, first, count);
    }
    if (!changesBounce || channelCount_ < 2) return;
    const dsp::LinearGain crossing = fade_.Between(bounces ? 1.0f : 0.0f, bounces ? 0.0f : 1.0f);
    dsp::vector::Exchange(line_.WritePlace(0), line_.WritePlace(1), crossing.start, crossing.step,
                          first, count);
}

}  // namespace zuc::components
