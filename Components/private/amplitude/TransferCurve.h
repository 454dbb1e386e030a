#pragma once

#include <array>
#include <cstddef>
#include <limits>

#include "kraaudiodsp/CBezier.h"

namespace zuc::components {

/// Output level over input level, both in dB, through up to seven points.
///
/// Straight segments: below the first point its level, above the last one its level, between two of
/// them the line; where the first two share one location, the mean of their levels (0 when both lie at
/// 0 dB). A spline passes through the points without swinging beyond them; it needs locations that
/// ascend, otherwise the segments are straight. Without points the output is the input.
class TransferCurve {
public:
    static constexpr std::size_t kMaxPoints = 7;
    static constexpr double kLowestDb = -100.0;  // where curves, tables and displays begin

    struct Point {
        double inDb = 0.0;
        double outDb = 0.0;
        bool operator==(const Point&) const = default;
    };
    struct Shape {
        std::array<Point, kMaxPoints> points{};
        std::size_t count = 0;
        bool isSpline = false;
        bool gates = false;  // mutes below a segment steeper than 50:1
        bool operator==(const Shape&) const = default;
    };

    TransferCurve() { spline_.Reserve(kMaxPoints); }

    void SetShape(const Shape& shape);  // [audio]
    const Shape& GetShape() const { return shape_; }

    /// The level that comes out; what a gate mutes counts as kLowestDb. [any]
    double GetOutputDb(double inDb) const;
    /// dB out for each dB in just below 0 dB. [any]
    double GetSlopeBelowZero() const;
    /// Input below this level is muted; -infinity when none is. [any]
    double GetMuteDb() const { return muteDb_; }

private:
    double GetStraight(double inDb) const;
    std::size_t FindSegmentEnd(double inDb) const;

    Shape shape_;
    bool usesSpline_ = false;
    double muteDb_ = -std::numeric_limits<double>::infinity();
    dsp::CBezier spline_;
};

}  // namespace zuc::components
