#include "kraaudiodsp/CBezier.h"

#include <algorithm>
#include <cmath>

namespace dsp {
namespace {

/// The slope at an end from its secant and the next one, `width` and `nextWidth` wide.
double EndSlope(double secant, double nextSecant, double width, double nextWidth) {
    const double slope =
        ((2.0 * width + nextWidth) * secant - width * nextSecant) / (width + nextWidth);
    if (slope * secant <= 0.0) return 0.0;
    return std::copysign(std::min(std::fabs(slope), 3.0 * std::fabs(secant)), secant);
}

}  // namespace

void CBezier::Reserve(int count) { knots_.reserve(static_cast<std::size_t>(std::max(count, 0))); }

void CBezier::SetPoints(int count, const double* xy) {
    knots_.clear();
    for (int i = 0; i < count; ++i, xy += 2) {
        const double x = xy[0];
        const double y = xy[1];
        if (!std::isfinite(x) || !std::isfinite(y)) continue;
        if (!knots_.empty() && x < knots_.back().x) continue;
        if (!knots_.empty() && x == knots_.back().x) knots_.pop_back();
        knots_.push_back({x, y, 0.0, 0.0, 0.0});
    }
    if (knots_.size() < 2) return;
    DeriveSlopes();
    DeriveSegments();
}

void CBezier::DeriveSlopes() {
    const std::size_t last = knots_.size() - 1;
    const auto width = [this](std::size_t k) { return knots_[k + 1].x - knots_[k].x; };
    const auto secant = [&](std::size_t k) { return (knots_[k + 1].y - knots_[k].y) / width(k); };
    if (last == 1) {
        knots_[0].slope = knots_[1].slope = secant(0);
        return;
    }
    for (std::size_t k = 1; k < last; ++k) {
        const double before = secant(k - 1);
        const double after = secant(k);
        const double weightBefore = 2.0 * width(k) + width(k - 1);
        const double weightAfter = width(k) + 2.0 * width(k - 1);
        knots_[k].slope = before * after <= 0.0 ? 0.0
                                                : (weightBefore + weightAfter) /
                                                      (weightBefore / before + weightAfter / after);
    }
    knots_[0].slope = EndSlope(secant(0), secant(1), width(0), width(1));
    knots_[last].slope =
        EndSlope(secant(last - 1), secant(last - 2), width(last - 1), width(last - 2));
}

void CBezier::DeriveSegments() {
    for (std::size_t k = 0; k + 1 < knots_.size(); ++k) {
        Knot& from = knots_[k];
        const Knot& to = knots_[k + 1];
        const double width = to.x - from.x;
        const double secant = (to.y - from.y) / width;
        from.square = (3.0 * secant - 2.0 * from.slope - to.slope) / width;
        from.cube = (from.slope + to.slope - 2.0 * secant) / (width * width);
    }
}

float CBezier::Evaluate(std::size_t segment, double x) const {
    const Knot& from = knots_[segment];
    const Knot& to = knots_[segment + 1];
    const double t = x - from.x;
    const double y = from.y + t * (from.slope + t * (from.square + t * from.cube));
    // The formula stays between the neighbours; its rounding may not.
    return static_cast<float>(std::clamp(y, std::min(from.y, to.y), std::max(from.y, to.y)));
}

std::size_t CBezier::FindSegment(double x) const {
    const auto after = std::upper_bound(knots_.begin() + 1, knots_.end() - 1, x,
                                        [](double at, const Knot& knot) { return at < knot.x; });
    return static_cast<std::size_t>(after - knots_.begin()) - 1;
}

float CBezier::GetBezier(double x) const {
    if (knots_.empty()) return 0.0f;
    if (!(x > knots_.front().x)) return static_cast<float>(knots_.front().y);
    if (x >= knots_.back().x) return static_cast<float>(knots_.back().y);
    return Evaluate(FindSegment(x), x);
}

double CBezier::GetSlope(double x) const {
    if (knots_.size() < 2 || !(x > knots_.front().x) || x > knots_.back().x) return 0.0;
    const auto at = std::lower_bound(knots_.begin(), knots_.end(), x,
                                     [](const Knot& knot, double value) { return knot.x < value; });
    const Knot& from = *std::prev(at);
    const double t = x - from.x;
    return from.slope + t * (2.0 * from.square + 3.0 * t * from.cube);
}

void CBezier::GetBeziers(double x0, double dx, int count, float* out) const {
    if (knots_.size() < 2 || dx < 0.0) {
        for (int i = 0; i < count; ++i) out[i] = GetBezier(x0 + static_cast<double>(i) * dx);
        return;
    }
    std::size_t segment = FindSegment(x0);
    for (int i = 0; i < count; ++i) {
        const double x = x0 + static_cast<double>(i) * dx;
        while (segment + 2 < knots_.size() && x >= knots_[segment + 1].x) ++segment;
        if (!(x > knots_.front().x))
            out[i] = static_cast<float>(knots_.front().y);
        else if (x >= knots_.back().x)
            out[i] = static_cast<float>(knots_.back().y);
        else
            out[i] = Evaluate(segment, x);
    }
}

}  // namespace dsp
