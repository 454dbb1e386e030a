#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "Components/DefaultOfflineWriter.h"
#include "Components/Library.h"
#include "Components/Noise.h"

namespace {

using std::chrono::steady_clock;
using WriterPtr = boost::intrusive_ptr<zuc::DefaultOfflineWriter>;

constexpr long kBlockFrames = 8192;
constexpr double kRateHz = 48000.0;

double GetMs(steady_clock::time_point since) {
    return std::chrono::duration<double, std::milli>(steady_clock::now() - since).count();
}

WriterPtr MakeWriter(long capacityFrames) {
    WriterPtr writer(new zuc::DefaultOfflineWriter);
    writer->Initialize(2, capacityFrames);
    writer->SetOpenToWrite(true);
    return writer;
}

struct StereoBlock {
    std::vector<float> left = std::vector<float>(kBlockFrames, 0.5f);
    std::vector<float> right = std::vector<float>(kBlockFrames, 0.5f);
    float* at[2] = {left.data(), right.data()};
};

long Drain(zuc::DefaultOfflineWriter& writer, StereoBlock& block) {
    long all = 0;
    while (writer.IsOpenToWrite() || writer.GetAvailable() > 0)
        all += writer.GetAudio(block.at, 0, kBlockFrames);
    return all;
}

/// Median and 99th percentile of times in ms.
void Report(benchmark::State& state, std::vector<double> ms) {
    std::sort(ms.begin(), ms.end());
    state.counters["medianMs"] = ms[ms.size() / 2];
    state.counters["p99Ms"] = ms[ms.size() * 99 / 100];
    state.counters["maxMs"] = ms.back();
}

void RingCopies(benchmark::State& state) {
    const WriterPtr writer = MakeWriter(4 * kBlockFrames + 1);
    StereoBlock in;
    StereoBlock out;
    for (auto _ : state) {
        writer->PutAudio(in.at, 0, 0, kBlockFrames);
        writer->GetAudio(out.at, 0, kBlockFrames);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBlockFrames * 2 *
                            static_cast<long>(sizeof(float)));
}

void RingHandOver(benchmark::State& state) {
    constexpr int kBlocks = 2000;
    for (auto _ : state) {
        const WriterPtr writer = MakeWriter(4 * kBlockFrames);
        std::thread producer([&] {
            const StereoBlock in;
            for (std::int64_t done = 0; done < kBlocks * kBlockFrames;)
                done += writer->PutAudio(in.at, 0, 0, kBlockFrames);
            writer->SetOpenToWrite(false);
        });
        StereoBlock out;
        Drain(*writer, out);
        producer.join();
    }
    state.SetBytesProcessed(state.iterations() * kBlocks * kBlockFrames * 2 *
                            static_cast<long>(sizeof(float)));
}

/// From the producer's close to the consumer's knowledge of it; the consumer waits for audio meanwhile.
void EndOfStream(benchmark::State& state) {
    std::vector<double> ms;
    for (auto _ : state) {
        const WriterPtr writer = MakeWriter(4 * kBlockFrames);
        steady_clock::time_point closed;
        std::thread producer([&] {
            const StereoBlock in;
            writer->PutAudio(in.at, 0, 0, kBlockFrames);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            closed = steady_clock::now();
            writer->SetOpenToWrite(false);
        });
        StereoBlock out;
        Drain(*writer, out);
        const auto seen = steady_clock::now();
        producer.join();
        ms.push_back(std::chrono::duration<double, std::milli>(seen - closed).count());
        state.SetIterationTime(ms.back() / 1000.0);
    }
    Report(state, std::move(ms));
}

boost::intrusive_ptr<zuc::components::Noise> MakeNoise(const WriterPtr& writer, int preset) {
    boost::intrusive_ptr<zuc::components::Noise> noise(new zuc::components::Noise);
    noise->SetSampleRate(static_cast<float>(kRateHz));
    noise->SetFactoryPreset(preset);
    noise->SetOfflineWriter(writer);
    return noise;
}

/// Cancels a run that fills a ring which nobody empties, at any moment.
void CancelToGone(benchmark::State& state) {
    zuc::Initialize();
    std::vector<double> ms;
    unsigned draw = 1;
    for (auto _ : state) {
        const WriterPtr writer = MakeWriter(4 * kBlockFrames);
        const auto noise = MakeNoise(writer, 0);
        noise->OfflineRun(0, 1 << 24);
        draw = draw * 1664525u + 1013904223u;
        std::this_thread::sleep_for(std::chrono::microseconds(draw % 60000));
        const auto before = steady_clock::now();
        noise->Cancel();
        while (!noise->OfflineProcessFinished())
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        ms.push_back(GetMs(before));
        state.SetIterationTime(ms.back() / 1000.0);
    }
    Report(state, std::move(ms));
    zuc::Terminate();
}

/// A minute of stereo from the start of the run to its last frame.
void NoiseRun(benchmark::State& state) {
    constexpr int kSeconds = 60;
    zuc::Initialize();
    StereoBlock out;
    const auto start = steady_clock::now();
    for (auto _ : state) {
        const WriterPtr writer = MakeWriter(4 * kBlockFrames);
        const auto noise = MakeNoise(writer, static_cast<int>(state.range(0)));
        noise->OfflineRun(0, kSeconds * static_cast<std::int64_t>(kRateHz));
        benchmark::DoNotOptimize(Drain(*writer, out));
    }
    state.counters["timesRealTime"] =
        static_cast<double>(state.iterations()) * kSeconds * 1000.0 / GetMs(start);
    zuc::Terminate();
}

/// Noise made block by block, by the thread that is measured.
void NoiseBlocks(benchmark::State& state) {
    constexpr int kFrames = 512;
    const auto noise = MakeNoise(nullptr, static_cast<int>(state.range(0)));
    noise->Resume();
    StereoBlock out;
    kraaudiofilterhost::Flags flags;
    for (auto _ : state) noise->Process(out.at, out.at, kFrames, {}, flags);
    state.SetItemsProcessed(state.iterations() * kFrames);
}

}  // namespace

BENCHMARK(RingCopies);
BENCHMARK(RingHandOver)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(EndOfStream)->UseManualTime()->Iterations(500)->Unit(benchmark::kMillisecond);
BENCHMARK(CancelToGone)->UseManualTime()->Iterations(500)->Unit(benchmark::kMillisecond);
// Presets: 0 pink, 1 white, 9 room tone (any slope, diffuse), 10 speech-weighted (any slope, both limits).
BENCHMARK(NoiseRun)->Arg(0)->Arg(1)->Arg(9)->Arg(10)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(NoiseBlocks)->Arg(0)->Arg(1)->Arg(9)->Arg(10);
