#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "Components/HardLimiter.h"
#include "Components/IntraClipComponent.h"
#include "Components/LoudnessMeter.h"

namespace {

using zuc::components::HardLimiter;
using zuc::components::IntraClipComponent;

constexpr std::size_t kChannels = 2;
constexpr float kRateHz = 48000.0f;

/// Planar blocks of noise whose peaks come up to `peak`, four swells a second.
struct Blocks {
    Blocks(int frames, float peak) : in(kChannels), out(kChannels) {
        std::mt19937 random(3);
        for (std::size_t c = 0; c < kChannels; ++c) {
            auto& channel = samples.emplace_back(kLength);
            for (std::size_t i = 0; i < kLength; ++i) {
                const float swell = 0.6f + 0.4f * std::sin(5.2e-4f * static_cast<float>(i));
                channel[i] = peak * swell * (static_cast<float>(random()) / 2147483648.0f - 1.0f);
            }
            outSamples.emplace_back(static_cast<std::size_t>(frames));
        }
        for (std::size_t c = 0; c < kChannels; ++c) out[c] = outSamples[c].data();
    }
    void Next(std::size_t frames) {
        if (place + frames > kLength) place = 0;
        for (std::size_t c = 0; c < kChannels; ++c) in[c] = samples[c].data() + place;
        place += frames;
    }
    static constexpr std::size_t kLength = 48000;
    std::vector<std::vector<float>> samples;
    std::vector<std::vector<float>> outSamples;
    std::vector<float*> in;
    std::vector<float*> out;
    std::size_t place = 0;
};

/// Arguments: block length, peak in percent of full scale, true peaks, link in percent.
void Limiter(benchmark::State& state) {
    const int frames = static_cast<int>(state.range(0));
    Blocks blocks(frames, static_cast<float>(state.range(1)) / 100.0f);
    const boost::intrusive_ptr<HardLimiter> effect(new HardLimiter);
    effect->SetSampleRate(kRateHz);
    effect->SetBlockSize(frames);
    effect->SetParameter(HardLimiter::kTruePeak, static_cast<float>(state.range(2)));
    effect->SetParameter(HardLimiter::kLinkPercent, static_cast<float>(state.range(3)) / 100.0f);
    effect->Resume();
    kraaudiofilterhost::Flags flags;
    for (auto _ : state) {
        blocks.Next(static_cast<std::size_t>(frames));
        effect->Process(blocks.in.data(), blocks.out.data(), frames, {}, flags);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

/// Arguments: block length, peak in percent of full scale.
void Leveler(benchmark::State& state) {
    const int frames = static_cast<int>(state.range(0));
    Blocks blocks(frames, static_cast<float>(state.range(1)) / 100.0f);
    const boost::intrusive_ptr<IntraClipComponent> effect(new IntraClipComponent);
    effect->SetSampleRate(kRateHz);
    effect->SetBlockSize(frames);
    effect->SetFactoryPreset(2);  // Strong
    effect->Resume();
    kraaudiofilterhost::Flags flags;
    for (auto _ : state) {
        blocks.Next(static_cast<std::size_t>(frames));
        effect->Process(blocks.in.data(), blocks.out.data(), frames, {}, flags);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

void Measurement(benchmark::State& state) {
    const int frames = static_cast<int>(state.range(0));
    Blocks blocks(frames, 0.9f);
    zuc::components::LoudnessMeter meter(kRateHz, kramediatypes::StereoLayout());
    for (auto _ : state) {
        blocks.Next(static_cast<std::size_t>(frames));
        meter.Process(blocks.in.data(), frames);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

BENCHMARK(Limiter)
    ->Args({512, 25, 1, 100})
    ->Args({512, 90, 1, 100})
    ->Args({512, 300, 1, 100})
    ->Args({64, 300, 1, 100})
    ->Args({512, 300, 1, 50})
    ->Args({512, 300, 0, 100});
BENCHMARK(Leveler)->Args({512, 25})->Args({512, 100})->Args({64, 100});
BENCHMARK(Measurement)->Arg(512)->Arg(2048);

}  // namespace
