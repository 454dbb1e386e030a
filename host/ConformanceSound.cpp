#include "host/ConformanceRun.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

namespace zuc::host::conformance {

void CheckSound(Run& run) {
    for (const std::size_t channels : {1u, 2u, 6u, 8u, 32u})
        for (const float rateHz : {8000.0f, 11025.0f, 44100.0f, 48000.0f, 96000.0f, 384000.0f}) {
            Rig rig = run.MakeRig({rateHz, channels, 512});
            // Long enough to see past any latency.
            const auto frames =
                kShortFrames + static_cast<std::size_t>(rig.Filter().GetInitialDelay());
            const Signal out = rig.Render(Noise(run, channels, frames), 512);
            const auto where = fmt::format("{} channels at {} Hz", channels, rateHz);
            run.Expect(out.size() == channels, where + ": the buses have another width");
            run.Expect(IsFinite(out), where + ": output that is not finite");
            for (std::size_t c = 0; c < out.size(); ++c)
                run.Expect(GetPeak({out[c]}) > 1e-4f,
                           fmt::format("{}: channel {} is silent", where, c));
        }
}

namespace {

/// Renders noise with one change of all settings on the way.
Signal RenderWithChange(const Run& run, const std::function<int()>& nextBlockFrames, bool inPlace) {
    Rig rig = run.MakeRig();
    Signal first = rig.Render(Noise(run, 2, kShortFrames), nextBlockFrames, inPlace);
    rig.Randomize(run.Options().seed + 1);
    const Signal second = rig.Render(Noise(run, 2, kShortFrames), nextBlockFrames, inPlace);
    for (std::size_t c = 0; c < first.size(); ++c)
        first[c].insert(first[c].end(), second[c].begin(), second[c].end());
    return first;
}

}  // namespace

void CheckBlocks(Run& run) {
    const auto whole = [] { return static_cast<int>(kShortFrames); };
    const Signal expected = RenderWithChange(run, whole, false);
    for (const bool inPlace : {false, true}) {
        const char* place = inPlace ? " in place" : "";
        for (const int blockFrames : {1, 7, 64, 480, 2047, 2048, 4096, 8192})
            run.ExpectSame(RenderWithChange(
                               run, [blockFrames] { return blockFrames; }, inPlace),
                           expected, fmt::format("blocks of {}{}", blockFrames, place));
        std::mt19937_64 random(run.Options().seed);
        const auto anyLength = [&random] { return 1 + static_cast<int>(random() % 3000); };
        run.ExpectSame(RenderWithChange(run, anyLength, inPlace), expected,
                       fmt::format("blocks of 1 to 3000{}", place));
    }
}

void CheckResume(Run& run) {
    Rig used = run.MakeRig();
    used.Randomize(run.Options().seed);
    used.Render(MakeNoise(2, kShortFrames, run.Options().seed + 9), 480);
    used.Filter().Suspend();
    used.Resume();
    Rig fresh = run.MakeRig();
    fresh.Randomize(run.Options().seed);
    fresh.Resume();
    const Signal noise = Noise(run, 2, kShortFrames);
    run.ExpectSame(used.Render(noise, 480), fresh.Render(noise, 480), "after Resume");
}

namespace {

/// True when the effect's response to an impulse starts, or has its largest value, at `frame`.
bool RespondsAt(const std::vector<float>& response, std::size_t frame) {
    const float peak = GetPeak({response});
    const auto isAudible = [peak](float x) { return std::fabs(x) > 0.01f * peak; };
    const auto first = std::find_if(response.begin(), response.end(), isAudible);
    const auto largest = std::max_element(response.begin(), response.end(), [](float a, float b) {
        return std::fabs(a) < std::fabs(b);
    });
    const auto expected = response.begin() + static_cast<std::ptrdiff_t>(frame);
    return first == expected || largest == expected;
}

}  // namespace

void CheckLatency(Run& run) {
    for (const float rateHz : {8000.0f, 44100.0f, 48000.0f, 96000.0f}) {
        Rig rig = run.MakeRig({rateHz, 2, 512});
        const int latency = rig.Filter().GetInitialDelay();
        run.Expect(latency >= 0, fmt::format("a latency of {} frames", latency));
        if (latency < 0) continue;
        const auto frame = static_cast<std::size_t>(latency);
        const Signal response = rig.Render(MakeImpulse(2, frame + 4096), 512);
        for (std::size_t c = 0; c < response.size(); ++c)
            run.Expect(
                RespondsAt(response[c], frame),
                fmt::format("{} Hz, channel {}: no response at the reported latency of {} frames",
                            rateHz, c, latency));
    }
}

void CheckTail(Run& run) {
    Rig rig = run.MakeRig();
    const auto latency = static_cast<std::size_t>(rig.Filter().GetInitialDelay());
    const auto tail = static_cast<std::size_t>(std::max(0, rig.Filter().GetTail()));
    rig.Render(Noise(run, 2, kShortFrames), 512);
    const Signal rest = rig.Render(MakeSilence(2, latency + tail + 4096), 512);
    const float peak = GetPeak(rest, latency + tail);
    run.Expect(peak < kInaudible,
               fmt::format("{:.1f} dB are left after the reported tail of {} frames",
                           20.0f * std::log10(peak), tail));
}

namespace {

/// Settings to look from that no preset has: many conditions can hold at once only there.
constexpr int kRandomStarts = 500;

/// Whether one parameter changes the output. Start -1 is a fresh effect, then come its presets, then
/// settings drawn at random.
bool MovesOutput(const Run& run, int index, int start) {
    const auto render = [&](const float* normalized) {
        Rig rig = run.MakeRig();
        if (start >= rig.Filter().GetNumFactoryPresets())
            rig.Randomize(run.Options().seed + static_cast<std::uint64_t>(start));
        else if (start >= 0)
            rig.Filter().SetFactoryPreset(start);
        if (normalized) rig.Filter().SetParameterAutomated(index, *normalized);
        rig.Resume();
        const auto frames = kShortFrames + static_cast<std::size_t>(rig.Filter().GetInitialDelay());
        return rig.Render(Noise(run, 2, frames), 512);
    };
    const Signal still = render(nullptr);
    for (const float normalized : {0.0f, 1.0f, 0.5f, 0.2f, 0.8f})
        if (!DescribeDifference(render(&normalized), still).empty()) return true;
    return false;
}

}  // namespace

void CheckParametersMatter(Run& run) {
    Rig rig = run.MakeRig();
    for (const int index : rig.GetSoundParameters()) {
        const auto info = rig.Filter().GetParameterInfo(index);
        bool moves = false;
        const int starts = rig.Filter().GetNumFactoryPresets() + kRandomStarts;
        for (int start = -1; start < starts && !moves; ++start)
            moves = MovesOutput(run, index, start);
        run.Expect(moves, fmt::format("parameter {} ({}) never changes the output", index,
                                      kracore::utility::ToUtf8(info->GetName())));
    }
}

void CheckBadSamples(Run& run) {
    Rig rig = run.MakeRig();
    Signal noise = Noise(run, 2, kShortFrames);
    const std::array bad{
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::signaling_NaN()};
    for (std::size_t k = 0; k < bad.size(); ++k) noise[k % 2][100 + 37 * k] = bad[k];
    run.Expect(IsFinite(rig.Render(noise, 480)), "output that is not finite after bad input");
    const auto expected = bad.size() * rig.GetInputChannels() / 2;
    run.Expect(rig.Filter().GetNonFiniteSampleCount() == expected,
               fmt::format("{} bad samples were counted instead of {}",
                           rig.Filter().GetNonFiniteSampleCount(), expected));
    const auto frames = kShortFrames + static_cast<std::size_t>(rig.Filter().GetInitialDelay());
    const Signal after = rig.Render(Noise(run, 2, frames), 480);
    run.Expect(IsFinite(after) && GetPeak(after) > 1e-4f, "bad input poisons what follows");
}

/// Sound so faint that what an effect remembers of it decays through the denormals, then silence. The
/// input itself holds none: an effect may pass its input on unchanged.
void CheckDenormals(Run& run) {
    Rig rig = run.MakeRig();
    Signal faint = Noise(run, 2, kShortFrames);
    for (auto& channel : faint)
        for (float& sample : channel) {
            sample *= 1e-34f;
            if (std::fpclassify(sample) == FP_SUBNORMAL) sample = 0.0f;
        }
    Signal out = rig.Render(faint, 512);
    for (const auto& channel : rig.Render(MakeSilence(2, kShortFrames), 512))
        out.push_back(channel);
    for (const auto& channel : out)
        run.Expect(std::none_of(channel.begin(), channel.end(),
                                [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; }),
                   "denormal output");
    volatile float smallest = std::numeric_limits<float>::min();
    run.Expect(smallest * 0.5f != 0.0f, "the caller's floating-point state is not restored");
}

namespace {

float GetLargestStep(const Signal& signal, std::size_t firstFrame) {
    float largest = 0.0f;
    for (const auto& channel : signal)
        for (std::size_t i = firstFrame + 1; i < channel.size(); ++i)
            largest = std::max(largest, std::fabs(channel[i] - channel[i - 1]));
    return largest;
}

/// One parameter swings ten times a second, set anew every 64 frames.
Signal RenderSwinging(const Run& run, int index, const Signal& input) {
    constexpr std::size_t kBlockFrames = 64;
    Rig rig = run.MakeRig();
    Signal all = MakeSilence(2, 0);
    for (std::size_t done = 0; done + kBlockFrames <= input[0].size(); done += kBlockFrames) {
        const double phase = 10.0 * static_cast<double>(done) / 48000.0;
        const auto swing = static_cast<float>(2.0 * std::fabs(phase - std::floor(phase + 0.5)));
        rig.Filter().SetParameterAutomated(index, swing);
        Signal block(2);
        for (std::size_t c = 0; c < 2; ++c)
            block[c].assign(input[c].begin() + static_cast<std::ptrdiff_t>(done),
                            input[c].begin() + static_cast<std::ptrdiff_t>(done + kBlockFrames));
        const Signal out = rig.Render(block, static_cast<int>(kBlockFrames));
        for (std::size_t c = 0; c < 2; ++c)
            all[c].insert(all[c].end(), out[c].begin(), out[c].end());
    }
    return all;
}

}  // namespace

/// A 100 Hz sine while one parameter moves: no larger steps than those that the settings on its way
/// make when they stand still. Half as much again allows for two settings that add up in a crossfade.
void CheckClicks(Run& run) {
    Rig model = run.MakeRig();
    const auto settled = 4800 + static_cast<std::size_t>(model.Filter().GetInitialDelay());
    const Signal sine = MakeSine(2, settled + 19200, 100.0, 48000.0);
    for (const int index : model.GetSoundParameters()) {
        if (!model.Filter().GetParameterInfo(index)->CanBeAutomated()) continue;
        float standing = 0.0f;
        for (const float normalized : {0.0f, 0.25f, 0.5f, 0.75f, 1.0f}) {
            Rig still = run.MakeRig();
            still.Filter().SetParameterAutomated(index, normalized);
            still.Resume();
            standing = std::max(standing, GetLargestStep(still.Render(sine, 512), settled));
        }
        const float step = GetLargestStep(RenderSwinging(run, index, sine), settled);
        run.Expect(step <= 1.5f * standing + 0.01f,
                   fmt::format("moving parameter {} makes a step of {}, standing it makes {}",
                               index, step, standing));
    }
}

}  // namespace zuc::host::conformance
