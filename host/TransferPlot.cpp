#include "host/TransferPlot.h"

#include <cmath>
#include <vector>

#include <fmt/format.h>

#include "host/Error.h"
#include "host/Parameters.h"
#include "kracore/WStr.h"

namespace zuc::host {
namespace {

constexpr double kLowestDb = -100.0;    // where curve data begins; it ends at 0 dB
constexpr std::size_t kSamples = 1001;  // one for each 0.1 dB
constexpr double kPixels = 640.0;

/// The value of the parameter with this identifier in its own unit; not a number without it.
double ValueOf(const std::vector<Parameter>& parameters, const std::string& identifier) {
    for (const Parameter& parameter : parameters)
        if (parameter.info->GetIdentifier() == identifier)
            return parameter.info->FromNormalized(parameter.normalized);
    return std::nan("");
}

std::vector<FigurePoint> FindPoints(const std::vector<Parameter>& parameters) {
    const double count = ValueOf(parameters, "XYCount");
    std::vector<FigurePoint> points;
    for (int i = 1; i <= std::lround(std::isfinite(count) ? count : 0.0); ++i)
        points.push_back({ValueOf(parameters, fmt::format("Location{}", i)),
                          ValueOf(parameters, fmt::format("Value{}", i))});
    return points;
}

}  // namespace

Figure PlotTransfer(kraaudiofilterhost::AudioFilter& filter, const std::string& title) {
    std::vector<float> samples;
    const auto parameters = GetParameters(filter);
    if (filter.GetCurveData(0, kSamples, samples) == 0 || !filter.CanUseSideChaining())
        throw Error(ExitCode::kUsage,
                    kracore::utility::ToUtf8(filter.GetDisplayName()) + " has no transfer curve",
                    "", "for example -e 'dynamics:preset=Classic Soft Knee'");
    std::vector<FigurePoint> curve;
    for (std::size_t i = 0; i < samples.size(); ++i)
        curve.push_back(
            {kLowestDb - kLowestDb * static_cast<double>(i) / (kSamples - 1), samples[i]});
    Figure figure(title, {"Input level (dB)", kLowestDb, 0.0, AxisUnit::kDecibel}, kPixels,
                  kPixels);
    FigurePanel& panel = figure.AddPanel({"Output level (dB)", kLowestDb, 0.0, AxisUnit::kDecibel});
    panel.AddLine({{kLowestDb, kLowestDb}, {0.0, 0.0}}, "unity gain",
                  {FigureStyle::kGrey, 1.5, true});
    panel.AddLine(curve, "curve", {0, 2.5});
    const std::vector<FigurePoint> points = FindPoints(parameters);
    panel.AddPoints(points, "points (input, output)", {1, 4.5});
    for (const FigurePoint& point : points)
        panel.AddLabel(point, fmt::format("{:.4g}, {:.4g}", point.x, point.y));
    return figure;
}

}  // namespace zuc::host
