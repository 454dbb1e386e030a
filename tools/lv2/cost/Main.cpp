// What the LV2 adapter costs: compares each plugin's block with the library's own. Usage: zuc_lv2_cost zuc.so
// [FRAMES]. Exit status 1 when a block costs more than the library's by 5 % and 50 ns.

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include <lv2/core/lv2.h>

#include "../Ports.h"
#include "Components/Library.h"
#include "host/PluginInfo.h"

namespace zuc {
namespace {

constexpr double kRateHz = 48000.0;
constexpr int kRounds = 31;
constexpr int kBlocksPerRound = 400;

double CpuNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/// CPU time of one block, in ns.
template <class Block>
double Measure(Block&& block) {
    const double start = CpuNanoseconds();
    for (int i = 0; i < kBlocksPerRound; ++i) block();
    return (CpuNanoseconds() - start) / kBlocksPerRound;
}

/// Stereo noise that does not change: outputs lie elsewhere.
struct Audio {
    explicit Audio(int frames) : samples(6, std::vector<float>(static_cast<std::size_t>(frames))) {
        std::minstd_rand random(1);
        std::uniform_real_distribution<float> uniform(-0.5f, 0.5f);
        for (auto& channel : samples)
            for (float& sample : channel) sample = uniform(random);
        for (auto& channel : samples) pointers.push_back(channel.data());
    }
    std::vector<std::vector<float>> samples;
    std::vector<float*> pointers;  // two inputs, two outputs, two of a side chain
};

const LV2_Descriptor* FindDescriptor(LV2_Descriptor_Function list, const std::string& uri) {
    for (std::uint32_t i = 0; const LV2_Descriptor* found = list(i); ++i)
        if (found->URI == uri) return found;
    return nullptr;
}

/// True when the plugin keeps to the limit.
bool Compare(LV2_Descriptor_Function list, const host::PluginInfo& info, int frames) {
    const auto* descriptor =
        FindDescriptor(list, lv2::MakePluginUri(info.effect.slug, info.format.name));
    const LV2_Feature* const none[] = {nullptr};
    LV2_Handle plugin = descriptor->instantiate(descriptor, kRateHz, "", none);
    const lv2::Ports ports(info);
    Audio audio(frames);
    std::vector<float> values(ports.GetCount(), 0.0f);
    values[ports.GetEnabled()] = 1.0f;
    for (std::size_t i = 0; i < info.controls.size(); ++i)
        values[ports.GetControl(i)] = info.controls[i].initial;
    for (std::size_t port = 0; port < ports.GetCount(); ++port)
        descriptor->connect_port(plugin, static_cast<std::uint32_t>(port),
                                 port < ports.GetLatency() ? audio.pointers[port] : &values[port]);
    descriptor->activate(plugin);
    const host::AudioFilterPtr filter =
        host::CreateForFormat(info.effect, static_cast<float>(kRateHz), 2, 1024);
    filter->Resume();

    std::vector<double> own;
    std::vector<double> more;
    for (int round = 0; round < kRounds; ++round) {
        kraaudiofilterhost::Flags flags;
        const double library = Measure([&] {
            filter->Process(audio.pointers.data(), audio.pointers.data() + 2, frames, {}, flags);
        });
        const double plugged =
            Measure([&] { descriptor->run(plugin, static_cast<std::uint32_t>(frames)); });
        own.push_back(library);
        more.push_back(plugged - library);
    }
    filter->Suspend();
    descriptor->deactivate(plugin);
    descriptor->cleanup(plugin);
    std::sort(own.begin(), own.end());
    std::sort(more.begin(), more.end());
    const double library = own[kRounds / 2];
    const double difference = more[kRounds / 2];
    const bool keeps = difference <= 0.05 * library + 50.0;
    std::printf("%-22s %10.0f %+8.0f ns  %s\n", info.effect.slug.c_str(), library, difference,
                keeps ? "" : "TOO MUCH");
    return keeps;
}

int Run(const char* path, int frames) {
    void* library = dlopen(path, RTLD_NOW);
    if (!library) {
        std::fprintf(stderr, "zuc_lv2_cost: %s cannot be loaded\n", path);
        return 2;
    }
    const auto list = reinterpret_cast<LV2_Descriptor_Function>(dlsym(library, "lv2_descriptor"));
    std::printf("stereo blocks of %d frames: library, adapter\n", frames);
    bool keeps = true;
    const host::EffectCatalogue catalogue;
    for (const host::Effect& effect : catalogue.GetEffects())
        if (const auto info = host::DescribePlugin(effect, host::GetPluginFormats()[1]))
            keeps &= Compare(list, *info, frames);
    return keeps ? 0 : 1;
}

}  // namespace
}  // namespace zuc

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("usage: zuc_lv2_cost zuc.so [FRAMES]\n", stderr);
        return 2;
    }
    zuc::Initialize();
    const int status = zuc::Run(arguments[1], count > 2 ? std::atoi(arguments[2]) : 512);
    zuc::Terminate();
    return status;
}
