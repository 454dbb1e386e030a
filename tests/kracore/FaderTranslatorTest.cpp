#include "kracore/FaderTranslator.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace kracore::utility {
namespace {

template <class Float>
class FaderTranslatorTest : public testing::Test {};
using Floats = testing::Types<float, double>;
TYPED_TEST_SUITE(FaderTranslatorTest, Floats);

TYPED_TEST(FaderTranslatorTest, EndsAndKnee) {
    using Float = TypeParam;
    constexpr Float kInfinity = std::numeric_limits<Float>::infinity();
    constexpr Float kNan = std::numeric_limits<Float>::quiet_NaN();
    const FaderTranslator<Float> fader;
    // a position and its level in dB; outside the range the ends hold
    const Float positions[][2] = {
        {0, -kInfinity}, {-1, -kInfinity}, {kNan, -kInfinity}, {Float(0.4), -30}, {Float(0.8), 0},
        {1, 15},         {2, 15}};
    for (const auto& [position, decibels] : positions) {
        if (std::isinf(decibels)) {
            EXPECT_EQ(fader.GetDecibelValue(position), decibels) << position;
        } else {
            EXPECT_NEAR(fader.GetDecibelValue(position), decibels, 1e-5) << position;
        }
    }
    EXPECT_EQ(fader.GetNormalizedValue(-kInfinity), 0);
    EXPECT_EQ(fader.GetNormalizedValue(kNan), 0);
    EXPECT_EQ(fader.GetNormalizedValue(15), 1);
    EXPECT_EQ(fader.GetNormalizedValue(kInfinity), 1);
    EXPECT_NEAR(fader.GetNormalizedValue(0), 0.8, 1e-7);
    EXPECT_EQ(FaderTranslator<Float>(6).GetDecibelValue(1), 6);
    // The slope does not jump at the knee.
    const Float knee = Float(0.4), step = Float(0.001);
    const Float below = fader.GetDecibelValue(knee) - fader.GetDecibelValue(knee - step);
    const Float above = fader.GetDecibelValue(knee + step) - fader.GetDecibelValue(knee);
    EXPECT_NEAR(below / above, 1, 0.005);
}

TYPED_TEST(FaderTranslatorTest, MonotoneWithExactInverse) {
    using Float = TypeParam;
    constexpr int kSteps = 20'000;
    for (const Float maximumDb : {Float(0), Float(6), Float(15), Float(96)}) {
        const FaderTranslator<Float> fader(maximumDb);
        Float previous = -std::numeric_limits<Float>::infinity();
        for (int i = 1; i <= kSteps; ++i) {
            const Float position = Float(i) / kSteps;
            const Float decibels = fader.GetDecibelValue(position);
            ASSERT_GT(decibels, previous) << position;
            // The rounding of the level counts too: 30 dB below the knee are a factor of e.
            const Float units = 4 + std::abs(decibels) / 30;
            ASSERT_NEAR(fader.GetNormalizedValue(decibels), position,
                        units * std::numeric_limits<Float>::epsilon() * position);
            previous = decibels;
        }
    }
}

}  // namespace
}  // namespace kracore::utility
