#include "Components/private/amplitude/TransferCurve.h"

#include <algorithm>

namespace zuc::components {
namespace {

constexpr double kGateSteepness = 50.0;  // dB out for each dB in

}  // namespace

void TransferCurve::SetShape(const Shape& shape) {
    shape_ = shape;
    shape_.count = std::min(shape.count, kMaxPoints);
    bool ascends = true;
    muteDb_ = -std::numeric_limits<double>::infinity();
    for (std::size_t i = 1; i < shape_.count; ++i) {
        const Point& from = shape_.points[i - 1];
        const Point& to = shape_.points[i];
        ascends = ascends && to.inDb > from.inDb;
        const bool isSteep = to.outDb - from.outDb > kGateSteepness * (to.inDb - from.inDb);
        if (shape_.gates && isSteep && to.inDb >= from.inDb) muteDb_ = std::max(muteDb_, to.inDb);
    }
    usesSpline_ = shape_.isSpline && ascends && shape_.count > 0;
    if (!usesSpline_) return;
    std::array<double, 2 * kMaxPoints> pairs{};
    for (std::size_t i = 0; i < shape_.count; ++i) {
        pairs[2 * i] = shape_.points[i].inDb;
        pairs[2 * i + 1] = shape_.points[i].outDb;
    }
    spline_.SetPoints(static_cast<int>(shape_.count), pairs.data());
}

/// The point where the segment around `inDb` ends, or the number of points beyond the last.
std::size_t TransferCurve::FindSegmentEnd(double inDb) const {
    std::size_t end = 1;
    while (end < shape_.count && shape_.points[end].inDb < inDb) ++end;
    return end;
}

double TransferCurve::GetStraight(double inDb) const {
    const std::size_t end = FindSegmentEnd(inDb);
    if (end >= shape_.count) return shape_.points[shape_.count - 1].outDb;
    const Point& from = shape_.points[end - 1];
    const Point& to = shape_.points[end];
    if (from.inDb == to.inDb) {
        // Deliberate: two points at exactly 0 dB give 0 dB, not their mean.
        return from.inDb == 0.0 ? 0.0 : 0.5 * (from.outDb + to.outDb);
    }
    const double slope = (to.outDb - from.outDb) / (to.inDb - from.inDb);
    return from.outDb + slope * (std::max(inDb, from.inDb) - from.inDb);
}

double TransferCurve::GetOutputDb(double inDb) const {
    if (inDb < muteDb_) return kLowestDb;
    if (shape_.count == 0) return inDb;
    return usesSpline_ ? static_cast<double>(spline_.GetBezier(inDb)) : GetStraight(inDb);
}

double TransferCurve::GetSlopeBelowZero() const {
    if (shape_.count == 0) return 1.0;
    if (usesSpline_) return spline_.GetSlope(0.0);
    const std::size_t end = FindSegmentEnd(0.0);
    if (end >= shape_.count) return 0.0;
    const Point& from = shape_.points[end - 1];
    const Point& to = shape_.points[end];
    const bool isWithin = from.inDb < to.inDb && from.inDb < 0.0;
    return isWithin ? (to.outDb - from.outDb) / (to.inDb - from.inDb) : 0.0;
}

}  // namespace zuc::components
