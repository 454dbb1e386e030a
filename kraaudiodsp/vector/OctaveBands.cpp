#include "kraaudiodsp/vector/OctaveBands.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/OctaveBands.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Coefficients = std::array<double, kOctaveStageCount + 1>;

/// One stage for one frame: takes `value` in, gives the new sum. `row` is where stage 0 puts this frame.
template <std::size_t kStage, std::size_t kLanes, class D>
HWY_INLINE hn::Vec<D> AddUp(D d, hn::Vec<D> value, hn::Vec<D> sum, double* HWY_RESTRICT row) {
    constexpr std::size_t kHere = (GetOctaveStageRow(kStage) - GetOctaveStageRow(0)) * kLanes;
    constexpr std::size_t kBack = GetOctaveStageFrames(kStage) * kLanes;
    double* here = row + kHere;
    const auto leaving = hn::LoadU(d, here - kBack);
    hn::StoreU(value, d, here);
    // In this order only one addition waits for the stage before.
    return hn::Add(hn::Sub(sum, leaving), value);
}

template <std::size_t kLanes>
void FilterLanes(float* HWY_RESTRICT io,
                 double* HWY_RESTRICT state,
                 const Coefficients& coefficients,
                 std::size_t position,
                 std::size_t frames) {
    const hn::CappedTag<double, kLanes> d;
    const hn::Rebind<float, decltype(d)> narrow;
    for (std::size_t lane = 0; lane < kLanes; lane += hn::Lanes(d)) {
        double* sums = state + lane;
        double* row = state + (GetOctaveStageRow(0) + position) * kLanes + lane;
        auto s1 = hn::LoadU(d, sums + 0 * kLanes);
        auto s2 = hn::LoadU(d, sums + 1 * kLanes);
        auto s3 = hn::LoadU(d, sums + 2 * kLanes);
        auto s4 = hn::LoadU(d, sums + 3 * kLanes);
        auto s5 = hn::LoadU(d, sums + 4 * kLanes);
        auto s6 = hn::LoadU(d, sums + 5 * kLanes);
        auto s7 = hn::LoadU(d, sums + 6 * kLanes);
        const auto c0 = hn::Set(d, coefficients[0]);
        const auto c1 = hn::Set(d, coefficients[1]);
        const auto c2 = hn::Set(d, coefficients[2]);
        const auto c3 = hn::Set(d, coefficients[3]);
        const auto c4 = hn::Set(d, coefficients[4]);
        const auto c5 = hn::Set(d, coefficients[5]);
        const auto c6 = hn::Set(d, coefficients[6]);
        const auto c7 = hn::Set(d, coefficients[7]);
        for (std::size_t i = 0; i < frames; ++i, row += kLanes) {
            const auto x = hn::PromoteTo(d, hn::LoadU(narrow, io + i * kLanes + lane));
            s1 = AddUp<0, kLanes>(d, x, s1, row);
            s2 = AddUp<1, kLanes>(d, s1, s2, row);
            s3 = AddUp<2, kLanes>(d, s2, s3, row);
            s4 = AddUp<3, kLanes>(d, s3, s4, row);
            s5 = AddUp<4, kLanes>(d, s4, s5, row);
            s6 = AddUp<5, kLanes>(d, s5, s6, row);
            s7 = AddUp<6, kLanes>(d, s6, s7, row);
            // Multiplied and added apart: machines that fuse both would give other results.
            auto y = hn::Add(hn::Mul(c0, x), hn::Mul(c1, s1));
            y = hn::Add(y, hn::Mul(c2, s2));
            y = hn::Add(y, hn::Mul(c3, s3));
            y = hn::Add(y, hn::Mul(c4, s4));
            y = hn::Add(y, hn::Mul(c5, s5));
            y = hn::Add(y, hn::Mul(c6, s6));
            y = hn::Add(y, hn::Mul(c7, s7));
            hn::StoreU(hn::DemoteTo(narrow, y), narrow, io + i * kLanes + lane);
        }
        hn::StoreU(s1, d, sums + 0 * kLanes);
        hn::StoreU(s2, d, sums + 1 * kLanes);
        hn::StoreU(s3, d, sums + 2 * kLanes);
        hn::StoreU(s4, d, sums + 3 * kLanes);
        hn::StoreU(s5, d, sums + 4 * kLanes);
        hn::StoreU(s6, d, sums + 5 * kLanes);
        hn::StoreU(s7, d, sums + 6 * kLanes);
    }
}

void FilterTwo(
    float* io, double* state, const Coefficients& c, std::size_t at, std::size_t frames) {
    FilterLanes<2>(io, state, c, at, frames);
}

void FilterFour(
    float* io, double* state, const Coefficients& c, std::size_t at, std::size_t frames) {
    FilterLanes<4>(io, state, c, at, frames);
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(FilterTwo);
HWY_EXPORT(FilterFour);

void FilterOctaveBands(float* io,
                       double* state,
                       const std::array<double, kOctaveStageCount + 1>& coefficients,
                       std::size_t lanes,
                       std::size_t position,
                       std::size_t frames) {
    const auto filter =
        lanes == 4 ? HWY_DYNAMIC_DISPATCH(FilterFour) : HWY_DYNAMIC_DISPATCH(FilterTwo);
    filter(io, state, coefficients, position, frames);
}

}  // namespace dsp::vector
#endif
