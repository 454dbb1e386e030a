#include "kraaudiodsp/vector/FirOps.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/FirOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using FloatTag = hn::ScalableTag<float>;
using Lanes = hn::Vec<FloatTag>;

/// As many results as `d` has lanes.
template <class Tag>
HWY_INLINE void OneVector(Tag d, float* out, const float* in, const float* taps, std::size_t half) {
    hn::Vec<Tag> sum = hn::Zero(d);
    for (std::size_t k = 0; k < half; ++k) {
        const auto pair = hn::Add(hn::LoadU(d, in + k), hn::LoadU(d, in + 2 * half - k));
        sum = hn::Add(sum, hn::Mul(hn::Set(d, taps[k]), pair));
    }
    hn::StoreU(hn::Add(sum, hn::Mul(hn::Set(d, taps[half]), hn::LoadU(d, in + half))), d, out);
}

/// Four vectors at once, so that the sums of one need not wait for those of the others.
HWY_INLINE void FourVectors(float* out, const float* in, const float* taps, std::size_t half) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    Lanes a = hn::Zero(d);
    Lanes b = a;
    Lanes c = a;
    Lanes e = a;
    const auto add = [&](Lanes& sum, Lanes tap, Lanes value) {
        sum = hn::Add(sum, hn::Mul(tap, value));
    };
    for (std::size_t k = 0; k < half; ++k) {
        const Lanes tap = hn::Set(d, taps[k]);
        const float* early = in + k;
        const float* late = in + 2 * half - k;
        const auto pair = [&](std::size_t at) {
            return hn::Add(hn::LoadU(d, early + at), hn::LoadU(d, late + at));
        };
        add(a, tap, pair(0));
        add(b, tap, pair(lanes));
        add(c, tap, pair(2 * lanes));
        add(e, tap, pair(3 * lanes));
    }
    const Lanes tap = hn::Set(d, taps[half]);
    add(a, tap, hn::LoadU(d, in + half));
    add(b, tap, hn::LoadU(d, in + half + lanes));
    add(c, tap, hn::LoadU(d, in + half + 2 * lanes));
    add(e, tap, hn::LoadU(d, in + half + 3 * lanes));
    hn::StoreU(a, d, out);
    hn::StoreU(b, d, out + lanes);
    hn::StoreU(c, d, out + 2 * lanes);
    hn::StoreU(e, d, out + 3 * lanes);
}

void SymmetricFir(
    float* out, const float* in, const float* taps, std::size_t half, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + 4 * lanes <= count; i += 4 * lanes) FourVectors(out + i, in + i, taps, half);
    for (; i + lanes <= count; i += lanes) OneVector(d, out + i, in + i, taps, half);
    const hn::CappedTag<float, 4> few;
    for (; i + hn::Lanes(few) <= count; i += hn::Lanes(few))
        OneVector(few, out + i, in + i, taps, half);
    const hn::CappedTag<float, 1> one;
    for (; i < count; ++i) OneVector(one, out + i, in + i, taps, half);
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(SymmetricFir);

void SymmetricFir(
    float* out, const float* in, const float* taps, std::size_t half, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(SymmetricFir)(out, in, taps, half, count);
}

}  // namespace dsp::vector
#endif
