#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "host/ConformanceRun.h"

namespace zuc::host::conformance {
namespace {

constexpr int kFuzzFrames = 200'000;
constexpr int kLongestBlock = 8192;
constexpr int kStormBlocks = 400;

/// Input as bad as it comes: loud and faint noise, silence, denormals, and samples that are no numbers.
void FillBadly(Signal& signal, std::mt19937_64& random) {
    constexpr std::array kLevels{0.25f, 4.0f, 1e-6f, 1e-39f, 0.0f, 1e6f};
    const float level = kLevels[random() % kLevels.size()];
    std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
    for (auto& channel : signal) {
        for (float& sample : channel) sample = level * noise(random);
        if (random() % 8 == 0)
            channel[random() % channel.size()] = std::numeric_limits<float>::quiet_NaN();
    }
}

/// A good value, or one that a host might send by mistake: no number, or beyond the range.
float DrawValue(std::mt19937_64& random) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr std::array kBad{
        std::numeric_limits<float>::quiet_NaN(), kInfinity, -kInfinity, -1.0f, 2.0f, 1e-40f};
    if (random() % 4 == 0) return kBad[random() % kBad.size()];
    return std::uniform_real_distribution<float>(0.0f, 1.0f)(random);
}

/// One change that a host may make between two blocks.
void ChangeSomething(Rig& rig, std::mt19937_64& random) {
    kraaudiofilterhost::AudioFilter& filter = rig.Filter();
    const std::vector<int> parameters = rig.GetSoundParameters();
    const auto roll = random() % 16;
    if (roll == 0)
        rig.Resume();
    else if (roll == 1 && filter.GetNumFactoryPresets() > 0)
        filter.SetFactoryPreset(
            static_cast<int>(random() % static_cast<std::uint64_t>(filter.GetNumFactoryPresets())));
    else if (!parameters.empty())
        filter.SetParameterAutomated(parameters[random() % parameters.size()], DrawValue(random));
}

}  // namespace

void CheckFuzz(Run& run) {
    for (const std::size_t channels : {1u, 2u, 6u}) {
        std::mt19937_64 random(run.Options().seed * 97 + channels);
        Rig rig = run.MakeRig({48000.0f, channels, 512});
        for (int done = 0; done < kFuzzFrames;) {
            const int frames = 1 + static_cast<int>(random() % kLongestBlock);
            Signal input(channels, std::vector<float>(static_cast<std::size_t>(frames)));
            FillBadly(input, random);
            for (auto changes = random() % 4; changes > 0; --changes) ChangeSomething(rig, random);
            done += frames;
            if (IsFinite(rig.Render(input, frames, random() % 2 == 0))) continue;
            run.Expect(false, fmt::format("output that is not finite, {} channels, before frame {}",
                                          channels, done));
            break;
        }
        for (const int index : rig.GetSoundParameters()) {
            const float value = rig.Filter().GetParameter(index);
            run.Expect(std::isfinite(value),
                       fmt::format("parameter {} has become {}", index, value));
        }
    }
}

void CheckThreads(Run& run) {
    Rig rig = run.MakeRig({48000.0f, 2, 256});
    std::vector<int> parameters = rig.GetSoundParameters();
    std::atomic<bool> isDone{false};
    std::thread host([&] {
        std::mt19937_64 random(run.Options().seed);
        kraaudiofilterhost::AudioFilter& filter = rig.Filter();
        while (!isDone.load() && !parameters.empty()) {
            filter.SetParameterAutomated(parameters[random() % parameters.size()],
                                         DrawValue(random));
            if (random() % 64 == 0 && filter.GetNumFactoryPresets() > 0) filter.SetFactoryPreset(0);
            std::this_thread::yield();
        }
    });
    const Signal input = Noise(run, 2, 256);
    bool isFinite = true;
    for (int block = 0; block < kStormBlocks; ++block)
        isFinite = IsFinite(rig.Render(input, 64)) && isFinite;
    isDone.store(true);
    host.join();
    run.Expect(isFinite, "output that is not finite while another thread sets parameters");
}

}  // namespace zuc::host::conformance
