#include "kraaudiodsp/vector/LevelOps.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/LevelOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// Products and sums stay apart throughout, and the rest of an array runs through the same functions
// with one lane, so that every machine and every split gives the same bits.

/// Runs `step(tag, i)` over the array: whole vectors first, then one lane at a time.
template <class Step>
HWY_INLINE void ForEachVector(std::size_t count, const Step& step) {
    const hn::ScalableTag<float> d;
    const hn::CappedTag<float, 1> one;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) step(d, i);
    for (; i < count; ++i) step(one, i);
}

/// Coefficients from the highest power down.
template <class Tag, std::size_t kCount>
HWY_INLINE hn::Vec<Tag> Polynomial(Tag d, hn::Vec<Tag> x, const float (&coefficients)[kCount]) {
    hn::Vec<Tag> sum = hn::Set(d, coefficients[0]);
    for (std::size_t k = 1; k < kCount; ++k)
        sum = hn::Add(hn::Mul(sum, x), hn::Set(d, coefficients[k]));
    return sum;
}

/// Natural logarithm of a positive normal number: x = m 2^e with m in [sqrt(1/2), sqrt(2)), and
/// ln m = 2 artanh(s), s = (m - 1) / (m + 1). Four terms leave an error of 3e-8.
template <class Tag>
HWY_INLINE hn::Vec<Tag> Log(Tag d, hn::Vec<Tag> x) {
    const hn::RebindToSigned<Tag> bitsTag;
    constexpr float kArtanh[] = {2.0f / 7.0f, 2.0f / 5.0f, 2.0f / 3.0f, 2.0f};
    constexpr int kSqrtHalf = 0x3F3504F3;  // bits of sqrt(1/2)
    const auto bits = hn::BitCast(bitsTag, x);
    const auto exponent = hn::ShiftRight<23>(hn::Sub(bits, hn::Set(bitsTag, kSqrtHalf)));
    const auto m = hn::BitCast(d, hn::Sub(bits, hn::ShiftLeft<23>(exponent)));
    const auto one = hn::Set(d, 1.0f);
    const auto s = hn::Div(hn::Sub(m, one), hn::Add(m, one));
    const auto series = hn::Mul(s, Polynomial(d, hn::Mul(s, s), kArtanh));
    return hn::Add(hn::Mul(hn::ConvertTo(d, exponent), hn::Set(d, 0.69314718f)), series);
}

/// 10^(x / 20) = 2^n 2^f with n whole and |f| <= 1/2; Taylor series of 2^f to f^7, error 4e-9.
template <class Tag>
HWY_INLINE hn::Vec<Tag> DbToGain(Tag d, hn::Vec<Tag> db) {
    const hn::RebindToSigned<Tag> bitsTag;
    constexpr float kExp2[] = {1.5252734e-5f, 1.5403530e-4f, 1.3333558e-3f, 9.6181291e-3f,
                               5.5504109e-2f, 2.4022651e-1f, 6.9314718e-1f, 1.0f};
    constexpr float kLimitDb = 700.0f;
    const auto bounded = hn::Max(hn::Min(db, hn::Set(d, kLimitDb)), hn::Set(d, -kLimitDb));
    const auto octaves = hn::Mul(bounded, hn::Set(d, 0.16609640f));
    const auto whole = hn::Round(octaves);
    const auto fraction = Polynomial(d, hn::Sub(octaves, whole), kExp2);
    const auto exponent = hn::Add(hn::ConvertTo(bitsTag, whole), hn::Set(bitsTag, 127));
    return hn::Mul(fraction, hn::BitCast(d, hn::ShiftLeft<23>(exponent)));
}

void ToDb(float* out, const float* in, float dbPerNeper, float floorDb, std::size_t count) {
    ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
        const auto bounded = hn::Max(hn::LoadU(d, in + i), hn::Set(d, 1e-10f));
        const auto db = hn::Mul(Log(d, bounded), hn::Set(d, dbPerNeper));
        hn::StoreU(hn::Max(db, hn::Set(d, floorDb)), d, out + i);
    });
}

void FromDb(float* out, const float* in, std::size_t count) {
    ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
        hn::StoreU(DbToGain(d, hn::LoadU(d, in + i)), d, out + i);
    });
}

void LookUpGains(float* out, const float* in, const LevelTable& table, std::size_t count) {
    ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
        const hn::RebindToSigned<decltype(d)> indexTag;
        const auto zero = hn::Zero(d);
        const auto level = hn::LoadU(d, in + i);
        const auto last = hn::Set(d, static_cast<float>(table.count - 1));
        const auto position =
            hn::Min(hn::Max(hn::Mul(level, hn::Set(d, -table.entriesPerDb)), zero), last);
        const auto index = hn::Min(hn::ConvertTo(indexTag, position),
                                   hn::Set(indexTag, static_cast<int>(table.count - 2)));
        const auto fraction = hn::Sub(position, hn::ConvertTo(d, index));
        const auto above = hn::GatherIndex(d, table.gains, index);
        const auto below = hn::GatherIndex(d, table.gains + 1, index);
        auto gain =
            hn::Add(hn::Mul(above, hn::Sub(hn::Set(d, 1.0f), fraction)), hn::Mul(below, fraction));
        const auto isLoud = hn::Gt(level, zero);
        if (!hn::AllFalse(d, isLoud)) {
            const auto gainDb = hn::Add(hn::Set(d, table.gainDbAtZero),
                                        hn::Mul(level, hn::Set(d, table.gainDbPerDb)));
            const auto bounded = hn::Min(gainDb, hn::Set(d, table.largestGainDb));
            gain = hn::IfThenElse(isLoud, DbToGain(d, bounded), gain);
        }
        hn::StoreU(gain, d, out + i);
    });
}

void MultiplyGains(float* out,
                   const float* in,
                   const float* gains,
                   float start,
                   float step,
                   std::size_t first,
                   std::size_t count) {
    ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
        const auto frame = hn::Add(hn::Set(d, static_cast<float>(first + i)), hn::Iota(d, 0.0f));
        const auto factor = hn::Add(hn::Set(d, start), hn::Mul(hn::Set(d, step), frame));
        const auto product = hn::Mul(hn::LoadU(d, in + i), hn::LoadU(d, gains + i));
        hn::StoreU(hn::Mul(product, factor), d, out + i);
    });
}

void Maximum(float* out, const float* in, std::size_t count) {
    ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
        hn::StoreU(hn::Max(hn::LoadU(d, out + i), hn::LoadU(d, in + i)), d, out + i);
    });
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(ToDb);
HWY_EXPORT(FromDb);
HWY_EXPORT(LookUpGains);
HWY_EXPORT(MultiplyGains);
HWY_EXPORT(Maximum);

void ToDb(float* out, const float* in, float dbPerNeper, float floorDb, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(ToDb)(out, in, dbPerNeper, floorDb, count);
}

void FromDb(float* out, const float* in, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(FromDb)(out, in, count);
}

void LookUpGains(float* out, const float* in, const LevelTable& table, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(LookUpGains)(out, in, table, count);
}

void MultiplyGains(float* out,
                   const float* in,
                   const float* gains,
                   float start,
                   float step,
                   std::size_t first,
                   std::size_t count) {
    HWY_DYNAMIC_DISPATCH(MultiplyGains)(out, in, gains, start, step, first, count);
}

void Maximum(float* out, const float* in, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(Maximum)(out, in, count);
}

}  // namespace dsp::vector
#endif
