#include "kraaudiodsp/LogFade.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace dsp {
namespace {

TEST(LogFade, BendsHaveTheAskedHeightAndAreMirrored) {
    EXPECT_EQ(GetLogVerticalModifier(0.5), 0.0);
    EXPECT_NEAR(GetLogVerticalModifier(kEqualPowerFadeShapeValue), 5.5737762, 1e-6);
    EXPECT_EQ(GetLogVerticalModifier(0.0), GetLogVerticalModifier(0.05));
    EXPECT_EQ(GetLogVerticalModifier(1.0), GetLogVerticalModifier(0.95));
    for (int step = 0; step <= 72; ++step) {
        const double height = 0.05 + 0.0125 * step;
        const double bend = GetLogVerticalModifier(height);
        const double mirrored = GetLogVerticalModifier(1.0 - height);
        EXPECT_NEAR(CalculateLogFadeValue(0.5, bend), height, 1e-9);
        EXPECT_EQ(CalculateLogFadeValue(0.0, bend), 0.0);
        EXPECT_EQ(CalculateLogFadeValue(1.0, bend), 1.0);
        EXPECT_EQ(CalculateLogFadeValue(7.0, bend), 1.0);
        double before = -1.0;
        for (int i = 0; i <= 1000; ++i) {
            const double p = i / 1000.0;
            const double value = CalculateLogFadeValue(p, bend);
            ASSERT_GT(value, before) << "height " << height << " at " << p;
            ASSERT_NEAR(CalculateLogFadeValue(p, mirrored),
                        1.0 - CalculateLogFadeValue(1.0 - p, bend), 1e-6);
            before = value;
        }
    }
}

TEST(LogFade, ComplementaryFadesKeepThePower) {
    struct Row {
        double height;
        double correlation;  // of the two sounds
        double lowestDb;
        double highestDb;
    };
    for (const Row& row :
         {Row{kEqualPowerFadeShapeValue, 0.0, -0.163, 0.0001}, Row{0.7171, 0.0, -0.1223, 0.1223},
          Row{kDefaultFadeShapeValue, 0.0, -1.5, 0.0}, Row{kDefaultFadeShapeValue, 0.35, -0.5, 0.0},
          Row{kDefaultFadeShapeValue, 0.9, 0.0, 1.4}}) {
        const double bend = GetLogVerticalModifier(row.height);
        for (int i = 0; i <= 10'000; ++i) {
            const double in = CalculateLogFadeValue(i / 1e4, bend);
            const double out = CalculateLogFadeValue(1.0 - i / 1e4, bend);
            const double db =
                10.0 * std::log10(in * in + out * out + 2.0 * row.correlation * in * out);
            ASSERT_GE(db, row.lowestDb) << row.height << " at " << i;
            ASSERT_LE(db, row.highestDb) << row.height << " at " << i;
        }
    }
}

}  // namespace
}  // namespace dsp
