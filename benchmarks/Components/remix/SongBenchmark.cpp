#include <benchmark/benchmark.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "Components/Song.h"
#include "Components/private/remix/SegmentSearch.h"

namespace {

using namespace zuc::components;

constexpr int kRateHz = 22050;

/// Numbers from 0 to 1, the same in every run.
class Uniform {
public:
    double operator()() {
        state_ = state_ * 1664525u + 1013904223u;
        return static_cast<double>(state_) / 4294967296.0;
    }

private:
    std::uint32_t state_ = 1;
};

/// A drum on every beat, noise between them, and a chord a bar.
class Music final : public IAudioFramesGetter {
public:
    explicit Music(double seconds) : frames_(static_cast<std::size_t>(seconds * kRateHz)) {
        Uniform uniform;
        for (std::size_t i = 0; i < frames_.size(); ++i) {
            const double t = static_cast<double>(i) / kRateHz;
            const double beat = std::fmod(t, 0.5), half = std::fmod(t, 0.25);
            const double hz = 220 * std::exp2(static_cast<int>(t / 2) % 5 / 12.0);
            frames_[i] = 0.4 * std::exp(-20 * beat) * std::sin(400 * beat) +
                         0.1 * std::exp(-60 * half) * (uniform() - 0.5) +
                         0.1 * std::sin(6.283185307 * hz * t);
        }
    }
    std::vector<double> GetFrames(std::int64_t first, std::int64_t last) override {
        return {frames_.begin() + first, frames_.begin() + last};
    }
    int GetSampleRate() const override { return kRateHz; }
    std::int64_t GetFrameCount() const override {
        return static_cast<std::int64_t>(frames_.size());
    }

private:
    std::vector<double> frames_;
};

/// The counter says how many times faster than it plays.
void Analysis(benchmark::State& state) {
    const auto seconds = static_cast<double>(state.range(0));
    const auto music = std::make_shared<Music>(seconds);
    for (auto _ : state) {
        Song song(music, kRateHz);
        benchmark::DoNotOptimize(song.Analyse(60, state.range(1) != 0, nullptr));
    }
    state.counters["x real time"] = benchmark::Counter(
        seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(Analysis)
    ->ArgNames({"seconds", "separate"})
    ->ArgsProduct({{240}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

/// As many positions as beats: a song of phrases of 32 beats that come again, never quite the same.
void Search(benchmark::State& state) {
    const auto beats = static_cast<std::size_t>(state.range(0));
    constexpr std::size_t kFeatures = 16, kPhrase = 32, kPhrases = 12;
    Uniform uniform;
    std::vector<double> phrases(kPhrases * kPhrase * kFeatures), rows(beats * kFeatures);
    for (double& x : phrases) x = uniform() - 0.5;
    std::size_t phrase = 0;
    for (std::size_t i = 0; i < beats; ++i) {
        if (i % kPhrase == 0) phrase = static_cast<std::size_t>(uniform() * kPhrases);
        const double* from = phrases.data() + (phrase * kPhrase + i % kPhrase) * kFeatures;
        double power = 0;
        for (std::size_t k = 0; k < kFeatures; ++k) {
            rows[i * kFeatures + k] = from[k] + 0.2 * (uniform() - 0.5);
            power += rows[i * kFeatures + k] * rows[i * kFeatures + k];
        }
        for (std::size_t k = 0; k < kFeatures; ++k) rows[i * kFeatures + k] /= std::sqrt(power);
    }
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    TransitionMatrix transition(beats);
    PlacementMatrix placement(beats, beats);
    for (std::size_t i = 0; i < beats; ++i) {
        for (std::size_t j = 0; j < beats; ++j) {
            double cosine = 0;
            for (std::size_t k = 0; i + 1 < beats && k < kFeatures; ++k)
                cosine += rows[(i + 1) * kFeatures + k] * rows[j * kFeatures + k];
            const bool isForbidden = i + 1 == beats || j + 1 == beats || (j <= i && i < j + 8);
            const double cost = j == i + 1 ? 0 : std::pow(std::max(0.0, 1 - cosine), 0.75);
            transition.Row(i)[j] = isForbidden ? kInfinity : cost;
        }
        if (i > 0) placement.Add(i, 0, kInfinity);
        if (i + 10 < beats) placement.Add(i, beats - 1, kInfinity);
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(
            FindCheapestPath(transition, placement, state.range(1) != 0, nullptr));
}
BENCHMARK(Search)
    ->ArgNames({"beats", "avoidLoops"})
    ->ArgsProduct({{500, 2000, 7200}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
