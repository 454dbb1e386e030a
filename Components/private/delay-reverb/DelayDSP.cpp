#include "Components/private/delay-reverb/DelayDSP.h"

#include <algorithm>

#include "kraaudiodsp/vector/DelayOps.h"
#include "kraaudiodsp/vector/VectorOps.h"

namespace zuc::components {

void DelayDSP::Prepare(std::size_t channels, int dryFrames, int fadeFrames, int maxRunFrames) {
    channelCount_ = channels;
    dryFrames_ = dryFrames;
    // The input is written before the taps are read, so the oldest sample must outlive a run.
    line_.Prepare(channels, 2 * dryFrames + maxRunFrames);
    fade_.SetLength(fadeFrames);
}

void DelayDSP::Reset() {
    line_.Reset();
    fade_.Reset(fade_.GetTarget());
}

void DelayDSP::Process(const float* const* in, float* const* out, int frames) {
    for (int done = 0; done < frames;) {
        const int run = LimitRun(frames - done);
        for (std::size_t c = 0; c < channelCount_; ++c)
            ProcessChannel(c, in[c] + done, out[c] + done, run);
        line_.Advance(run);
        fade_.Advance(run);
        done += run;
    }
}

/// As long as no tap passes the end of the line.
int DelayDSP::LimitRun(int frames) const {
    int run = line_.LimitRun(fade_.LimitRun(frames), dryFrames_);
    for (const Settings* settings : {&fade_.GetCurrent(), &fade_.GetTarget()})
        for (const Tap* tap : {&settings->common, &settings->second})
            run = line_.LimitRun(run, dryFrames_ + tap->delayFrames);
    return run;
}

void DelayDSP::ProcessChannel(std::size_t channel, const float* in, float* out, int frames) {
    const auto count = static_cast<std::size_t>(frames);
    const auto first = static_cast<std::size_t>(fade_.GetPosition());
    const Tap& current = TapOf(fade_.GetCurrent(), channel);
    const Tap& target = TapOf(fade_.GetTarget(), channel);
    std::copy_n(in, count, line_.WritePlace(channel));

    const dsp::LinearGain dry = fade_.Between(current.dry, target.dry);
    dsp::vector::MultiplyRamp(out, line_.Tap(channel, dryFrames_), dry.start, dry.step, first,
                              count);
    const auto addTap = [&](const Tap& tap, dsp::LinearGain wet) {
        dsp::vector::AddRamped(out, line_.Tap(channel, dryFrames_ + tap.delayFrames), wet.start,
                               wet.step, first, count);
    };
    if (!fade_.IsRunning()) return addTap(current, {current.wet, 0.0f});
    addTap(current, fade_.Between(current.wet, 0.0f));
    addTap(target, fade_.Between(0.0f, target.wet));
}

}  // namespace zuc::components
