#include "kraaudiodsp/vector/VectorOps.h"

#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/VectorOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using FloatTag = hn::ScalableTag<float>;

/// Lanes of `d` from `first` on, as floats: first, first + 1, ...
HWY_INLINE hn::Vec<FloatTag> Ramp(FloatTag d, std::size_t first) {
    return hn::Add(hn::Set(d, static_cast<float>(first)), hn::Iota(d, 0.0f));
}

/// Values until `array` stands at a vector's own alignment: vectors that lie across cache lines take up to
/// half as long again.
HWY_INLINE std::size_t CountUntilAligned(const float* array, std::size_t lanes, std::size_t count) {
    const std::size_t index = reinterpret_cast<std::uintptr_t>(array) / sizeof(float);
    return HWY_MIN(count, (lanes - index % lanes) % lanes);
}

void Multiply(float* out, const float* in, float gain, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    const auto factor = hn::Set(d, gain);
    std::size_t i = 0;
    for (const std::size_t head = CountUntilAligned(out, lanes, count); i < head; ++i)
        out[i] = in[i] * gain;
    for (; i + 2 * lanes <= count; i += 2 * lanes) {
        const auto a = hn::Mul(hn::LoadU(d, in + i), factor);
        const auto b = hn::Mul(hn::LoadU(d, in + i + lanes), factor);
        hn::StoreU(a, d, out + i);
        hn::StoreU(b, d, out + i + lanes);
    }
    for (; i < count; ++i) out[i] = in[i] * gain;
}

void MultiplyRamp(
    float* out, const float* in, float start, float step, std::size_t first, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    const auto begin = hn::Set(d, start);
    const auto slope = hn::Set(d, step);
    std::size_t i = 0;
    for (const std::size_t head = CountUntilAligned(out, lanes, count); i < head; ++i)
        out[i] = in[i] * (start + step * static_cast<float>(first + i));
    for (; i + lanes <= count; i += lanes) {
        // Multiplied and added apart, as the scalar rest does, so that lanes agree with it.
        const auto gain = hn::Add(begin, hn::Mul(slope, Ramp(d, first + i)));
        hn::StoreU(hn::Mul(hn::LoadU(d, in + i), gain), d, out + i);
    }
    for (; i < count; ++i) out[i] = in[i] * (start + step * static_cast<float>(first + i));
}

/// All ones in the exponent: infinite or not a number.
bool IsNonFinite(float value) {
    std::uint32_t bits = 0;
    hwy::CopyBytes<sizeof(bits)>(&value, &bits);
    return (bits & 0x7F800000u) == 0x7F800000u;
}

/// Zero times a number is zero, zero times anything else is not a number and stays so in a sum: one
/// operation a vector tells whether a whole array is finite.
bool IsFinite(const float* in, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    const auto zero = hn::Zero(d);
    auto a = zero;
    auto b = zero;
    auto c = zero;
    auto e = zero;
    bool finite = true;
    std::size_t i = 0;
    for (const std::size_t head = CountUntilAligned(in, lanes, count); i < head; ++i)
        finite = finite && !IsNonFinite(in[i]);
    for (; i + 4 * lanes <= count; i += 4 * lanes) {
        a = hn::MulAdd(hn::LoadU(d, in + i), zero, a);
        b = hn::MulAdd(hn::LoadU(d, in + i + lanes), zero, b);
        c = hn::MulAdd(hn::LoadU(d, in + i + 2 * lanes), zero, c);
        e = hn::MulAdd(hn::LoadU(d, in + i + 3 * lanes), zero, e);
    }
    const auto sum = hn::Add(hn::Add(a, b), hn::Add(c, e));
    finite = finite && hn::AllTrue(d, hn::Eq(sum, sum));
    for (; i < count; ++i) finite = finite && !IsNonFinite(in[i]);
    return finite;
}

std::size_t CountNonFinite(const float* in, std::size_t count) {
    if (IsFinite(in, count)) return 0;
    std::size_t found = 0;
    for (std::size_t i = 0; i < count; ++i) found += IsNonFinite(in[i]) ? 1u : 0u;
    return found;
}

std::size_t CopyFinite(float* out, const float* in, std::size_t count) {
    std::size_t replaced = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const float value = in[i];
        const bool bad = IsNonFinite(value);
        out[i] = bad ? 0.0f : value;
        replaced += bad ? 1u : 0u;
    }
    return replaced;
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(Multiply);
HWY_EXPORT(MultiplyRamp);
HWY_EXPORT(CountNonFinite);
HWY_EXPORT(CopyFinite);

void Multiply(float* out, const float* in, float gain, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(Multiply)(out, in, gain, count);
}

void MultiplyRamp(
    float* out, const float* in, float start, float step, std::size_t first, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(MultiplyRamp)(out, in, start, step, first, count);
}

std::size_t CountNonFinite(const float* in, std::size_t count) {
    return HWY_DYNAMIC_DISPATCH(CountNonFinite)(in, count);
}

std::size_t CopyFinite(float* out, const float* in, std::size_t count) {
    return HWY_DYNAMIC_DISPATCH(CopyFinite)(out, in, count);
}

}  // namespace dsp::vector
#endif
