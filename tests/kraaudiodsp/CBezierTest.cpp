#include "kraaudiodsp/CBezier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace dsp {
namespace {

using Points = std::vector<double>;  // x, y, x, y, ...

CBezier MakeCurve(const Points& xy) {
    CBezier curve;
    curve.SetPoints(static_cast<int>(xy.size() / 2), xy.data());
    return curve;
}

TEST(CBezier, AnswersTheDegenerateCases) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char* name;
        Points points;
        double x;
        float y;
    } rows[] = {
        {"no points", {}, 3, 0},
        {"one point, below", {1, 5}, -7, 5},
        {"one point, above", {1, 5}, 7, 5},
        {"two points are a straight line", {0, 0, 4, 8}, 1, 2},
        {"flat below", {0, 1, 4, 8}, -1, 1},
        {"flat above", {0, 1, 4, 8}, 5, 8},
        {"of equal x the later wins", {0, 0, 2, 1, 2, 4, 4, 4}, 2, 4},
        {"equal x at the start", {0, 9, 0, 2, 4, 2}, 0, 2},
        {"equal x at the end", {0, 2, 4, 2, 4, 7}, 4, 7},
        {"a point that goes back is left out", {0, 0, 4, 4, 2, 9, 8, 8}, 2, 2},
        {"a point that is not finite is left out", {0, 0, nan, 1, 4, 8}, 1, 2},
        {"no number is the first value", {0, 3, 4, 8}, nan, 3},
        {"a straight line in three points", {0, 0, 1, 2, 4, 8}, 3, 6},
        {"an extremum is flat", {0, 0, 1, 1, 2, 0}, 1, 1},
    };
    for (const auto& row : rows)
        EXPECT_FLOAT_EQ(MakeCurve(row.points).GetBezier(row.x), row.y) << row.name;
}

/// Ascending x with uneven spacing and random y; every fourth step is level.
Points RandomPoints(std::mt19937& random, bool monotone) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const int count = 2 + static_cast<int>(random() % 9);
    Points points;
    double x = -100.0;
    double y = -100.0;
    for (int i = 0; i < count; ++i) {
        points.insert(points.end(), {x, y});
        x += std::pow(10.0, 3.0 * unit(random) - 2.0);
        const double step = random() % 4 == 0 ? 0.0 : std::pow(10.0, 4.0 * unit(random) - 2.0);
        y += monotone || random() % 2 ? step : -step;
    }
    return points;
}

TEST(CBezier, PassesThroughEveryPointAndStaysBetweenNeighbours) {
    std::mt19937 random(3);
    for (int set = 0; set < 100000; ++set) {
        const bool monotone = set % 2 == 0;
        const Points points = RandomPoints(random, monotone);
        const CBezier curve = MakeCurve(points);
        float before = -std::numeric_limits<float>::infinity();
        for (std::size_t i = 0; i + 2 < points.size(); i += 2) {
            const double* at = points.data() + i;
            ASSERT_EQ(curve.GetBezier(at[0]), static_cast<float>(at[1])) << set;
            const auto lo = static_cast<float>(std::min(at[1], at[3]));
            const auto hi = static_cast<float>(std::max(at[1], at[3]));
            for (const double t : {0.01, 0.3, 0.5, 0.77, 0.99}) {
                const float y = curve.GetBezier(at[0] + t * (at[2] - at[0]));
                ASSERT_TRUE(y >= lo && y <= hi) << set << ": " << y << " in " << lo << ", " << hi;
                ASSERT_TRUE(!monotone || y >= before) << set;
                before = y;
            }
        }
        ASSERT_EQ(curve.GetBezier(points[points.size() - 2]), static_cast<float>(points.back()));
    }
}

TEST(CBezier, HasNoJumpsInSlope) {
    const CBezier curve =
        MakeCurve({-100, -100, -40, -28.3, -24, -17.6, -20, -19, -10, -12, -9.5, -11.9, 0, 0});
    const auto slope = [&](double x) {
        return (static_cast<double>(curve.GetBezier(x + 1e-2)) - curve.GetBezier(x)) / 1e-2;
    };
    for (const double x : {-40.0, -24.0, -20.0, -10.0, -9.5}) {
        EXPECT_NEAR(slope(x - 1e-2), slope(x), 0.05) << "at " << x;
        EXPECT_NEAR(curve.GetSlope(x), slope(x), 0.05) << "at " << x;
    }
    for (const double x : {-70.0, -30.0, -22.0, -3.0})
        EXPECT_NEAR(curve.GetSlope(x), slope(x - 5e-3), 0.01) << "at " << x;
    for (const double x : {-101.0, -100.0, 0.1}) EXPECT_EQ(curve.GetSlope(x), 0.0) << "at " << x;
}

TEST(CBezier, SamplesInStepsAsOneByOne) {
    const CBezier curve = MakeCurve({-100, -100, -40, -28.3, -24, -17.6, -10, -12, 0, -10});
    const struct {
        double x0;
        double dx;
    } rows[] = {{-120, 0.37}, {20, -0.41}, {-24, 0}, {-100, 8}, {5, 1}};
    for (const auto& row : rows) {
        std::vector<float> samples(400);
        curve.GetBeziers(row.x0, row.dx, 400, samples.data());
        for (int i = 0; i < 400; ++i)
            ASSERT_EQ(samples[static_cast<std::size_t>(i)], curve.GetBezier(row.x0 + i * row.dx))
                << row.x0 << " + " << i << " * " << row.dx;
    }
}

}  // namespace
}  // namespace dsp
