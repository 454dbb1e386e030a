#include "host/ResponsePlot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace zuc::host {
namespace {

ImpulseResponses Measure(const std::string& step, std::size_t channels = 2) {
    ChainProcessor chain({ParseStepText(step)}, EffectCatalogue(), UserPresets(), 48000.0f,
                         channels, 512);
    return MeasureImpulseResponses(chain, 48000.0f, 0.7);
}

TEST(ResponsePlot, MeasuresEveryChannelIntoEveryOther) {
    const auto delay =
        Measure("delay:left-delay-time=10ms,left-mix=40%,right-mix=0%,right-invert=on");
    ASSERT_EQ(delay.latencyFrames, 24100);
    EXPECT_EQ(delay.channelNames, (std::vector<std::string>{"Left", "Right"}));
    EXPECT_FLOAT_EQ(delay.frames[0][0][24100], 0.6f);
    EXPECT_FLOAT_EQ(delay.frames[0][0][24580], 0.4f);
    EXPECT_EQ(delay.frames[1][1][24100], 1.0f);
    EXPECT_EQ(delay.frames[1][0], std::vector<float>(delay.frames[1][0].size()));

    const auto bounce = Measure("echo:preset=Spooky,delay-left=100ms,delay-right=100ms");
    const auto isHeardAt = [&](std::size_t in, std::size_t out, std::size_t frame) {
        const auto& response = bounce.frames[in][out];
        return std::any_of(response.begin() + static_cast<std::ptrdiff_t>(frame),
                           response.begin() + static_cast<std::ptrdiff_t>(frame) + 300,
                           [](float x) { return std::fabs(x) > 1e-3f; });
    };
    for (const std::size_t in : {0u, 1u})
        for (std::size_t n = 1; n < 6; ++n) {
            EXPECT_EQ(isHeardAt(in, in, 4800 * n), n % 2 == 0) << n;
            EXPECT_EQ(isHeardAt(in, 1 - in, 4800 * n), n % 2 == 1) << n;
        }
    EXPECT_EQ(Measure("amplify", 1).channelNames.size(), 1u);
}

TEST(ResponsePlot, MagnitudesAreThoseOfTheResponse) {
    // A sound and itself one millisecond later: a comb with notches at odd multiples of 500 Hz.
    std::vector<float> comb(480);
    comb[0] = comb[48] = 0.5f;
    const Magnitude magnitude = MeasureMagnitude(comb, 48000.0);
    EXPECT_NEAR(magnitude.mean.front().x, 20.0, 0.1);
    EXPECT_NEAR(magnitude.mean.back().x, 24000.0, 100.0);
    for (std::size_t i = 0; i < magnitude.mean.size() / 2; ++i) {
        const auto& [hz, db] = magnitude.mean[i];
        const double expected = std::fabs(std::cos(std::numbers::pi * hz * 0.001));
        if (expected > 0.1) {
            EXPECT_NEAR(db, 20.0 * std::log10(expected), 0.1) << hz;
        }
        EXPECT_LE(magnitude.range[i].lo, db + 1e-9);
        EXPECT_GE(magnitude.range[i].hi, db - 1e-9);
    }
    // Steps at the top are wider than a notch, so that each holds more than one level.
    EXPECT_LT(magnitude.range.back().lo, magnitude.range.back().hi - 0.5);
}

TEST(ResponsePlot, PicturesNameWhatIsHeard) {
    const auto contains = [](const Figure& figure, const char* text) {
        return figure.ToSvg().find(text) != std::string::npos;
    };
    const auto bounce = Measure("echo:preset=Synthesizing SMPTE");
    EXPECT_TRUE(contains(PlotFrequencyResponses(bounce, "t"), "Left to Right"));
    EXPECT_TRUE(contains(PlotImpulseResponses(bounce, "t"), "level (dB)"));
    const auto target = [](const char* steps) {
        Chain chain{ParseStepText(steps)};
        if (std::string(steps).starts_with("para")) chain.push_back(chain.front());
        const ChainProcessor processor(chain, EffectCatalogue(), UserPresets(), 48000.0f, 2, 512);
        return GetTargetMagnitude(processor, 48000.0f);
    };
    const auto twice = target("parametric-equalizer:output-gain=-3dB");
    ASSERT_FALSE(twice.empty());
    EXPECT_NEAR(twice.back().x, 24000.0, 0.1);
    EXPECT_NEAR(twice.back().y, -6.0, 1e-3) << "both effects count";
    EXPECT_TRUE(contains(PlotFrequencyResponses(bounce, "t", twice), "analog target"));
    EXPECT_TRUE(target("amplify").empty()) << "tells no target";
    const auto plain = Measure("amplify");
    EXPECT_FALSE(contains(PlotFrequencyResponses(plain, "t"), "Left to Right"));
    EXPECT_TRUE(contains(PlotImpulseResponses(plain, "t"), "amplitude")) << "a short response";
}

}  // namespace
}  // namespace zuc::host
