#include "host/FigureAxis.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace zuc::host {
namespace {

std::string TickText(const Axis& axis, double value, double step) {
    const double magnitude = std::fabs(value);
    if (axis.unit == AxisUnit::kHertz && magnitude >= 1000.0)
        return fmt::format("{:g}k", value / 1000.0);
    if (axis.unit == AxisUnit::kSeconds && axis.hi > 60.0) {
        const auto whole = static_cast<long>(std::floor(magnitude + 1e-9));
        return fmt::format("{}:{:02}", whole / 60, whole % 60);
    }
    const int decimals = std::max(0, static_cast<int>(std::ceil(-std::log10(step) - 1e-9)));
    const std::string text = fmt::format("{:.{}f}", value, decimals);
    return std::stod(text) == 0.0 ? "0" : text;
}

/// The smallest round step that leaves at most `count` ticks.
double RoundStep(const Axis& axis, int count) {
    const double wanted = (axis.hi - axis.lo) / std::max(1, count);
    if (axis.unit == AxisUnit::kSeconds && axis.hi > 60.0)
        for (const double step : {1.0, 2.0, 5.0, 10.0, 15.0, 30.0, 60.0, 120.0, 300.0, 600.0, 900.0,
                                  1800.0, 3600.0, 7200.0})
            if (step >= wanted) return step;
    const double decade = std::pow(10.0, std::floor(std::log10(wanted)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * decade >= wanted * (1.0 - 1e-9)) return factor * decade;
    return 10.0 * decade;
}

std::vector<AxisTick> LogarithmicTicks(const Axis& axis, int count) {
    const double decades = std::log10(axis.hi / axis.lo);
    const auto first = static_cast<int>(std::floor(std::log10(axis.lo)));
    const auto last = static_cast<int>(std::floor(std::log10(axis.hi)));
    std::vector<AxisTick> ticks;
    for (int exponent = first; exponent <= last; ++exponent)
        for (int digit = 1; digit <= 9; ++digit) {
            const double decade = std::pow(10.0, exponent);
            const double value = digit * decade;
            if (value < axis.lo * (1.0 - 1e-9) || value > axis.hi * (1.0 + 1e-9)) continue;
            const bool isMajor =
                digit == 1 || (3.0 * decades <= count && (digit == 2 || digit == 5));
            ticks.push_back({value, isMajor ? TickText(axis, value, decade) : ""});
        }
    return ticks;
}

}  // namespace

Axis Widened(Axis axis) {
    if (axis.hi > axis.lo) return axis;
    const double by = std::max(1e-3, 0.05 * std::fabs(axis.lo));
    axis.hi = axis.lo + by;
    if (axis.scale == AxisScale::kLinear) axis.lo -= by;
    return axis;
}

double Fraction(const Axis& axis, double value) {
    if (axis.scale == AxisScale::kLinear) return (value - axis.lo) / (axis.hi - axis.lo);
    return std::log(std::max(value, axis.lo * 1e-3) / axis.lo) / std::log(axis.hi / axis.lo);
}

std::vector<AxisTick> MakeTicks(const Axis& given, int count) {
    const Axis axis = Widened(given);
    if (axis.scale == AxisScale::kLogarithmic) return LogarithmicTicks(axis, count);
    const double step = RoundStep(axis, count);
    std::vector<AxisTick> ticks;
    const auto first = static_cast<long>(std::ceil(axis.lo / step - 1e-9));
    const auto last = static_cast<long>(std::floor(axis.hi / step + 1e-9));
    for (long i = first; i <= last; ++i) {
        const double value = static_cast<double>(i) * step;
        ticks.push_back({value, TickText(axis, value, step)});
    }
    return ticks;
}

}  // namespace zuc::host
