#include <benchmark/benchmark.h>

#include <vector>

#include "Components/Delay.h"
#include "Components/Echo.h"
#include "kramediatypes/AudioChannels.h"

namespace {

using zuc::components::Delay;
using zuc::components::Echo;

enum class Mode { kDefault, kFlat, kFading, kShort };

/// Noise and the buffers for one block.
struct Buffers {
    Buffers(std::size_t channels, int frames)
        : samples(2 * channels * static_cast<std::size_t>(frames)) {
        std::uint32_t state = 1;
        for (float& x : samples) {
            state = state * 1664525u + 1013904223u;
            x = static_cast<float>(state) / 8589934592.0f - 0.25f;
        }
        for (std::size_t c = 0; c < channels; ++c) {
            in.push_back(samples.data() + 2 * c * static_cast<std::size_t>(frames));
            out.push_back(in.back() + frames);
        }
    }
    std::vector<float> samples;
    std::vector<float*> in;
    std::vector<float*> out;
};

template <class Effect>
void Run(benchmark::State& state, Mode mode, int firstFlat = 0, int lastFlat = 0) {
    const int frames = static_cast<int>(state.range(0));
    const auto channels = static_cast<std::size_t>(state.range(1));
    Buffers buffers(channels, frames);
    boost::intrusive_ptr<Effect> effect(new Effect);
    effect->SetSampleRate(static_cast<float>(state.range(2)));
    const auto layout = kramediatypes::LayoutForChannelCount(channels);
    effect->RequestIOConfiguration({layout}, {layout});
    for (int i = firstFlat; i < lastFlat; ++i) effect->SetParameter(i, 0.5f);
    if (mode == Mode::kShort) effect->SetParameter(Effect::kDelayLeft, 0.0001f);  // 0.2 ms
    effect->Resume();
    kraaudiofilterhost::Flags flags;
    float delay = 0.6f;
    for (auto _ : state) {
        // A change each block keeps one crossfade after the other running.
        if (mode == Mode::kFading) effect->SetParameter(Effect::kDelayLeft, delay = 1.3f - delay);
        effect->Process(buffers.in.data(), buffers.out.data(), frames, {}, flags);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}

void EchoDefault(benchmark::State& state) { Run<Echo>(state, Mode::kDefault); }
void EchoFading(benchmark::State& state) { Run<Echo>(state, Mode::kFading); }
void EchoFlat(benchmark::State& state) {
    Run<Echo>(state, Mode::kFlat, Echo::kFirstBand, Echo::kFirstBand + 8);
}
void EchoFlatFading(benchmark::State& state) {
    Run<Echo>(state, Mode::kFading, Echo::kFirstBand, Echo::kFirstBand + 8);
}
void EchoShort(benchmark::State& state) { Run<Echo>(state, Mode::kShort); }
void DelayDefault(benchmark::State& state) { Run<Delay>(state, Mode::kDefault); }
void DelayFading(benchmark::State& state) { Run<Delay>(state, Mode::kFading); }

// Block frames, channels, rate in Hz.
BENCHMARK(EchoDefault)->Args({512, 2, 48000})->Args({64, 2, 48000})->Args({512, 32, 192000});
BENCHMARK(EchoFading)->Args({512, 2, 48000});
BENCHMARK(EchoFlat)->Args({512, 2, 48000})->Args({64, 2, 48000})->Args({512, 32, 192000});
BENCHMARK(EchoFlatFading)->Args({512, 2, 48000});
BENCHMARK(EchoShort)->Args({512, 2, 48000});
BENCHMARK(DelayDefault)->Args({512, 2, 48000})->Args({64, 2, 48000})->Args({512, 32, 192000});
BENCHMARK(DelayFading)->Args({512, 2, 48000});

}  // namespace
