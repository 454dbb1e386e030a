#include "host/GainPlot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "host/ChainProcessor.h"
#include "host/Error.h"
#include "host/TransferPlot.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

constexpr int kRateHz = 48000;
/// One point makes the curve flat: the gain is -40 dB less the level at once.
constexpr const char* kLeveler =
    "dynamics:xy-count=1,location-1=-100,value-1=-40,leve-attack-time=0,level-release-time=0,"
    "gain-attack-time=0,gain-release-time=0,high-cutoff=24kHz,makeup-gain=6dB";

class GainPlotTest : public testing::Test {
protected:
    /// Steady tones (all samples at +-level), each of half a second.
    std::unique_ptr<AudioReader> MakeFile(const std::string& name,
                                          const std::vector<double>& levelsDb) const {
        Channels samples(1);
        for (const double levelDb : levelsDb)
            for (int i = 0; i < kRateHz / 2; ++i)
                samples[0].push_back((i & 2 ? -1.0f : 1.0f) *
                                     static_cast<float>(std::pow(10.0, levelDb / 20.0)));
        AudioWriterOptions options;
        options.path = folder_ / name;
        options.samples = SampleFormat::kFloat32;
        options.rateHz = kRateHz;
        options.channels = 1;
        AudioWriter writer(options, {});
        writer.Write(Pointers(samples).data(), static_cast<int>(samples[0].size()));
        writer.Commit();
        return AudioReader::Open(folder_ / name);
    }

    TestFolder folder_;
};

TEST_F(GainPlotTest, MeasuresTheGainOfEveryStep) {
    const struct {
        const char* name;
        std::vector<const char*> steps;
        bool isExact;
        double gainsDb[2];  // over -20 dB and over -10 dB
        double outputsDb[2];
    } rows[] = {
        {"a ratio of powers", {"amplify:gain=-6dB"}, false, {-6, -6}, {-26, -16}},
        {"the envelope itself", {kLeveler}, true, {-20, -30}, {-34, -34}},
        {"behind latency",
         {"dynamics:lookahead-time=77ms", kLeveler},
         true,
         {-20, -30},
         {-34, -34}},
        {"not the last one", {kLeveler, "amplify:gain=-6dB"}, false, {-20, -30}, {-40, -40}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Chain chain;
        for (const char* step : row.steps) chain.push_back(ParseStepText(step));
        const auto reader = MakeFile("in.wav", {-20, -10});
        const GainTrace trace =
            MeasureGain(*reader, {}, chain, EffectCatalogue(), UserPresets(), nullptr);
        EXPECT_EQ(trace.isGainExact, row.isExact);
        ASSERT_EQ(trace.steps.size(), 100u) << "latency is taken off";
        for (const std::size_t i : {20u, 45u, 55u, 95u}) {
            const auto& step = trace.steps[i];
            EXPECT_NEAR(10 * std::log10(step.inputPower), i < 50 ? -20 : -10, 0.01) << i;
            EXPECT_NEAR(step.gainLoDb, row.gainsDb[i / 50], 0.1) << i;
            EXPECT_NEAR(10 * std::log10(step.outputPower), row.outputsDb[i / 50], 0.1) << i;
            EXPECT_FLOAT_EQ(step.inputHi, -step.inputLo);
        }
    }
}

TEST_F(GainPlotTest, TakesRangesAndSideChains) {
    const auto reader = MakeFile("in.wav", {-20, -20, -20});
    const auto side = MakeFile("side.wav", {-50, -10});
    const GainTrace trace = MeasureGain(*reader, {0.25, 1.25}, {ParseStepText(kLeveler)},
                                        EffectCatalogue(), UserPresets(), side.get());
    EXPECT_EQ(trace.beginSeconds, 0.25);
    ASSERT_EQ(trace.steps.size(), 100u);
    EXPECT_NEAR(trace.steps[20].gainLoDb, 10.0, 0.1);
    EXPECT_NEAR(trace.steps[60].gainLoDb, -30.0, 0.1);
    EXPECT_THAT(PlotGain(trace, "Title").ToSvg(), testing::HasSubstr("gain of the envelope"));
}

TEST_F(GainPlotTest, ShowsMetersWhereTheSoundIs) {
    const auto reader = MakeFile("in.wav", {-20, -3, -20});
    const GainTrace trace =
        MeasureGain(*reader, {},
                    {ParseStepText("amplify"),
                     ParseStepText("hard-limiter:ceiling=-9dB,true-peak=off,release=10ms")},
                    EffectCatalogue(), UserPresets(), nullptr);
    ASSERT_EQ(trace.meters.size(), 1u);
    EXPECT_EQ(trace.meters[0].name, "Gain Reduction");
    const auto& values = trace.meters[0].valuesDb;
    ASSERT_GE(values.size(), 149u);
    for (const std::size_t i : {10u, 47u}) EXPECT_NEAR(values[i], 0.0, 0.01) << i;
    for (const std::size_t i : {52u, 75u, 98u}) EXPECT_NEAR(values[i], -6.0, 0.01) << i;
    EXPECT_GT(values[140], -1.0);
    EXPECT_THAT(PlotGain(trace, "Title").ToSvg(), testing::HasSubstr("Gain Reduction"));
}

TEST(TransferPlot, ShowsTheCurveOfEffectsThatHaveOne) {
    const auto make = [](const char* step) {
        return ChainProcessor({ParseStepText(step)}, EffectCatalogue(), UserPresets(), 48000.0f, 2,
                              512);
    };
    const auto knee = make("dynamics:preset=Classic Soft Knee");
    const std::string svg = PlotTransfer(*knee.GetFilters().front(), "Knee").ToSvg();
    EXPECT_THAT(svg, testing::HasSubstr(">-40, -28.3<"));
    EXPECT_THAT(svg, testing::Not(testing::HasSubstr("nan")));
    for (const char* step : {"amplify", "dynamics:xy-count=0"}) {
        const auto chain = make(step);
        EXPECT_THROW(PlotTransfer(*chain.GetFilters().front(), ""), Error) << step;
    }
}

}  // namespace
}  // namespace zuc::host
