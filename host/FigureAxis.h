#pragma once

#include <string>
#include <vector>

#include "host/Figure.h"

namespace zuc::host {

/// The axis, widened a little when hi is not above lo. [any]
Axis Widened(Axis axis);
/// Where a value lies on a widened axis: 0 at lo, 1 at hi, beyond them outside. [any]
double Fraction(const Axis& axis, double value);

/// Where an axis has ticks: round values within [lo, hi], at most about `count`, and their texts.
struct AxisTick {
    double value;
    std::string text;  // empty for a minor one
};
std::vector<AxisTick> MakeTicks(const Axis& axis, int count);  // [any]

}  // namespace zuc::host
