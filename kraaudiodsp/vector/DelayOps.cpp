#include "kraaudiodsp/vector/DelayOps.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/DelayOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Runs `body(d, i)` over the array: whole vectors, then one value at a time. Both make the same
/// operations in the same order, so results do not depend on the length of a vector.
template <class Body>
HWY_INLINE void ForEachVector(std::size_t count, const Body& body) {
    const hn::ScalableTag<float> d;
    const hn::CappedTag<float, 1> one;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) body(d, i);
    for (; i < count; ++i) body(one, i);
}

/// Multiplied and added apart, never fused.
template <class D>
HWY_INLINE hn::Vec<D> RampedGain(D d, float start, float step, std::size_t frame) {
    const auto frames = hn::Add(hn::Set(d, static_cast<float>(frame)), hn::Iota(d, 0.0f));
    return hn::Add(hn::Set(d, start), hn::Mul(hn::Set(d, step), frames));
}

void AddRamped(
    float* out, const float* in, float start, float step, std::size_t first, std::size_t count) {
    ForEachVector(count, [=](auto d, std::size_t i) HWY_ATTR {
        const auto ramped = hn::Mul(hn::LoadU(d, in + i), RampedGain(d, start, step, first + i));
        hn::StoreU(hn::Add(hn::LoadU(d, out + i), ramped), d, out + i);
    });
}

void Exchange(float* a, float* b, float start, float step, std::size_t first, std::size_t count) {
    ForEachVector(count, [=](auto d, std::size_t i) HWY_ATTR {
        const auto gain = RampedGain(d, start, step, first + i);
        const auto x = hn::LoadU(d, a + i);
        const auto y = hn::LoadU(d, b + i);
        hn::StoreU(hn::Add(x, hn::Mul(hn::Sub(y, x), gain)), d, a + i);
        hn::StoreU(hn::Add(y, hn::Mul(hn::Sub(x, y), gain)), d, b + i);
    });
}

void FeedBack(float* kept,
              float* out,
              const float* in,
              const float* echo,
              float start,
              float step,
              std::size_t first,
              std::size_t count) {
    ForEachVector(count, [=](auto d, std::size_t i) HWY_ATTR {
        const auto x = hn::LoadU(d, in + i);
        const auto e = hn::LoadU(d, echo + i);
        const auto sum = hn::Add(hn::Mul(x, RampedGain(d, start, step, first + i)), e);
        const auto isFinite = hn::Eq(hn::Sub(sum, sum), hn::Zero(d));
        const auto bounded = hn::Min(hn::Max(sum, hn::Set(d, -1.0f)), hn::Set(d, 1.0f));
        hn::StoreU(hn::IfThenElseZero(isFinite, bounded), d, kept + i);
        hn::StoreU(hn::Add(x, e), d, out + i);
    });
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(AddRamped);
HWY_EXPORT(Exchange);
HWY_EXPORT(FeedBack);

void AddRamped(
    float* out, const float* in, float start, float step, std::size_t first, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(AddRamped)(out, in, start, step, first, count);
}

void Exchange(float* a, float* b, float start, float step, std::size_t first, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(Exchange)(a, b, start, step, first, count);
}

void FeedBack(float* kept,
              float* out,
              const float* in,
              const float* echo,
              float start,
              float step,
              std::size_t first,
              std::size_t count) {
    HWY_DYNAMIC_DISPATCH(FeedBack)(kept, out, in, echo, start, step, first, count);
}

}  // namespace dsp::vector
#endif
