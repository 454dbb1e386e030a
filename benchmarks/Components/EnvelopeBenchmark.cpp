#include <benchmark/benchmark.h>

#include <vector>

#include "Components/Amplify.h"
#include "Components/FadeEnvelope.h"
#include "Components/GainEnvelope.h"
#include "Components/KeyframeContainer.h"
#include "Components/VolumeEnvelope.h"

namespace {

using namespace zuc;

constexpr int kSpacingFrames = 480;  // of keyframes: ten milliseconds

KeyframeContainerPtr MakeCurve(int count, bool splines) {
    KeyframeSet keyframes;
    for (int i = 0; i < count; ++i)
        keyframes.insert({0.1f + 0.8f * static_cast<float>(i * 37 % 100) / 100.0f,
                          std::int64_t{i} * kSpacingFrames});
    KeyframeContainerPtr curve(new KeyframeContainer(0.5f));
    curve->SetKeyframes(keyframes, false);
    curve->EnableSplines(splines);
    return curve;
}

void GetValue(benchmark::State& state) {
    const auto curve = MakeCurve(1000, state.range(0) != 0);
    std::uint32_t random = 1;
    for (auto _ : state) {
        random = random * 1664525u + 1013904223u;
        benchmark::DoNotOptimize(curve->GetValue((random >> 8) % (1000 * kSpacingFrames)));
    }
}

void GetValues(benchmark::State& state) {
    const auto curve = MakeCurve(1000, state.range(0) != 0);
    std::vector<float> values(48'000);
    for (auto _ : state) {
        curve->GetValues(100'000, 48'000, values.data());
        benchmark::ClobberMemory();
    }
}

/// Edits of 10 000 keyframes, undone by a copy outside of the measured time.
template <class Edit>
void RunEdit(benchmark::State& state, Edit&& edit) {
    const auto original = MakeCurve(10'000, state.range(0) != 0);
    for (auto _ : state) {
        state.PauseTiming();
        const KeyframeContainerPtr curve(new KeyframeContainer(*original));
        state.ResumeTiming();
        edit(*curve);
    }
}
void Offset(benchmark::State& state) {
    RunEdit(state,
            [](KeyframeContainer& c) { c.OffsetKeyframes(0.05f, 0, 10'000 * kSpacingFrames); });
}
void Boost(benchmark::State& state) {
    RunEdit(state, [](KeyframeContainer& c) { c.BoostKeyframes(-3.0f); });
}
void RemoveClosingTheGap(benchmark::State& state) {
    RunEdit(state, [](KeyframeContainer& c) { c.RemoveKeyframes(1000, 100'000, true); });
}

/// An effect on stereo blocks of 512 frames, going through one minute again and again.
template <class Effect>
void RunEffect(benchmark::State& state, boost::intrusive_ptr<Effect> effect) {
    constexpr int kFrames = 512;
    constexpr std::int64_t kMinute = 48'000 * 60;
    std::vector<float> samples(4 * kFrames, 0.25f);
    float* in[] = {samples.data(), samples.data() + kFrames};
    float* out[] = {samples.data() + 2 * kFrames, samples.data() + 3 * kFrames};
    kraaudiofilterhost::Flags flags;
    effect->Resume();
    std::int64_t position = 0;
    for (auto _ : state) {
        effect->SetCurrentOffset(position);
        effect->Process(in, out, kFrames, {}, flags);
        position = position + kFrames < kMinute ? position + kFrames : 0;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kFrames);
}

template <class Effect>
boost::intrusive_ptr<Effect> Make() {
    boost::intrusive_ptr<Effect> effect(new Effect);
    effect->SetSampleRate(48'000.0f);
    effect->SetCurrentDuration(60.0);
    return effect;
}

void PlainGain(benchmark::State& state) {
    const auto effect = Make<components::Amplify>();
    effect->SetParameter(components::Amplify::kFirstGain, 0.6f);
    RunEffect(state, effect);
}

/// 1000 keyframes over ten seconds or over the minute, straight or as a spline.
template <class Effect>
void Envelope(benchmark::State& state) {
    const auto effect = Make<Effect>();
    const int factor = static_cast<int>(state.range(1));
    KeyframeSet keyframes;
    MakeCurve(1000, false)->GetKeyframes(keyframes);
    KeyframeSet spread;
    for (Keyframe keyframe : keyframes) {
        keyframe.time *= factor;
        spread.insert(keyframe);
    }
    effect->GetCurve()->SetKeyframes(spread, false);
    effect->GetCurve()->EnableSplines(state.range(0) != 0);
    RunEffect(state, effect);
}

void Fades(benchmark::State& state) {
    const auto effect = Make<components::FadeEnvelope>();
    const auto set = [&](int index, float value) {
        effect->SetParameter(index, effect->GetParameterInfo(index)->ToNormalized(value));
    };
    set(components::FadeEnvelope::kShape, static_cast<float>(state.range(0)));
    set(components::FadeEnvelope::kFadeInMs, static_cast<float>(state.range(1)));
    RunEffect(state, effect);
}

BENCHMARK(GetValue)->Arg(0)->Arg(1);
BENCHMARK(GetValues)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(Offset)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Boost)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(RemoveClosingTheGap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainGain);
BENCHMARK(Envelope<components::GainEnvelope>)->Args({0, 1})->Args({0, 6})->Args({1, 6});
BENCHMARK(Envelope<components::VolumeEnvelope>)->Args({0, 6});
BENCHMARK(Fades)->Args({0, 60'000})->Args({1, 60'000})->Args({3, 60'000})->Args({1, 2'000});

}  // namespace
