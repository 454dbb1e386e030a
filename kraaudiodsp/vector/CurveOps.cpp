#include "kraaudiodsp/vector/CurveOps.h"

#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/CurveOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using FloatTag = hn::ScalableTag<float>;
using IntTag = hn::RebindToSigned<FloatTag>;
using Vector = hn::Vec<FloatTag>;

Vector Set(float value) { return hn::Set(FloatTag(), value); }

/// c[0] + x (c[1] + x (...)), multiplied and added apart: fused, results would depend on the machine.
template <std::size_t kCount>
HWY_INLINE Vector Polynomial(Vector x, const float (&c)[kCount]) {
    Vector sum = Set(c[kCount - 1]);
    for (std::size_t i = kCount - 1; i-- > 0;) sum = hn::Add(hn::Mul(sum, x), Set(c[i]));
    return sum;
}

/// 2^x by the series of e^(f ln 2) for the fraction f, |f| <= 1/2: error 1.2e-7.
HWY_INLINE Vector Exp2(Vector x) {
    const FloatTag d;
    constexpr float kSeries[] = {1.0f,           0.693147181f,   0.240226507f,  0.0555041087f,
                                 9.61812911e-3f, 1.33335581e-3f, 1.54035304e-4f};
    const auto clamped = hn::Min(hn::Max(x, Set(-126.0f)), Set(127.0f));
    const auto whole = hn::Round(clamped);
    const auto power = Polynomial(hn::Sub(clamped, whole), kSeries);
    const auto bits = hn::ShiftLeft<23>(hn::ConvertTo(IntTag(), hn::Add(whole, Set(127.0f))));
    return hn::Mul(power, hn::BitCast(d, bits));
}

/// log2 of x >= 2^-126 by the series of atanh((m - 1) / (m + 1)) for the mantissa m in
/// [sqrt(1/2), sqrt(2)): error 4e-10 of the series.
HWY_INLINE Vector LogOfTwo(Vector x) {
    const FloatTag d;
    const IntTag di;
    constexpr float kSeries[] = {2.88539008f, 0.961796694f, 0.577078016f, 0.412198583f,
                                 0.320598898f};
    constexpr int kHalfRootBits = 0x3F3504F3;  // sqrt(1/2)
    const auto offset = hn::Sub(hn::BitCast(di, x), hn::Set(di, kHalfRootBits));
    const auto exponent = hn::ShiftRight<23>(offset);
    const auto mantissa = hn::BitCast(d, hn::Sub(hn::BitCast(di, x), hn::ShiftLeft<23>(exponent)));
    const auto t = hn::Div(hn::Sub(mantissa, Set(1.0f)), hn::Add(mantissa, Set(1.0f)));
    return hn::Add(hn::ConvertTo(d, exponent), hn::Mul(t, Polynomial(hn::Mul(t, t), kSeries)));
}

/// Runs `function` over whole vectors; the rest takes the same road through a padded vector.
template <class Function>
HWY_INLINE void ForEach(float* out, const float* in, std::size_t count, Function&& function) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) hn::StoreU(function(hn::LoadU(d, in + i)), d, out + i);
    if (i == count) return;
    HWY_ALIGN float rest[hn::MaxLanes(FloatTag())] = {};
    for (std::size_t k = 0; i + k < count; ++k) rest[k] = in[i + k];
    hn::Store(function(hn::Load(d, rest)), d, rest);
    for (std::size_t k = 0; i + k < count; ++k) out[i + k] = rest[k];
}

HWY_INLINE Vector ZeroUnlessPositive(Vector condition, Vector value) {
    return hn::IfThenElseZero(hn::Gt(condition, hn::Zero(FloatTag())), value);
}

void Line(float* out, float from, float slope, int first, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    const auto base = Set(from);
    const auto by = Set(slope);
    const auto step = Set(static_cast<float>(lanes));
    auto place = hn::Iota(d, static_cast<float>(first));
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        hn::StoreU(hn::Add(base, hn::Mul(by, place)), d, out + i);
        place = hn::Add(place, step);
    }
    for (; i < count; ++i)
        out[i] = from + slope * (static_cast<float>(first) + static_cast<float>(i));
}

void MultiplyBy(float* out, const float* in, const float* gains, std::size_t count) {
    const FloatTag d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        hn::StoreU(hn::Mul(hn::LoadU(d, in + i), hn::LoadU(d, gains + i)), d, out + i);
    for (; i < count; ++i) out[i] = in[i] * gains[i];
}

void ExponentialGains(float* out, const float* in, float slope, float offset, std::size_t count) {
    const auto by = Set(slope);
    const auto plus = Set(offset);
    ForEach(out, in, count, [&](Vector x) HWY_ATTR {
        return ZeroUnlessPositive(x, Exp2(hn::Add(hn::Mul(x, by), plus)));
    });
}

void Log2(float* out, const float* in, std::size_t count) {
    ForEach(out, in, count, [](Vector x) HWY_ATTR { return LogOfTwo(x); });
}

void PowerGains(float* out, const float* in, float exponent, float offset, std::size_t count) {
    const auto by = Set(exponent);
    const auto plus = Set(offset);
    const auto tiny = Set(1.17549435e-38f);
    ForEach(out, in, count, [&](Vector x) HWY_ATTR {
        return ZeroUnlessPositive(x, Exp2(hn::Add(hn::Mul(LogOfTwo(hn::Max(x, tiny)), by), plus)));
    });
}

void LogShape(float* out, const float* in, float bend, std::size_t count) {
    const auto by = Set(bend);
    const auto scale = Set(1.0f / std::log2(1.0f + bend));
    ForEach(out, in, count, [&](Vector x) HWY_ATTR {
        return hn::Mul(LogOfTwo(hn::Add(Set(1.0f), hn::Mul(x, by))), scale);
    });
}

void SineShape(float* out, const float* in, std::size_t count) {
    constexpr float kSeries[] = {1.57079633f,    -0.645964098f,   0.0796926262f, -4.68175414e-3f,
                                 1.60441185e-4f, -3.59884324e-6f, 5.69217292e-8f};
    ForEach(out, in, count, [&](Vector x) HWY_ATTR {
        return hn::Min(hn::Mul(x, Polynomial(hn::Mul(x, x), kSeries)), Set(1.0f));
    });
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(Line);
HWY_EXPORT(MultiplyBy);
HWY_EXPORT(ExponentialGains);
HWY_EXPORT(Log2);
HWY_EXPORT(PowerGains);
HWY_EXPORT(LogShape);
HWY_EXPORT(SineShape);

void Line(float* out, float from, float slope, int first, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(Line)(out, from, slope, first, count);
}

void MultiplyBy(float* out, const float* in, const float* gains, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(MultiplyBy)(out, in, gains, count);
}

void ExponentialGains(float* out, const float* in, float slope, float offset, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(ExponentialGains)(out, in, slope, offset, count);
}

void Log2(float* out, const float* in, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(Log2)(out, in, count);
}

void PowerGains(float* out, const float* in, float exponent, float offset, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(PowerGains)(out, in, exponent, offset, count);
}

void LogShape(float* out, const float* in, float bend, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(LogShape)(out, in, bend, count);
}

void SineShape(float* out, const float* in, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(SineShape)(out, in, count);
}

}  // namespace dsp::vector
#endif
