#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "Components/Dynamics.h"

namespace {

using zuc::components::Dynamics;

constexpr int kChannels = 2;
constexpr float kRateHz = 48000.0f;

/// Planar blocks of a signal whose level rises and falls, so that both ways of the envelopes run.
struct Blocks {
    explicit Blocks(int frames) : in(kChannels), out(kChannels) {
        for (int c = 0; c < kChannels; ++c) {
            auto& channel = samples.emplace_back(static_cast<std::size_t>(kLength));
            for (int i = 0; i < kLength; ++i)
                channel[static_cast<std::size_t>(i)] =
                    (0.3f + 0.29f * std::sin(0.0007f * static_cast<float>(i))) *
                    std::sin(0.05f * static_cast<float>((i * (c + 7)) % 997));
            outSamples.emplace_back(static_cast<std::size_t>(frames));
            out[static_cast<std::size_t>(c)] = outSamples.back().data();
        }
    }
    void Next(int frames) {
        if (place + frames > kLength) place = 0;
        for (std::size_t c = 0; c < kChannels; ++c) in[c] = samples[c].data() + place;
        place += frames;
    }
    static constexpr int kLength = 48000;
    std::vector<std::vector<float>> samples;
    std::vector<std::vector<float>> outSamples;
    std::vector<float*> in;
    std::vector<float*> out;
    int place = 0;
};

boost::intrusive_ptr<Dynamics> MakeEffect(int frames) {
    boost::intrusive_ptr<Dynamics> effect(new Dynamics);
    effect->SetSampleRate(kRateHz);
    effect->SetBlockSize(frames);
    effect->SetParameter(Dynamics::kHighCutoffHz, 1.0f);    // full band: the filter is off
    effect->SetParameter(Dynamics::kFirstPoint + 5, 0.7f);  // 30 dB down at full scale
    return effect;
}

void Run(benchmark::State& state, Dynamics& effect) {
    const int frames = static_cast<int>(state.range(0));
    Blocks blocks(frames);
    effect.Resume();
    kraaudiofilterhost::Flags flags;
    for (auto _ : state) {
        blocks.Next(frames);
        effect.Process(blocks.in.data(), blocks.out.data(), frames, {}, flags);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

void DynamicsDefaults(benchmark::State& state) {
    Run(state, *MakeEffect(static_cast<int>(state.range(0))));
}

void DynamicsPeak(benchmark::State& state) {
    const auto effect = MakeEffect(static_cast<int>(state.range(0)));
    effect->SetParameter(Dynamics::kPeakRms, 0.0f);
    Run(state, *effect);
}

void DynamicsBand513Taps(benchmark::State& state) {
    const auto effect = MakeEffect(static_cast<int>(state.range(0)));
    effect->SetParameter(Dynamics::kLowCutoffHz, 0.01f);  // 260 Hz
    effect->SetParameter(Dynamics::kHighCutoffHz, 0.2f);  // 4.8 kHz
    Run(state, *effect);
}

/// Every block brings a new curve.
void DynamicsRebuild(benchmark::State& state) {
    const auto effect = MakeEffect(64);
    effect->SetParameter(Dynamics::kSplineCurves, static_cast<float>(state.range(0)));
    effect->Resume();
    Blocks blocks(64);
    kraaudiofilterhost::Flags flags;
    float value = 0.4f;
    for (auto _ : state) {
        value = 1.0f - value;
        effect->SetParameter(Dynamics::kFirstPoint + 3, value);
        blocks.Next(64);
        effect->Process(blocks.in.data(), blocks.out.data(), 64, {}, flags);
    }
}

/// Every block brings a new band filter of 513 taps.
void DynamicsNewBand(benchmark::State& state) {
    const auto effect = MakeEffect(64);
    effect->SetParameter(Dynamics::kLowCutoffHz, 0.005f);
    effect->Resume();
    Blocks blocks(64);
    kraaudiofilterhost::Flags flags;
    float value = 0.4f;
    for (auto _ : state) {
        value = 1.0f - value;
        effect->SetParameter(Dynamics::kHighCutoffHz, value);
        blocks.Next(64);
        effect->Process(blocks.in.data(), blocks.out.data(), 64, {}, flags);
    }
}

BENCHMARK(DynamicsDefaults)->Arg(64)->Arg(512)->Arg(4096);
BENCHMARK(DynamicsPeak)->Arg(512);
BENCHMARK(DynamicsBand513Taps)->Arg(64)->Arg(512);
BENCHMARK(DynamicsRebuild)->Arg(0)->Arg(1);
BENCHMARK(DynamicsNewBand);

}  // namespace
