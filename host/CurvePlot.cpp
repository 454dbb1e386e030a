#include "host/CurvePlot.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "Components/EnvelopeBase.h"
#include "host/Error.h"

namespace zuc::host {
namespace {

constexpr int kPoints = 2000;  // of a line
constexpr double kDefaultSeconds = 10.0;
constexpr double kPanelHeight = 260.0;
constexpr double kSilenceDb = -96.0;  // the lowest level that is drawn

/// One curve in its own unit over time.
struct Plot {
    std::string name;  // "echo: Decay (%)"
    std::string unit;
    std::vector<FigurePoint> line;
    std::vector<FigurePoint> keyframes;
};

template <class ToLevel>
Plot MakePlot(std::string name,
              std::string unit,
              const KeyframeContainer& curve,
              double rateHz,
              double seconds,
              ToLevel&& toLevel) {
    Plot plot{std::move(name), std::move(unit), {}, {}};
    const auto level = [&](float value) {
        const double x = toLevel(value);
        return plot.unit == "dB" ? std::max(x, kSilenceDb) : x;
    };
    KeyframeSet keyframes;
    curve.GetKeyframes(keyframes);
    std::vector<std::int64_t> times;
    for (int i = 0; i <= kPoints; ++i)
        times.push_back(std::llround(seconds * rateHz * i / kPoints));
    for (const Keyframe& keyframe : keyframes) {
        const double at = static_cast<double>(keyframe.time) / rateHz;
        if (at >= 0.0 && at <= seconds) plot.keyframes.push_back({at, level(keyframe.value)});
        // Steps are upright: the line also goes through the frame before each keyframe.
        times.insert(times.end(), {keyframe.time - 1, keyframe.time});
    }
    std::sort(times.begin(), times.end());
    for (const std::int64_t time : times)
        plot.line.push_back({static_cast<double>(time) / rateHz, level(curve.GetValue(time))});
    return plot;
}

double GetLastSeconds(const Chain& chain) {
    double last = 0.0;
    for (const ChainStep& step : chain)
        for (const CurveText& curve : step.automation)
            last = std::max(last, curve.points.back().seconds);
    return last;
}

std::vector<Plot> CollectPlots(const ChainProcessor& chain, double rateHz, double seconds) {
    std::vector<Plot> plots;
    for (std::size_t k = 0; k < chain.GetFilters().size(); ++k) {
        const std::string& effect = chain.GetResolvedChain()[k].effect;
        for (const auto& track : chain.GetAutomation()[k].GetTracks())
            plots.push_back(
                MakePlot(fmt::format("{}: {}", effect, track.parameter.name), track.parameter.unit,
                         *track.curve, rateHz, seconds,
                         [&](float n) { return track.parameter.info->FromNormalized(n); }));
        const auto* envelope =
            dynamic_cast<const components::EnvelopeBase*>(chain.GetFilters()[k].get());
        if (envelope && !envelope->GetCurve()->IsEmpty())
            plots.push_back(MakePlot(fmt::format("{}: Curve", effect),
                                     std::string(envelope->GetLevelUnit()), *envelope->GetCurve(),
                                     rateHz, seconds,
                                     [&](float v) { return envelope->GetLevel(v); }));
    }
    return plots;
}

Axis MakeLevelAxis(const Plot& plot) {
    Axis axis;
    axis.label = plot.unit.empty() ? "Value" : plot.unit;
    axis.lo = std::numeric_limits<double>::infinity();
    axis.hi = -axis.lo;
    for (const FigurePoint& point : plot.line) {
        axis.lo = std::min(axis.lo, point.y);
        axis.hi = std::max(axis.hi, point.y);
    }
    const double margin = std::max(0.08 * (axis.hi - axis.lo), 1e-3);
    axis.lo -= margin;
    axis.hi += margin;
    return axis;
}

}  // namespace

Figure PlotCurves(ChainProcessor& chain, float rateHz, double seconds) {
    if (seconds <= 0.0) seconds = GetLastSeconds(chain.GetResolvedChain());
    if (seconds <= 0.0) seconds = kDefaultSeconds;
    const auto rate = static_cast<double>(rateHz);
    chain.SetSelection(0, std::llround(seconds * rate));
    const std::vector<Plot> plots = CollectPlots(chain, rate, seconds);
    if (plots.empty())
        throw Error(ExitCode::kUsage, "there is no curve to show", "",
                    "give one with -a, for example -a echo.decay-left:0s=64%,5s=20%");
    Figure figure("Curves", {"Time (s)", 0.0, seconds, AxisUnit::kSeconds}, 900.0,
                  120.0 + kPanelHeight * static_cast<double>(plots.size()));
    int color = 0;
    for (const Plot& plot : plots) {
        FigurePanel& panel = figure.AddPanel(MakeLevelAxis(plot));
        FigureStyle style;
        style.color = color++ % 6;
        panel.AddLine(plot.line, plot.name, style);
        style.width = 4.0;
        panel.AddPoints(plot.keyframes, "", style);
    }
    return figure;
}

}  // namespace zuc::host
