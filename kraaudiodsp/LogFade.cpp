#include "kraaudiodsp/LogFade.h"

#include <algorithm>
#include <cmath>

namespace dsp {
namespace {

constexpr double kLowestHeight = 0.05;
constexpr double kStraight = 1e-6;  // bends below this are the straight line

}  // namespace

double GetLogVerticalModifier(double middleHeight) {
    const double height = std::clamp(middleHeight, kLowestHeight, 1.0 - kLowestHeight);
    if (height == 0.5) return 0.0;
    if (height < 0.5) {
        const double mirrored = GetLogVerticalModifier(1.0 - height);
        return -mirrored / (1.0 + mirrored);
    }
    // With u = ln(1 + m) the condition reads u h = ln((1 + e^u) / 2), whose right side grows from 0 with
    // slope 1/2 to slope 1: one solution above 0.
    double lo = 0.0;
    double hi = 1.0;
    const auto isBelow = [height](double u) {
        return u * height > u + std::log1p(std::exp(-u)) - std::log(2.0);
    };
    while (isBelow(hi)) {
        lo = hi;
        hi *= 2.0;
    }
    for (;;) {
        const double middle = 0.5 * (lo + hi);
        if (middle <= lo || middle >= hi) break;
        (isBelow(middle) ? lo : hi) = middle;
    }
    return std::expm1(hi);
}

double CalculateLogFadeValue(double p, double modifier) {
    const double way = std::clamp(p, 0.0, 1.0);
    if (std::fabs(modifier) < kStraight || way == 1.0) return way;
    return std::log1p(modifier * way) / std::log1p(modifier);
}

}  // namespace dsp
