#include "kraaudiodsp/vector/DotProducts.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/DotProducts.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t kSums = 16;
using Tag = hn::CappedTag<float, kSums>;

/// Partial sums of `kRows` products at a time, and their totals in a fixed order.
template <std::size_t kRows>
HWY_INLINE void Block(float* out, const float* row, const float* rows, std::size_t length) {
    const Tag d;
    constexpr std::size_t kParts = kSums / hn::MaxLanes(Tag());
    hn::Vec<Tag> sums[kRows][kParts];
    for (auto& parts : sums)
        for (auto& part : parts) part = hn::Zero(d);
    std::size_t i = 0;
    for (; i + kSums <= length; i += kSums)
        for (std::size_t p = 0; p < kParts; ++p) {
            const auto x = hn::LoadU(d, row + i + p * hn::Lanes(d));
            for (std::size_t k = 0; k < kRows; ++k) {
                const auto y = hn::LoadU(d, rows + k * length + i + p * hn::Lanes(d));
                sums[k][p] = hn::Add(sums[k][p], hn::Mul(x, y));
            }
        }
    for (std::size_t k = 0; k < kRows; ++k) {
        alignas(64) float totals[kSums];
        for (std::size_t p = 0; p < kParts; ++p)
            hn::StoreU(sums[k][p], d, totals + p * hn::Lanes(d));
        for (std::size_t j = i; j < length; ++j) totals[j - i] += row[j] * rows[k * length + j];
        for (std::size_t half = kSums / 2; half > 0; half /= 2)
            for (std::size_t j = 0; j < half; ++j) totals[j] += totals[j + half];
        out[k] = totals[0];
    }
}

void DotProducts(
    float* out, const float* row, const float* rows, std::size_t rowCount, std::size_t length) {
    std::size_t k = 0;
    for (; k + 4 <= rowCount; k += 4) Block<4>(out + k, row, rows + k * length, length);
    for (; k < rowCount; ++k) Block<1>(out + k, row, rows + k * length, length);
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(DotProducts);

void DotProducts(
    float* out, const float* row, const float* rows, std::size_t rowCount, std::size_t length) {
    HWY_DYNAMIC_DISPATCH(DotProducts)(out, row, rows, rowCount, length);
}

}  // namespace dsp::vector
#endif
