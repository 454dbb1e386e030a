#include "kraaudiodsp/RealFft.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

template <typename T>
void Forward(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    dsp::RealFft<T> fft;
    fft.Prepare(size);
    std::vector<T> in(size);
    for (std::size_t i = 0; i < size; ++i) in[i] = T(0.01) * static_cast<T>(i % 97) - T(0.4);
    std::vector<std::complex<T>> out(size / 2 + 1);
    for (auto _ : state) {
        fft.Forward(in.data(), out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Forward<float>)
    ->Arg(256)
    ->Arg(512)
    ->Arg(960)
    ->Arg(1024)
    ->Arg(2048)
    ->Arg(4096)
    ->Arg(16384);
BENCHMARK(Forward<double>)->Arg(1024)->Arg(4096);

}  // namespace
