#include "kraaudiodsp/vector/SpectrumOps.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/SpectrumOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Pairs of real and imaginary parts. Products and sums stay apart and in one order on every machine:
/// (sum + a.re b) + a.im (-b.im, b.re).
void AddProducts(float* sum, const float* a, const float* b, std::size_t count) {
    std::size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<float> d;
    const std::size_t lanes = hn::Lanes(d);
    const auto odd = hn::Set(d, 1.0f);
    const auto signs = hn::OddEven(odd, hn::Neg(odd));
    for (; i + lanes <= 2 * count; i += lanes) {
        const auto x = hn::LoadU(d, a + i);
        const auto y = hn::LoadU(d, b + i);
        const auto turned = hn::Mul(hn::Reverse2(d, y), signs);
        const auto first = hn::Add(hn::LoadU(d, sum + i), hn::Mul(hn::DupEven(x), y));
        hn::StoreU(hn::Add(first, hn::Mul(hn::DupOdd(x), turned)), d, sum + i);
    }
#endif
    for (; i < 2 * count; i += 2) {
        sum[i] = (sum[i] + a[i] * b[i]) + a[i + 1] * -b[i + 1];
        sum[i + 1] = (sum[i + 1] + a[i] * b[i + 1]) + a[i + 1] * b[i];
    }
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(AddProducts);

void AddProducts(std::complex<float>* sum,
                 const std::complex<float>* a,
                 const std::complex<float>* b,
                 std::size_t count) {
    // A complex number is laid out as its two parts, see the standard.
    HWY_DYNAMIC_DISPATCH(AddProducts)
    (reinterpret_cast<float*>(sum), reinterpret_cast<const float*>(a),
     reinterpret_cast<const float*>(b), count);
}

}  // namespace dsp::vector
#endif
