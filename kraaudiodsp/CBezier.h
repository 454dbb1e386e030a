#pragma once

#include <cstddef>
#include <vector>

namespace dsp {

/// A smooth curve y(x) through given points that never swings beyond them.
///
/// Between two neighbours the curve is a cubic Bezier segment whose x control points lie at the thirds,
/// so that x is linear in the segment's parameter, and whose y control points follow from slopes m:
///
///     y(t) = y0 + m0 t + (3 s - 2 m0 - m1) t^2 / h + (m0 + m1 - 2 s) t^3 / h^2,   t = x - x0
///
/// with the width h and the secant slope s. Inside, m is the harmonic mean of the two neighbouring
/// secants weighted by their widths, and 0 where they differ in sign; at the ends it is the three-point
/// estimate, with the sign of the end's secant and at most three times as steep. The curve passes
/// through every point, is monotone wherever the points are, stays between neighbours, and its slope
/// has no jumps. Outside the points it is flat.
/// Source: F. N. Fritsch and R. E. Carlson, "Monotone piecewise cubic interpolation", SIAM Journal on
/// Numerical Analysis 17, 1980; the weights: F. N. Fritsch and J. Butland, SIAM Journal on Scientific
/// and Statistical Computing 5, 1984.
class CBezier {
public:
    /// Makes room for `count` points, so that SetPoints allocates nothing up to there. [host]
    void Reserve(int count);

    /// `xy` holds `count` pairs x, y with x ascending; of points with equal x the later one wins, and a
    /// point that lies before its predecessor or is not finite is left out. Without points the curve is
    /// 0, with one it is constant. [audio] up to the reserved count, else [host]
    void SetPoints(int count, const double* xy);

    /// The curve at x. [any]
    float GetBezier(double x) const;

    /// The slope at x, of the segment before it where two meet; 0 up to the first point and beyond the
    /// last. [any]
    double GetSlope(double x) const;

    /// The curve at x0 + i dx for i below `count`; for dx >= 0 much faster than one by one. [any]
    void GetBeziers(double x0, double dx, int count, float* out) const;

private:
    struct Knot {
        double x;
        double y;
        double slope;
        double square;  // coefficients of t^2 and t^3 of the segment that starts here
        double cube;
    };

    void DeriveSlopes();
    void DeriveSegments();
    std::size_t FindSegment(double x) const;
    float Evaluate(std::size_t segment, double x) const;

    std::vector<Knot> knots_;
};

}  // namespace dsp
