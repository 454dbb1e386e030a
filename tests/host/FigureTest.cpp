#include "host/Figure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/Error.h"
#include "host/FigureAxis.h"

namespace zuc::host {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string Texts(const Axis& axis, int count) {
    std::string texts;
    for (const AxisTick& tick : MakeTicks(axis, count))
        if (!tick.text.empty()) texts += (texts.empty() ? "" : " ") + tick.text;
    return texts;
}

TEST(Figure, TicksAreRoundNumbersInHumanUnits) {
    const struct {
        Axis axis;
        int count = 0;
        const char* texts = "";
    } rows[] = {
        {{"", -100, 0, AxisUnit::kDecibel}, 5, "-100 -80 -60 -40 -20 0"},
        {{"", -0.31, 0.32}, 7, "-0.3 -0.2 -0.1 0 0.1 0.2 0.3"},
        {{"", 0, 0.02, AxisUnit::kSeconds}, 4, "0 0.005 0.010 0.015 0.020"},
        {{"", 0, 200, AxisUnit::kSeconds}, 8, "0:00 0:30 1:00 1:30 2:00 2:30 3:00"},
        {{"", 20, 20000, AxisUnit::kHertz, AxisScale::kLogarithmic},
         10,
         "20 50 100 200 500 1k 2k 5k 10k 20k"},
        {{"", 20, 20000, AxisUnit::kHertz, AxisScale::kLogarithmic}, 5, "100 1k 10k"},
        {{"", 5, 5}, 4, "4.8 5.0 5.2"},
        {{"", 5, 4}, 1, "5.0"},
    };
    for (const auto& row : rows) EXPECT_EQ(Texts(row.axis, row.count), row.texts);
}

TEST(Figure, EscapesTextsAndNamesEachOnceInTheLegend) {
    Figure figure("A <b> & c", {"x", 0, 1}, 400, 400);
    for (int i = 0; i < 2; ++i)
        figure.AddPanel({"y", 0, 1}).AddLine({{0, 0}, {1, 1}}, "\"curve\"", {});
    const std::string svg = figure.ToSvg();
    EXPECT_THAT(svg, HasSubstr("A &lt;b&gt; &amp; c"));
    const auto first = svg.find("&quot;curve&quot;");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(svg.find("&quot;curve&quot;", first + 1), std::string::npos);
}

TEST(Figure, LongTitlesAreCutBetweenCharacters) {
    std::string title;
    for (int i = 0; i < 200; ++i) title += "é";
    Figure figure(title, {"x", 0, 1}, 400, 400);
    figure.AddPanel({"y", 0, 1});
    const std::string svg = figure.ToSvg();
    EXPECT_THAT(svg, HasSubstr("éé…</text>"));
    EXPECT_THAT(svg, HasSubstr("<title>" + title + "</title>"));
}

TEST(Figure, LinesBreakAtValuesThatAreNotFiniteAndStayBounded) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char* what = "";
        std::vector<FigurePoint> points;
        int lines = 0;
    } rows[] = {
        {"one run", {{0, 0}, {0.5, 1}, {1, 0}}, 1},
        {"a gap", {{0, 0}, {0.2, 1}, {0.5, nan}, {0.7, 0}, {1, 1}}, 2},
        {"single points draw nothing", {{0, 0}, {0.5, nan}, {1, 0}}, 0},
        {"far outside", {{0, -1e300}, {1, 1e300}}, 1},
    };
    for (const auto& row : rows) {
        Figure figure("t", {"x", 0, 1}, 400, 400);
        figure.AddPanel({"y", 0, 1}).AddLine(row.points, "", {3, 7.0});
        const std::string svg = figure.ToSvg();
        int lines = 0;
        for (auto at = svg.find("stroke-width=\"7\""); at != std::string::npos;
             at = svg.find("stroke-width=\"7\"", at + 1))
            ++lines;
        EXPECT_EQ(lines, row.lines) << row.what;
        EXPECT_THAT(svg, Not(HasSubstr("nan"))) << row.what;
        EXPECT_THAT(svg, Not(HasSubstr("inf"))) << row.what;
        EXPECT_LT(svg.size(), 20000u) << row.what;
    }
}

TEST(Figure, PngHasTwicePixelsAndOtherKindsAreRefused) {
    Figure figure("t", {"x", 0, 1}, 300, 200);
    figure.AddPanel({"y", 0, 1}).AddBand({{0, 0, 1}, {1, 0.2, 0.4}}, "band", {});
    const std::string png = figure.ToPng();
    ASSERT_GT(png.size(), 100u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    const auto size = [&](std::size_t at) {
        return static_cast<unsigned char>(png[at + 2]) * 256 +
               static_cast<unsigned char>(png[at + 3]);
    };
    EXPECT_EQ(size(16), 600);
    EXPECT_EQ(size(20), 400);
    try {
        figure.Save("picture.gif");
        FAIL() << "a GIF was written";
    } catch (const Error& error) {
        EXPECT_EQ(error.GetCode(), ExitCode::kUsage);
    }
}

}  // namespace
}  // namespace zuc::host
