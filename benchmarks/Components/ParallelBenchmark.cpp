#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "Components/Chorus.h"
#include "Components/EffectThreadPool.h"
#include "Components/Library.h"
#include "Components/ParametricEqualizer.h"
#include "kraaudiodsp/Parametric.h"
#include "kramediatypes/AudioChannels.h"

namespace {

using namespace zuc::components;
using PE = ParametricEqualizer;

constexpr float kRateHz = 48000.0f;

/// An effect with buffers for blocks of one length, and what it plays.
template <class Effect>
struct Player {
    Player(std::size_t channels, int blockFrames)
        : frames(blockFrames), samples(channels * static_cast<std::size_t>(blockFrames)) {
        effect->SetSampleRate(kRateHz);
        const auto layout = kramediatypes::LayoutForChannelCount(channels);
        effect->RequestIOConfiguration({layout}, {layout});
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = 0.01f * static_cast<float>(i % 97) - 0.4f;
        out.resize(samples.size());
        for (std::size_t c = 0; c < channels; ++c) {
            from.push_back(samples.data() + c * static_cast<std::size_t>(frames));
            to.push_back(out.data() + c * static_cast<std::size_t>(frames));
        }
    }
    void Set(int index, float value) {
        effect->SetParameter(index, effect->GetParameterInfo(index)->ToNormalized(value));
    }
    void Play() {
        effect->Process(from.data(), to.data(), frames, {}, flags);
        benchmark::ClobberMemory();
    }

    boost::intrusive_ptr<Effect> effect{new Effect};
    int frames;
    std::vector<float> samples;
    std::vector<float> out;
    std::vector<float*> from;
    std::vector<float*> to;
    kraaudiofilterhost::Flags flags;
};

/// Bells from 100 Hz on, one and a half octaves apart.
void SetBells(Player<PE>& player, int count) {
    for (int k = 0; k < count; ++k) {
        player.Set(PE::At(k, PE::kOn), 1.0f);
        player.Set(PE::At(k, PE::kType), 0.0f);
        player.Set(PE::At(k, PE::kFrequency),
                   100.0f * std::pow(2.0f, 1.0f * static_cast<float>(k)));
        player.Set(PE::At(k, PE::kGain), k % 2 == 0 ? 5.0f : -4.0f);
    }
    player.effect->Resume();
}

void ParametricFiveBells(benchmark::State& state) {
    Player<PE> player(2, static_cast<int>(state.range(0)));
    SetBells(player, 5);
    for (auto _ : state) player.Play();
    state.SetItemsProcessed(state.iterations() * player.frames);
}
BENCHMARK(ParametricFiveBells)->Arg(64)->Arg(512)->Arg(2048);

void ParametricAllBands(benchmark::State& state) {
    Player<PE> player(2, 512);
    SetBells(player, 8);
    for (auto _ : state) player.Play();
    state.SetItemsProcessed(state.iterations() * player.frames);
}
BENCHMARK(ParametricAllBands);

void ParametricLinearPhase(benchmark::State& state) {
    Player<PE> player(2, static_cast<int>(state.range(0)));
    player.Set(PE::kPhase, 1.0f);
    SetBells(player, 8);
    for (auto _ : state) player.Play();
    state.SetItemsProcessed(state.iterations() * player.frames);
}
BENCHMARK(ParametricLinearPhase)->Arg(64)->Arg(512)->Arg(4096);

/// 32 channels, eight bands: the effect, against a plain loop over its kernels.
void ThirtyTwoChannels(benchmark::State& state) {
    Player<PE> player(32, static_cast<int>(state.range(0)));
    SetBells(player, 8);
    for (auto _ : state) player.Play();
    state.SetItemsProcessed(state.iterations() * player.frames);
}
BENCHMARK(ThirtyTwoChannels)->Arg(2047)->Arg(2048)->Arg(4096)->UseRealTime();

void ThirtyTwoChannelsPlainLoop(benchmark::State& state) {
    Player<PE> player(32, static_cast<int>(state.range(0)));
    dsp::ParametricCurve::Bands bands;
    for (std::size_t k = 0; k < bands.size(); ++k)
        bands[k] = {true,
                    dsp::BandType::kBell,
                    100.0 * std::exp2(static_cast<double>(k)),
                    k % 2 == 0 ? 5.0 : -4.0,
                    1.0,
                    2};
    const dsp::ParametricCurve curve(bands, 1.0, static_cast<double>(kRateHz));
    std::vector<dsp::Parametric> kernels(32);
    for (dsp::Parametric& kernel : kernels) {
        kernel.SetSampleRate(static_cast<int>(kRateHz));
        kernel.SetCurve(curve, true);
    }
    for (auto _ : state) {
        for (std::size_t c = 0; c < kernels.size(); ++c)
            kernels[c].Process(player.from[c], player.to[c], player.frames);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * player.frames);
}
BENCHMARK(ThirtyTwoChannelsPlainLoop)->Arg(2047)->Arg(4096)->UseRealTime();

void ChorusVoices(benchmark::State& state) {
    zuc::Initialize();
    {
        Player<Chorus> player(2, 512);
        player.Set(Chorus::kVoices, static_cast<float>(state.range(0)));
        player.Set(Chorus::kDrift, static_cast<float>(state.range(1)));
        player.effect->Resume();
        for (auto _ : state) player.Play();
        state.SetItemsProcessed(state.iterations() * player.frames);
    }
    zuc::Terminate();
}
// Far faster than real time the pool's part never comes in time: with drift, its work is in the figure.
BENCHMARK(ChorusVoices)->ArgsProduct({{1, 4, 8}, {0, 25}});

class Idle final : public SchedulableEffect {
public:
    void ScheduledFunction() override {}
};

/// What the audio thread pays to schedule; the queue is emptied outside the measured time.
void Schedule(benchmark::State& state) {
    constexpr int kBatch = 256;
    zuc::Initialize();
    {
        Idle effect;
        EffectThreadPool::SubscribeEffect(&effect);
        for (auto _ : state) {
            for (int i = 0; i < kBatch; ++i) EffectThreadPool::ScheduleEffect(&effect);
            state.PauseTiming();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            state.ResumeTiming();
        }
        state.SetItemsProcessed(state.iterations() * kBatch);
        EffectThreadPool::UnsubscribeEffect(&effect);
    }
    zuc::Terminate();
}
BENCHMARK(Schedule)->Iterations(500);

}  // namespace
