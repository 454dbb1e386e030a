#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <cmath>
#include <fstream>
#include <limits>
#include <random>
#include <thread>

#include "host/ConformanceRun.h"
#include "kraaudiofilterhost/PresetData.h"
#include "kracore/PropList.h"

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

/// What a host's own thread may do while the effect processes.
void UseAsHost(Rig& rig, std::mt19937_64& random) {
    kraaudiofilterhost::AudioFilter& filter = rig.Filter();
    const std::vector<int> parameters = rig.GetSoundParameters();
    if (parameters.empty()) return;
    const int index = parameters[random() % parameters.size()];
    const auto roll = random() % 64;
    if (roll == 0 && filter.GetNumFactoryPresets() > 0) {
        filter.SetFactoryPreset(0);
    } else if (roll == 1) {
        kracore::proplist::PropList list;
        kraaudiofilterhost::PresetData preset(list);
        filter.SaveSettings(preset);
    } else if (roll < 8) {
        filter.GetParameter(index);
        filter.GetParameterString(index);
    } else {
        filter.SetParameterAutomated(index, DrawValue(random));
    }
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
    std::atomic<bool> isDone{false};
    std::barrier start(2);
    std::thread host([&] {
        std::mt19937_64 random(run.Options().seed);
        start.arrive_and_wait();
        while (!isDone.load()) {
            UseAsHost(rig, random);
            std::this_thread::yield();
        }
    });
    const Signal input = Noise(run, 2, 256);
    bool isFinite = true;
    start.arrive_and_wait();
    for (int block = 0; block < kStormBlocks; ++block)
        isFinite = IsFinite(rig.Render(input, 64)) && isFinite;
    isDone.store(true);
    host.join();
    run.Expect(isFinite, "output that is not finite while another thread sets parameters");
}

void CheckInstances(Run& run) {
    constexpr std::size_t kInstances = 4;
    const Signal noise = Noise(run, 2, kShortFrames);
    const auto render = [&] {
        Rig rig = run.MakeRig();
        rig.Randomize(run.Options().seed);
        return rig.Render(noise, 480);
    };
    const Signal expected = render();
    std::array<Signal, kInstances> outputs;
    std::barrier start(static_cast<std::ptrdiff_t>(kInstances));
    std::vector<std::thread> hosts;
    hosts.reserve(kInstances);
    for (Signal& output : outputs)
        hosts.emplace_back([&] {
            start.arrive_and_wait();
            output = render();
        });
    for (std::thread& host : hosts) host.join();
    for (const Signal& output : outputs) run.ExpectSame(output, expected, "beside three others");
}

namespace {

constexpr std::size_t kMinuteFrames = std::size_t{48000} * 60;

/// A programme of a minute, over and over: phrases at four levels, and pauses.
Signal MakeProgramme(const Run& run) {
    constexpr std::size_t kPhraseFrames = std::size_t{48000} * 3;
    constexpr std::array kLevels{1.0f, 0.05f, 0.3f, 0.0f};
    Signal programme = Noise(run, 2, kMinuteFrames);
    for (auto& channel : programme)
        for (std::size_t i = 0; i < channel.size(); ++i)
            channel[i] *= kLevels[i / kPhraseFrames % kLevels.size()];
    return programme;
}

struct Minute {
    double levelDb = 0.0;
    double mean = 0.0;
};

Minute Measure(const Signal& signal) {
    double sum = 0.0;
    double energy = 1e-12;
    for (const float sample : signal.front()) {
        sum += static_cast<double>(sample);
        energy += static_cast<double>(sample) * static_cast<double>(sample);
    }
    const auto frames = static_cast<double>(signal.front().size());
    return {10.0 * std::log10(energy / frames), sum / frames};
}

/// With a factory preset, the first from the seed's on whose sound dies away within a minute: an echo may
/// feed itself for ever.
Rig MakePresetRig(const Run& run) {
    Rig rig = run.MakeRig();
    kraaudiofilterhost::AudioFilter& filter = rig.Filter();
    const int presets = filter.GetNumFactoryPresets();
    for (int i = 0; i < presets; ++i) {
        const auto preset = (run.Options().seed + static_cast<std::uint64_t>(i)) %
                            static_cast<std::uint64_t>(presets);
        filter.SetFactoryPreset(static_cast<int>(preset));
        if (filter.GetTail() < static_cast<int>(kMinuteFrames)) break;
    }
    rig.Resume();
    return rig;
}

/// Memory that the process holds, in KiB; 0 where the system does not tell.
long GetResidentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (long size = 0; word == "VmRSS:" && status >> size) return size;
    return 0;
}

}  // namespace

void CheckHour(Run& run) {
    Rig rig = MakePresetRig(run);
    Signal programme = rig.MakeInput(MakeProgramme(run));
    Signal out = rig.MakeOutput(kMinuteFrames);
    Minute early;
    Minute late;
    long earlyKiB = 0;
    for (int minute = 0; minute < run.Options().hourMinutes; ++minute) {
        rig.Process(programme, out, [] { return 512; });
        late = Measure(out);
        if (!IsFinite(out)) {
            run.Expect(false, fmt::format("output that is not finite in minute {}", minute + 1));
            return;
        }
        if (minute == 2) {
            early = late;
            earlyKiB = GetResidentKiB();
        }
    }
    const long grownKiB = GetResidentKiB() - earlyKiB;
    run.Expect(std::fabs(late.levelDb - early.levelDb) < 0.2,
               fmt::format("the level is {:.2f} dB in minute 3 and {:.2f} dB in minute {}",
                           early.levelDb, late.levelDb, run.Options().hourMinutes));
    run.Expect(std::fabs(late.mean - early.mean) < 1e-4,
               fmt::format("the mean has moved from {} to {}", early.mean, late.mean));
    run.Expect(grownKiB < 1024, fmt::format("the process has grown by {} KiB", grownKiB));

    const int tail = std::max(0, rig.Filter().GetTail()) + rig.Filter().GetInitialDelay();
    rig.Render(MakeSilence(2, static_cast<std::size_t>(tail) + 1), 512);
    const float residue = GetPeak(rig.Render(MakeSilence(2, kShortFrames), 512));
    run.Expect(residue < kInaudible,
               fmt::format("silence after the hour comes out with a peak of {}", residue));
    rig.Resume();
    Rig fresh = MakePresetRig(run);
    const Signal noise = Noise(run, 2, kShortFrames);
    run.ExpectSame(rig.Render(noise, 512), fresh.Render(noise, 512), "after the hour and Resume");
}

}  // namespace zuc::host::conformance
