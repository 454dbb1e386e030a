#include "kraaudiodsp/vector/SincOps.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/SincOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Sums are kept in eight columns on every machine, so that all add up in the same order.
constexpr std::size_t kColumns = 8;
using Tag = hn::CappedTag<float, kColumns>;
using Vector = hn::Vec<Tag>;
constexpr std::size_t kVectorLanes = sizeof(Vector) / sizeof(float);
constexpr std::size_t kVectors = kColumns / kVectorLanes;

constexpr std::int64_t kOne = std::int64_t{1} << kDelayFractionBits;
constexpr std::int64_t kHalfTaps = kSincTaps / 2;
constexpr int kRowShift = kDelayFractionBits - kSincPhaseBits;
constexpr float kRowScale = 1.0f / static_cast<float>(std::int64_t{1} << kRowShift);

/// ((c0 + c4) + (c2 + c6)) + ((c1 + c5) + (c3 + c7))
HWY_INLINE float AddColumns(const Vector* columns) {
#if HWY_TARGET == HWY_SCALAR
    float c[kColumns];
    for (std::size_t v = 0; v < kVectors; ++v) c[v] = hn::GetLane(columns[v]);
    return ((c[0] + c[4]) + (c[2] + c[6])) + ((c[1] + c[5]) + (c[3] + c[7]));
#else
#if HWY_MAX_BYTES >= 32
    const hn::CappedTag<float, 4> four;
    const auto fours = hn::Add(hn::LowerHalf(four, columns[0]), hn::UpperHalf(four, columns[0]));
#else
    const auto fours = hn::Add(columns[0], columns[1]);
#endif
    const auto twos = hn::Add(fours, hn::Shuffle1032(fours));
    return hn::GetLane(hn::Add(twos, hn::Shuffle2301(twos)));
#endif
}

template <std::size_t kChannels>
void Read(float* const* out,
          const float* const* in,
          const SincRow* rows,
          MovingTap* taps,
          std::size_t tapCount,
          std::size_t count) {
    const Tag d;
    for (std::size_t i = 0; i < count; ++i) {
        Vector sums[kChannels][kVectors];
        for (auto& channel : sums)
            for (Vector& sum : channel) sum = hn::Zero(d);
        for (MovingTap* tap = taps; tap != taps + tapCount; ++tap) {
            const std::int64_t delay = std::max(tap->delay, kHalfTaps * kOne);
            const std::int64_t fraction = delay & (kOne - 1);
            const SincRow& row = rows[fraction >> kRowShift];
            const auto between = hn::Set(
                d, static_cast<float>(fraction & ((std::int64_t{1} << kRowShift) - 1)) * kRowScale);
            const std::int64_t oldest =
                static_cast<std::int64_t>(i) - (delay >> kDelayFractionBits) - kHalfTaps;
            for (std::size_t v = 0; v < kVectors; ++v) {
                Vector read[kChannels];
                for (std::size_t k = v * kVectorLanes; k < kSincTaps; k += kColumns) {
                    // Multiplied and added apart, never fused.
                    const auto weight = hn::Add(hn::Load(d, &row.taps[k]),
                                                hn::Mul(between, hn::Load(d, &row.growth[k])));
                    for (std::size_t c = 0; c < kChannels; ++c) {
                        const auto product = hn::Mul(
                            weight, hn::LoadU(d, in[c] + oldest + static_cast<std::int64_t>(k)));
                        read[c] = k < kColumns ? product : hn::Add(read[c], product);
                    }
                }
                for (std::size_t c = 0; c < kChannels; ++c)
                    sums[c][v] = hn::Add(sums[c][v], hn::Mul(read[c], hn::Set(d, tap->gain[c])));
            }
            tap->delay += tap->first;
            tap->first += tap->second;
            tap->second += tap->third;
            for (std::size_t c = 0; c < 2; ++c) tap->gain[c] += tap->gainStep[c];
        }
        for (std::size_t c = 0; c < kChannels; ++c) out[c][i] = AddColumns(sums[c]);
    }
}

void ReadOne(float* const* out,
             const float* const* in,
             const SincRow* rows,
             MovingTap* taps,
             std::size_t tapCount,
             std::size_t count) {
    Read<1>(out, in, rows, taps, tapCount, count);
}

void ReadTwo(float* const* out,
             const float* const* in,
             const SincRow* rows,
             MovingTap* taps,
             std::size_t tapCount,
             std::size_t count) {
    Read<2>(out, in, rows, taps, tapCount, count);
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(ReadOne);
HWY_EXPORT(ReadTwo);

void ReadMovingTaps(float* const* out,
                    const float* const* in,
                    std::size_t channels,
                    const SincRow* rows,
                    MovingTap* taps,
                    std::size_t tapCount,
                    std::size_t count) {
    const auto read = channels == 2 ? HWY_DYNAMIC_DISPATCH(ReadTwo) : HWY_DYNAMIC_DISPATCH(ReadOne);
    read(out, in, rows, taps, tapCount, count);
}

}  // namespace dsp::vector
#endif
