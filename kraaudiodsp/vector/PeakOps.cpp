#include "kraaudiodsp/vector/PeakOps.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/PeakOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using FloatTag = hn::ScalableTag<float>;
using OneTag = hn::CappedTag<float, 1>;

/// Frames that are interpolated before their peaks are sought; the three arrays stay in the first cache.
constexpr std::size_t kTileFrames = 256;
constexpr std::size_t kMaxLanes = 64;

float Peak(const float* in, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    auto largest = hn::Zero(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto magnitude = hn::Abs(hn::LoadU(d, in + i));
        // Not Max: what is not a number must not win.
        largest = hn::IfThenElse(hn::Gt(magnitude, largest), magnitude, largest);
    }
    float peak = hn::GetLane(hn::MaxOfLanes(d, largest));
    for (; i < count; ++i) peak = std::abs(in[i]) > peak ? std::abs(in[i]) : peak;
    return peak;
}

/// Eight sums side by side on every machine.
double Squares(const float* in, std::size_t count) {
    constexpr std::size_t kColumns = 8;
    const hn::CappedTag<double, kColumns> d;
    const hn::Rebind<float, decltype(d)> half;
    const std::size_t lanes = hn::Lanes(d);
    HWY_ALIGN double sums[kColumns] = {};
    std::size_t i = 0;
    for (std::size_t first = 0; first < kColumns; first += lanes) {
        auto sum = hn::Zero(d);
        for (i = first; i - first + kColumns <= count; i += kColumns) {
            const auto x = hn::PromoteTo(d, hn::LoadU(half, in + i));
            sum = hn::Add(sum, hn::Mul(x, x));
        }
        hn::Store(sum, d, sums + first);
    }
    for (i = count - count % kColumns; i < count; ++i)
        sums[i % kColumns] += static_cast<double>(in[i]) * static_cast<double>(in[i]);
    return ((sums[0] + sums[4]) + (sums[2] + sums[6])) +
           ((sums[1] + sums[5]) + (sums[3] + sums[7]));
}

/// The signal a quarter, a half and three quarters of the way from in[i] to in[i + 1].
template <class Tag>
HWY_INLINE void Interpolate(
    Tag d, const float* in, const TruePeakTaps& taps, float* first, float* middle, float* third) {
    auto halfway = hn::Zero(d);
    auto even = halfway;
    auto odd = halfway;
    for (std::size_t k = 0; k < kTruePeakReach; ++k) {
        const auto left = hn::LoadU(d, in - k);
        const auto right = hn::LoadU(d, in + 1 + k);
        const auto sum = hn::Add(left, right);
        const auto difference = hn::Sub(left, right);
        halfway = hn::Add(halfway, hn::Mul(hn::Set(d, taps.middle[k]), sum));
        even = hn::Add(even, hn::Mul(hn::Set(d, taps.even[k]), sum));
        odd = hn::Add(odd, hn::Mul(hn::Set(d, taps.odd[k]), difference));
    }
    hn::StoreU(hn::Add(even, odd), d, first);
    hn::StoreU(halfway, d, middle);
    hn::StoreU(hn::Sub(even, odd), d, third);
}

/// The largest of five points in a row from the second on, with its neighbours.
template <class Tag>
HWY_INLINE hn::Vec<Tag> RefinedPeak(Tag d, const hn::Vec<Tag> (&points)[6]) {
    auto left = points[0];
    auto peak = points[1];
    auto right = points[2];
    for (std::size_t k = 2; k <= 4; ++k) {
        // What is not a number compares false and never wins.
        const auto isLarger = hn::Gt(points[k], peak);
        left = hn::IfThenElse(isLarger, points[k - 1], left);
        right = hn::IfThenElse(isLarger, points[k + 1], right);
        peak = hn::IfThenElse(isLarger, points[k], peak);
    }
    const auto slope = hn::Sub(left, right);
    const auto bend = hn::Sub(hn::Add(peak, peak), hn::Add(left, right));
    const auto eighth = hn::Set(d, 0.125f);
    const auto refined = hn::Add(peak, hn::Div(hn::Mul(hn::Mul(slope, slope), eighth), bend));
    const auto isTop =
        hn::And(hn::And(hn::Ge(peak, left), hn::Ge(peak, right)), hn::Gt(bend, hn::Zero(d)));
    return hn::IfThenElse(hn::And(isTop, hn::Gt(refined, peak)), refined, peak);
}

template <class Tag>
HWY_INLINE void PeaksOfTile(Tag d,
                            float* out,
                            const float* in,
                            const float* first,
                            const float* middle,
                            const float* third) {
    const hn::Vec<Tag> points[6] = {
        hn::Abs(hn::LoadU(d, third - 1)), hn::Abs(hn::LoadU(d, in)),
        hn::Abs(hn::LoadU(d, first)),     hn::Abs(hn::LoadU(d, middle)),
        hn::Abs(hn::LoadU(d, third)),     hn::Abs(hn::LoadU(d, in + 1)),
    };
    hn::StoreU(RefinedPeak(d, points), d, out);
}

/// Runs `step(tag, i)` over i = 0 to count - 1.
template <class Step>
HWY_INLINE void ForEachVector(std::size_t count, const Step& step) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) step(d, i);
    for (; i < count; ++i) step(OneTag(), i);
}

void Peaks(float* out, const float* in, const TruePeakTaps& taps, std::size_t count) {
    // One frame before the tile, for the point before its first sample.
    HWY_ALIGN float first[kTileFrames + kMaxLanes];
    HWY_ALIGN float middle[kTileFrames + kMaxLanes];
    HWY_ALIGN float third[kTileFrames + kMaxLanes];
    while (count > 0) {
        const std::size_t frames = std::min(count, kTileFrames);
        Interpolate(OneTag(), in - 1, taps, first, middle, third);
        ForEachVector(frames, [&](auto d, std::size_t i) HWY_ATTR {
            Interpolate(d, in + i, taps, first + 1 + i, middle + 1 + i, third + 1 + i);
        });
        ForEachVector(frames, [&](auto d, std::size_t i) HWY_ATTR {
            PeaksOfTile(d, out + i, in + i, first + 1 + i, middle + 1 + i, third + 1 + i);
        });
        out += frames;
        in += frames;
        count -= frames;
    }
}

std::size_t MultiplyHeld(
    float* out, const float* in, const float* gains, float ceiling, std::size_t count) {
    std::size_t held = 0;
    ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
        const auto product = hn::Mul(hn::LoadU(d, in + i), hn::LoadU(d, gains + i));
        const auto most = hn::Set(d, ceiling);
        held += hn::CountTrue(d, hn::Gt(hn::Abs(product), most));
        hn::StoreU(hn::Max(hn::Min(product, most), hn::Neg(most)), d, out + i);
    });
    return held;
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(Peak);
HWY_EXPORT(Squares);
HWY_EXPORT(Peaks);
HWY_EXPORT(MultiplyHeld);

float PeakOf(const float* in, std::size_t count) { return HWY_DYNAMIC_DISPATCH(Peak)(in, count); }

double SumOfSquares(const float* in, std::size_t count) {
    return HWY_DYNAMIC_DISPATCH(Squares)(in, count);
}

void TruePeaks(float* out, const float* in, const TruePeakTaps& taps, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(Peaks)(out, in, taps, count);
}

std::size_t MultiplyWithin(
    float* out, const float* in, const float* gains, float ceiling, std::size_t count) {
    return HWY_DYNAMIC_DISPATCH(MultiplyHeld)(out, in, gains, ceiling, count);
}

}  // namespace dsp::vector
#endif
