#include "Components/private/amplitude/TransferCurve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "Components/private/amplitude/GainTable.h"

namespace zuc::components {
namespace {

using Point = TransferCurve::Point;

TransferCurve MakeCurve(const std::vector<Point>& points, bool isSpline, bool gates = false) {
    TransferCurve::Shape shape;
    std::copy(points.begin(), points.end(), shape.points.begin());
    shape.count = points.size();
    shape.isSpline = isSpline;
    shape.gates = gates;
    TransferCurve curve;
    curve.SetShape(shape);
    return curve;
}

const std::vector<Point> kKnee{{-100, -100}, {-40, -28.3}, {-24, -17.6}, {-10, -12}, {0, -10}};

struct CurveRow {
    const char* name;
    std::vector<Point> points;
    bool isSpline;
    double inDb;
    double outDb;
    double slopeBelowZero;
};

TEST(TransferCurve, AnswersEveryCase) {
    const CurveRow rows[] = {
        {"no points are unity", {}, false, -33, -33, 1},
        {"no points are unity as a spline", {}, true, 12, 12, 1},
        {"one point is constant", {{-50, -20}}, false, -90, -20, 0},
        {"one point is constant as a spline", {{-50, -20}}, true, 0, -20, 0},
        {"below the first point", {{-60, -70}, {0, 0}}, false, -80, -70, 70.0 / 60},
        {"on a segment", kKnee, false, -32, -22.95, 0.2},
        {"on a point", kKnee, false, -24, -17.6, 0.2},
        {"above the last point", {{-90, -90}, {-20, -30}}, false, -5, -30, 0},
        {"the first two share a location", {{-50, -60}, {-50, -20}, {0, 0}}, false, -70, -40, 0.4},
        {"later ones share a location, below",
         {{-90, -90}, {-50, -60}, {-50, -20}},
         false,
         -50,
         -60,
         0},
        {"later ones share a location, above",
         {{-90, -90}, {-50, -60}, {-50, -20}},
         false,
         -49,
         -20,
         0},
        {"both at 0 dB", {{0, -10}, {0, -5}}, false, -30, 0, 0},
        {"an upright end at 0 dB", {{-50, -50}, {0, -10}, {0, -5}}, false, 0, -10, 0.8},
        {"a spline keeps its points", kKnee, true, -24, static_cast<float>(-17.6), 0},
        {"a spline below its points", kKnee, true, -120, -100, 0},
        {"locations that go back are straight",
         {{-100, -100}, {-20, -20}, {-40, -10}, {0, 0}},
         true,
         -60,
         -60,
         0.25},
        {"equal locations are straight", {{-50, -60}, {-50, -20}, {0, 0}}, true, -70, -40, 0.4},
    };
    for (const CurveRow& row : rows) {
        const TransferCurve curve = MakeCurve(row.points, row.isSpline);
        EXPECT_NEAR(curve.GetOutputDb(row.inDb), row.outDb, 1e-9) << row.name;
        if (!row.isSpline || row.points.size() < 2) {
            EXPECT_NEAR(curve.GetSlopeBelowZero(), row.slopeBelowZero, 1e-9) << row.name;
        }
        EXPECT_EQ(curve.GetMuteDb(), -std::numeric_limits<double>::infinity()) << row.name;
    }
    const TransferCurve spline = MakeCurve(kKnee, true);
    EXPECT_NEAR(spline.GetSlopeBelowZero(),
                (spline.GetOutputDb(0) - spline.GetOutputDb(-0.01)) / 0.01, 1e-2);
}

TEST(TransferCurve, GatesMuteBelowTheSteepestSegment) {
    const double none = -std::numeric_limits<double>::infinity();
    const struct {
        const char* name;
        std::vector<Point> points;
        double muteDb;
    } rows[] = {
        {"50:1 is not steep enough", {{-100, -100}, {-51, -100}, {-50, -50}, {0, 0}}, none},
        {"51:1 is", {{-100, -100}, {-51, -100}, {-50, -49}, {0, 0}}, -50},
        {"the highest one counts", {{-90, -100}, {-90, -50}, {-30, -30}, {-29, 0}}, -90},
        {"an upright fall is no gate", {{-90, -10}, {-90, -50}, {0, 0}}, none},
        {"falling curves are no gates", {{-90, -10}, {-89, -90}, {0, 0}}, none},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(MakeCurve(row.points, false, true).GetMuteDb(), row.muteDb) << row.name;
        EXPECT_EQ(MakeCurve(row.points, false, false).GetMuteDb(), none) << row.name;
    }
    EXPECT_EQ(MakeCurve(rows[1].points, true, true).GetOutputDb(-50.5), -100.0);
    GainTable table;
    table.Build(MakeCurve(rows[1].points, false, true));
    float gains[] = {-49.9f, -50.1f, -99.0f, -200.0f};
    table.LookUp(gains, gains, 4);
    EXPECT_NEAR(20.0f * std::log10(gains[0]), 1.0f, 0.05f);
    for (int i = 1; i < 4; ++i) EXPECT_EQ(gains[i], 0.0f) << i;
}

TEST(GainTable, FollowsTheCurveAtEveryLevel) {
    const struct {
        const char* name;
        std::vector<Point> points;
        bool isSpline;
    } rows[] = {
        {"unity", {{-100, -100}, {-20, -20}, {0, 0}}, false},
        {"knee", kKnee, false},
        {"spline", kKnee, true},
        {"flat", {{-100, 0}, {0, 0}}, false},
        {"steep at the top", {{-100, -100}, {-1, -100}, {0, 0}}, false},
        {"upside down", {{-100, 0}, {0, -100}}, false},
    };
    for (const auto& row : rows) {
        const TransferCurve curve = MakeCurve(row.points, row.isSpline);
        GainTable table;
        table.Build(curve);
        for (int step = 0; step < 1700; ++step) {
            const double level = -99.98 + 0.0937 * step;
            const auto in = static_cast<float>(level);
            float gain = 0.0f;
            table.LookUp(&gain, &in, 1);
            const double above = std::max(level, 0.0);
            const double outDb =
                curve.GetOutputDb(level - above) + curve.GetSlopeBelowZero() * above;
            const double expected = std::min(outDb - level, 100.0);
            // Interpolating a gain between entries 0.0122 dB apart costs at most this.
            const double tolerance = 2e-4 + 1e-3 * std::fabs(curve.GetSlopeBelowZero() - 1.0);
            ASSERT_NEAR(20.0 * std::log10(gain), expected, tolerance) << row.name << ", " << level;
        }
        for (const float extreme : {-200.0f, -100.0f, 300.0f, 1e30f}) {
            float gain = -1.0f;
            table.LookUp(&gain, &extreme, 1);
            ASSERT_TRUE(std::isfinite(gain) && gain >= 0.0f) << row.name << ", " << extreme;
        }
    }
}

}  // namespace
}  // namespace zuc::components
