#include "host/PluginProcessor.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <thread>

#include "Components/Library.h"
#include "host/ConformanceRig.h"
#include "rtguard/RealTimeGuard.h"

namespace zuc::host {
namespace {

using conformance::DescribeDifference;
using conformance::Signal;
using Values = std::vector<float>;  // of the controls

constexpr float kRateHz = 48000.0f;
constexpr std::size_t kFrames = 6000;

class PluginProcessorTest : public testing::Test {
protected:
    static void SetUpTestSuite() { Initialize(); }
    static void TearDownTestSuite() { Terminate(); }
};

std::vector<PluginInfo> DescribeAll() {
    std::vector<PluginInfo> infos;
    const EffectCatalogue catalogue;
    for (const Effect& effect : catalogue.GetEffects())
        for (const PluginFormat& format : GetPluginFormats())
            if (auto info = DescribePlugin(effect, format)) infos.push_back(std::move(*info));
    return infos;
}

PluginInfo Describe(std::string_view effect, std::string_view format) {
    for (PluginInfo& info : DescribeAll())
        if (info.effect.slug == effect && info.format.name == format) return info;
    throw std::invalid_argument("no such plugin");
}

Values GetInitialValues(const PluginInfo& info) {
    Values values;
    for (const PluginControl& control : info.controls) values.push_back(control.initial);
    return values;
}

Values DrawValues(const PluginInfo& info, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> share(0.0f, 1.0f);
    Values values;
    for (const PluginControl& control : info.controls) {
        const float value = control.lo + share(random) * (control.hi - control.lo);
        const bool isNumber = control.kind == PluginControl::Kind::kNumber;
        values.push_back(isNumber ? value : std::round(value));
    }
    return values;
}

Signal MakeNoise(std::size_t channels, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> sample(-0.5f, 0.5f);
    Signal signal = conformance::MakeSilence(channels, kFrames);
    for (auto& channel : signal)
        for (float& value : channel) value = sample(random);
    return signal;
}

std::vector<float*> At(Signal& signal, std::size_t frame) {
    std::vector<float*> pointers;
    for (auto& channel : signal) pointers.push_back(channel.data() + frame);
    return pointers;
}

void SetControls(PluginProcessor& processor, const Values& values) {
    for (std::size_t i = 0; i < values.size(); ++i) processor.SetControl(i, values[i]);
}

/// How a host hands over its buffers.
enum class Buffers { kApart, kInPlace, kCrossed };

struct Delivery {
    std::string_view name;
    std::vector<std::size_t> blocks;  // in turn
    Buffers buffers = Buffers::kApart;
};

Signal Render(PluginProcessor& processor, const Delivery& run, Signal in, Signal* side) {
    const std::size_t channels = in.size();
    Signal out = conformance::MakeSilence(channels, kFrames);
    std::size_t turn = 0;
    for (std::size_t done = 0; done < kFrames;) {
        const std::size_t count = std::min(run.blocks[turn++ % run.blocks.size()], kFrames - done);
        const auto from = At(in, done);
        auto to = At(out, done);
        if (run.buffers == Buffers::kInPlace) to = from;
        if (run.buffers == Buffers::kCrossed) to.assign(from.rbegin(), from.rend());
        const auto sides = side ? At(*side, done) : std::vector<float*>();
        const std::uint64_t findings = rtguard::CountFindings();
        {
            const rtguard::Scope scope;
            processor.Process(from.data(), side ? sides.data() : nullptr, to.data(),
                              static_cast<int>(count));
        }
        // Waking a worker that sleeps never waits.
        if (rtguard::CountFindings() != findings) {
            EXPECT_STREQ(rtguard::DescribeLast(), "sem_post");
        }
        done += count;
    }
    if (run.buffers == Buffers::kInPlace) return in;
    if (run.buffers == Buffers::kCrossed) return {in.rbegin(), in.rend()};
    return out;
}

/// What the effect itself makes of the input.
Signal RenderEffect(const PluginInfo& info, const Values& values, Signal in, const Signal* side) {
    const std::size_t sideChannels = side ? side->size() : 0;
    const AudioFilterPtr filter =
        CreateForFormat(info.effect, kRateHz, in.size(), 512, sideChannels);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const int index = info.controls[i].parameter.index;
        filter->SetParameter(
            index,
            std::clamp(filter->GetParameterInfo(index)->ToNormalized(values[i]), 0.0f, 1.0f));
    }
    filter->Resume();
    Signal out = conformance::MakeSilence(in.size(), kFrames);
    if (side) in.insert(in.end(), side->begin(), side->end());
    kraaudiofilterhost::Flags flags;
    filter->Process(At(in, 0).data(), At(out, 0).data(), static_cast<int>(kFrames), {}, flags);
    return out;
}

TEST_F(PluginProcessorTest, SoundsLikeTheEffectWhateverTheBlocksAndBuffers) {
    const std::vector<Delivery> runs{
        {"one block", {kFrames}},
        {"odd blocks", {1, 0, 7, 64, 2048, 1500}},
        {"in place", {256}, Buffers::kInPlace},
        {"crossed", {300, 1100}, Buffers::kCrossed},
    };
    for (const PluginInfo& info : DescribeAll()) {
        const Signal in = MakeNoise(info.format.channels, 1);
        Signal side = MakeNoise(info.sideChannels, 2);
        for (const bool drawn : {false, true}) {
            const Values values = drawn ? DrawValues(info, 3) : GetInitialValues(info);
            const bool hasSide = drawn && info.sideChannels > 0;
            const Signal expected = RenderEffect(info, values, in, hasSide ? &side : nullptr);
            PluginProcessor processor(info, kRateHz);
            processor.Start();
            for (const Delivery& run : runs) {
                SCOPED_TRACE(info.effect.slug + ' ' + std::string(info.format.name) + ", " +
                             std::string(run.name) + (drawn ? ", drawn values" : ""));
                processor.Start();
                const std::uint64_t findings = rtguard::CountFindings();
                {
                    const rtguard::Scope scope;
                    processor.SetSideChainUsed(hasSide);
                    SetControls(processor, values);
                    EXPECT_GE(processor.GetLatencyFrames(), 0);
                }
                EXPECT_EQ(rtguard::CountFindings(), findings) << rtguard::DescribeLast();
                EXPECT_EQ(DescribeDifference(Render(processor, run, in, hasSide ? &side : nullptr),
                                             expected),
                          "");
            }
        }
    }
}

/// A host sends what changed only, and the side chain's effect is another one.
TEST_F(PluginProcessorTest, SwitchingTheSideChainOnKeepsTheControls) {
    const Delivery run{"", {100, 1999}, Buffers::kInPlace};
    for (const PluginInfo& info : DescribeAll()) {
        if (info.sideChannels == 0) continue;
        SCOPED_TRACE(info.effect.slug + ' ' + std::string(info.format.name));
        const Signal in = MakeNoise(info.format.channels, 1);
        Signal side = MakeNoise(info.sideChannels, 2);
        const Values values = DrawValues(info, 3);
        PluginProcessor processor(info, kRateHz);
        processor.Start();
        SetControls(processor, values);
        processor.SetSideChainUsed(true);
        SetControls(processor, values);
        processor.Stop();
        processor.Start();
        EXPECT_EQ(DescribeDifference(Render(processor, run, in, &side),
                                     RenderEffect(info, values, in, &side)),
                  "");
    }
}

TEST_F(PluginProcessorTest, PutsOutTheInputInTimeWhenSwitchedOff) {
    const Delivery run{"", {100, 1999}, Buffers::kInPlace};
    for (const PluginInfo& info : DescribeAll()) {
        for (const unsigned seed : {1u, 2u, 3u}) {
            SCOPED_TRACE(info.effect.slug + ' ' + std::string(info.format.name));
            PluginProcessor processor(info, kRateHz);
            processor.Start();
            SetControls(processor, DrawValues(info, seed));
            processor.SetEnabled(false);
            const Signal in = MakeNoise(info.format.channels, seed);
            const Signal out = Render(processor, run, in, nullptr);
            Signal expected = conformance::MakeSilence(in.size(), kFrames);
            const auto latency =
                std::min(kFrames, static_cast<std::size_t>(processor.GetLatencyFrames()));
            for (std::size_t c = 0; c < in.size(); ++c)
                std::copy_n(in[c].begin(), kFrames - latency, expected[c].data() + latency);
            EXPECT_EQ(DescribeDifference(out, expected), "");
        }
    }
}

TEST_F(PluginProcessorTest, FadesWhenItIsSwitched) {
    PluginInfo info = Describe("amplify", "mono");
    PluginProcessor processor(info, kRateHz);
    processor.Start();
    processor.SetControl(0, 6.0f);
    Signal in{std::vector<float>(kFrames, 0.25f)};
    const float loud = RenderEffect(info, {6.0f}, in, nullptr)[0].back();
    for (const bool on : {true, false, true}) {
        processor.SetEnabled(on);
        const std::vector<float> out = Render(processor, {"", {333}}, in, nullptr)[0];
        EXPECT_FLOAT_EQ(out.back(), on ? loud : 0.25f);
        for (std::size_t i = 1; i < kFrames; ++i)
            ASSERT_LE(std::abs(out[i] - out[i - 1]), (loud - 0.25f) / 480.0f * 1.01f) << i;
    }
}

TEST_F(PluginProcessorTest, SwitchesOffWithTheSoundOfThatMoment) {
    const PluginInfo info = Describe("dynamics-processing", "mono");
    PluginProcessor processor(info, kRateHz);
    processor.Start();
    SetControls(processor, GetInitialValues(info));
    const Signal in = MakeNoise(1, 5);
    Render(processor, {"", {128}}, in, nullptr);
    processor.SetEnabled(false);
    const Signal off = Render(processor, {"", {128}}, in, nullptr);
    const auto latency = static_cast<std::size_t>(processor.GetLatencyFrames());
    // Then 10 ms of a fade, from the next block on.
    for (std::size_t i = latency + 128 + 480; i < kFrames; ++i)
        ASSERT_EQ(off[0][i], in[0][i - latency]) << i;
    for (std::size_t i = 1; i < latency; ++i) ASSERT_NE(off[0][i], 0.0f) << i;
}

TEST_F(PluginProcessorTest, TakesNumbersAsHostsSendThem) {
    PluginProcessor processor(Describe("amplify", "mono"), kRateHz);
    processor.Start();
    Signal in{std::vector<float>(kFrames, 0.001f)};
    const std::vector<std::pair<float, float>> values{
        // sent, taken in dB
        {6.0f, 6.0f},
        {1000.0f, 48.0f},
        {std::numeric_limits<float>::quiet_NaN(), 48.0f},
        {-std::numeric_limits<float>::infinity(), 48.0f},
        {-1000.0f, -96.0f},
    };
    for (const auto& [sent, taken] : values) {
        processor.SetControl(0, sent);
        const float got = Render(processor, {"", {512}}, in, nullptr)[0].back();
        EXPECT_NEAR(20.0f * std::log10(got / 0.001f), taken, 1e-3f) << sent;
    }
}

TEST_F(PluginProcessorTest, KeepsSettingsThatAreNoControls) {
    const PluginInfo info = Describe("gain-envelope", "stereo");
    ASSERT_TRUE(info.hasHiddenSettings);
    const AudioFilterPtr filter = CreateForFormat(info.effect, kRateHz, 2, 512);
    filter->SetCurrentDuration(kFrames / kRateHz);
    filter->SetFactoryPreset(FindFactoryPreset(*filter, "Fade Out 24 dB"));
    const std::string settings = SaveFilterSettings(*filter);

    PluginProcessor processor(info, kRateHz);
    processor.Start();
    const std::string before = processor.GetSettings();
    for (const std::string_view wrong : {"", "{}x", "{\"Params\": {\"$floats\": [1]}}"}) {
        EXPECT_FALSE(processor.LoadSettings(wrong)) << wrong;
        EXPECT_EQ(processor.GetSettings(), before);
    }
    ASSERT_TRUE(processor.LoadSettings(settings));
    SetControls(processor, GetInitialValues(info));
    const Signal in{2, std::vector<float>(kFrames, 1.0f)};
    const Signal out = Render(processor, {"", {512}}, in, nullptr);
    EXPECT_GT(out[0].front(), 0.9f);
    EXPECT_LT(out[0].back(), 0.1f);

    PluginProcessor other(info, kRateHz);
    other.Start();
    ASSERT_TRUE(other.LoadSettings(processor.GetSettings()));
    SetControls(other, GetInitialValues(info));
    EXPECT_EQ(DescribeDifference(Render(other, {"", {64}}, in, nullptr), out), "");
}

TEST_F(PluginProcessorTest, RunsBesideOthers) {
    const PluginInfo info = Describe("echo", "stereo");
    const Signal in = MakeNoise(2, 4);
    const Signal expected = RenderEffect(info, GetInitialValues(info), in, nullptr);
    std::vector<std::thread> threads;
    std::array<std::string, 4> differences;
    for (std::string& difference : differences)
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                PluginProcessor processor(info, kRateHz);
                processor.Start();
                SetControls(processor, GetInitialValues(info));
                difference +=
                    DescribeDifference(Render(processor, {"", {128}}, in, nullptr), expected);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(differences, testing::Each(""));
}

TEST_F(PluginProcessorTest, DescribesWhatHostsNeed) {
    for (const PluginInfo& info : DescribeAll()) {
        SCOPED_TRACE(info.effect.slug);
        for (const PluginControl& control : info.controls) {
            EXPECT_LT(control.lo, control.hi) << control.symbol;
            EXPECT_GE(control.initial, control.lo) << control.symbol;
            EXPECT_LE(control.initial, control.hi) << control.symbol;
            for (const auto& choice : control.choices) EXPECT_LE(choice.value, control.hi);
        }
        const auto presets = DescribePluginPresets(info);
        const AudioFilterPtr filter = info.effect.create();
        EXPECT_EQ(presets.size(), static_cast<std::size_t>(filter->GetNumFactoryPresets()));
        for (const PluginPreset& preset : presets) {
            EXPECT_NE(preset.identifier, "");
            EXPECT_EQ(preset.values.size(), info.controls.size());
        }
    }
    const PluginInfo chorus = Describe("chorus", "stereo");
    const PluginControl& voices = chorus.controls.front();
    EXPECT_EQ(voices.kind, PluginControl::Kind::kInteger);
    EXPECT_FLOAT_EQ(DescribePluginPresets(chorus)[2].values[0], 3.0f);  // "Twelve String"
    EXPECT_EQ(Describe("dynamics-processing", "surround51").sideChannels, 1u);
    EXPECT_EQ(Describe("echo", "stereo").sideChannels, 0u);
}

}  // namespace
}  // namespace zuc::host
