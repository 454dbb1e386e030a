#include <benchmark/benchmark.h>

#include <vector>

#include "Components/Amplify.h"
#include "Components/Library.h"

namespace {

constexpr int kChannels = 2;
constexpr float kRateHz = 48000.0f;

/// Stereo buffers of one block, planar, filled with a signal without special values.
struct Buffers {
    explicit Buffers(int frames) : samples(static_cast<std::size_t>(2 * kChannels * frames)) {
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = 0.01f * static_cast<float>(i % 97) - 0.4f;
        for (int c = 0; c < kChannels; ++c) {
            in.push_back(samples.data() + c * frames);
            out.push_back(samples.data() + (kChannels + c) * frames);
        }
    }
    std::vector<float> samples;
    std::vector<float*> in;
    std::vector<float*> out;
};

/// The yardstick: one multiplication a sample, as the compiler makes it.
[[gnu::noinline]] void PlainGain(const float* in, float* out, int frames, float gain) {
    for (int i = 0; i < frames; ++i) out[i] = in[i] * gain;
}

void ReportFrames(benchmark::State& state, int frames) {
    state.SetItemsProcessed(state.iterations() * frames);
}

void PlainLoop(benchmark::State& state) {
    const int frames = static_cast<int>(state.range(0));
    Buffers buffers(frames);
    for (auto _ : state) {
        for (std::size_t c = 0; c < kChannels; ++c)
            PlainGain(buffers.in[c], buffers.out[c], frames, 0.7f);
        benchmark::ClobberMemory();
    }
    ReportFrames(state, frames);
}

void RunAmplify(benchmark::State& state, bool ramping) {
    const int frames = static_cast<int>(state.range(0));
    Buffers buffers(frames);
    boost::intrusive_ptr<zuc::components::Amplify> effect(new zuc::components::Amplify);
    effect->SetSampleRate(kRateHz);
    effect->SetBlockSize(frames);
    effect->SetParameter(zuc::components::Amplify::kFirstGain, 0.6f);
    effect->Resume();
    kraaudiofilterhost::Flags flags;
    float normalized = 0.6f;
    for (auto _ : state) {
        if (ramping) {
            normalized = 1.3f - normalized;
            effect->SetParameter(zuc::components::Amplify::kFirstGain, normalized);
            effect->SetParameter(zuc::components::Amplify::kFirstGain + 1, normalized);
        }
        effect->Process(buffers.in.data(), buffers.out.data(), frames, {}, flags);
        benchmark::ClobberMemory();
    }
    ReportFrames(state, frames);
}

void AmplifySteady(benchmark::State& state) { RunAmplify(state, false); }
void AmplifyRamping(benchmark::State& state) { RunAmplify(state, true); }

BENCHMARK(PlainLoop)->Arg(64)->Arg(480)->Arg(512)->Arg(4096);
BENCHMARK(AmplifySteady)->Arg(64)->Arg(480)->Arg(512)->Arg(4096);
BENCHMARK(AmplifyRamping)->Arg(64)->Arg(480)->Arg(512)->Arg(4096);

}  // namespace
