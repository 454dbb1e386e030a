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

TYPED_TEST(FaderTranslatorTest, EndsAndUnity) {
    using Float = TypeParam;
    constexpr Float kInfinity = std::numeric_limits<Float>::infinity();
    constexpr Float kNan = std::numeric_limits<Float>::quiet_NaN();
    const FaderTranslator<Float> fader;
    for (const Float silent : {Float(0), Float(-1), kNan})
        EXPECT_EQ(fader.GetDecibelValue(silent), -kInfinity) << silent;
    EXPECT_EQ(fader.GetDecibelValue(1), 6);
    EXPECT_EQ(fader.GetDecibelValue(2), 6);
    EXPECT_EQ(fader.GetNormalizedValue(-kInfinity), 0);
    EXPECT_EQ(fader.GetNormalizedValue(kNan), 0);
    EXPECT_EQ(fader.GetNormalizedValue(6), 1);
    EXPECT_EQ(fader.GetNormalizedValue(kInfinity), 1);
    // a maximum and the position of 0 dB
    const double unities[][2] = {{0, 1}, {3, 0.8913}, {6, 0.8}, {12, 0.8}, {15, 0.8}};
    for (const auto& [maximumDb, position] : unities)
        EXPECT_NEAR(FaderTranslator<Float>(static_cast<Float>(maximumDb)).GetNormalizedValue(0),
                    position, 1e-4)
            << maximumDb;
    EXPECT_NEAR(fader.GetDecibelValue(Float(0.5)), -12.638, 1e-3);
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
            // The rounding of the level counts too: 60 dB and more are a factor of ten.
            const Float units = 4 + std::abs(decibels) / 20;
            ASSERT_NEAR(fader.GetNormalizedValue(decibels), position,
                        units * std::numeric_limits<Float>::epsilon() * position);
            previous = decibels;
        }
    }
}

}  // namespace
}  // namespace kracore::utility
