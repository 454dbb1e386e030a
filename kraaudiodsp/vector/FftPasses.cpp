#include "kraaudiodsp/vector/FftPasses.h"

#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/FftPasses.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// Products are rounded before they are added (no fused operations), so that every machine gives the
// same bits.

template <class V>
struct Complex {
    V re, im;
};
template <class V>
HWY_INLINE Complex<V> operator+(const Complex<V>& a, const Complex<V>& b) {
    return {hn::Add(a.re, b.re), hn::Add(a.im, b.im)};
}
template <class V>
HWY_INLINE Complex<V> operator-(const Complex<V>& a, const Complex<V>& b) {
    return {hn::Sub(a.re, b.re), hn::Sub(a.im, b.im)};
}
template <class V>
HWY_INLINE Complex<V> operator*(const Complex<V>& a, const Complex<V>& b) {
    return {hn::Sub(hn::Mul(a.re, b.re), hn::Mul(a.im, b.im)),
            hn::Add(hn::Mul(a.re, b.im), hn::Mul(a.im, b.re))};
}
template <class V>
HWY_INLINE Complex<V> operator*(const Complex<V>& a, V factor) {
    return {hn::Mul(a.re, factor), hn::Mul(a.im, factor)};
}
/// -j z
template <class V>
HWY_INLINE Complex<V> TurnBack(const Complex<V>& z) {
    return {z.im, hn::Neg(z.re)};
}

/// z[k] becomes the sum over i of z[i] exp(-2 pi j i k / radix).
template <std::size_t kRadix, class D, class V = hn::Vec<D>>
HWY_INLINE void Butterfly(D d, Complex<V>* z) {
    using T = hn::TFromD<D>;
    if constexpr (kRadix == 2) {
        const auto a = z[0];
        z[0] = a + z[1];
        z[1] = a - z[1];
    } else if constexpr (kRadix == 3) {
        const auto sum = z[1] + z[2];
        const auto turned = TurnBack(z[1] - z[2]) * hn::Set(d, T(0.86602540378443864676));
        const auto middle = z[0] - sum * hn::Set(d, T(0.5));
        z[0] = z[0] + sum;
        z[1] = middle + turned;
        z[2] = middle - turned;
    } else if constexpr (kRadix == 4) {
        const auto even = z[0] + z[2], evenTurned = z[0] - z[2];
        const auto odd = z[1] + z[3], oddTurned = TurnBack(z[1] - z[3]);
        z[0] = even + odd;
        z[1] = evenTurned + oddTurned;
        z[2] = even - odd;
        z[3] = evenTurned - oddTurned;
    } else {
        static_assert(kRadix == 5);
        const auto cosines =
            hn::Set(d, T(0.55901699437494742410));  // (cos 72 - cos 144 degrees) / 2
        const auto sin1 = hn::Set(d, T(0.95105651629515357212));
        const auto sin2 = hn::Set(d, T(0.58778525229247312917));
        const auto s1 = z[1] + z[4], s2 = z[2] + z[3], sum = s1 + s2;
        const auto d1 = TurnBack(z[1] - z[4]), d2 = TurnBack(z[2] - z[3]);
        const auto middle = z[0] - sum * hn::Set(d, T(0.25)), apart = (s1 - s2) * cosines;
        const auto m1 = middle + apart, m2 = middle - apart;
        const auto t1 = d1 * sin1 + d2 * sin2, t2 = d1 * sin2 - d2 * sin1;
        z[0] = z[0] + sum;
        z[1] = m1 + t1;
        z[2] = m2 + t2;
        z[3] = m2 - t2;
        z[4] = m1 - t1;
    }
}

template <typename T>
struct Split {
    T* re;
    T* im;
};

/// One pass; the lanes of `d` run over the interleaved transforms and divide their number.
template <std::size_t kRadix, class D, typename T = hn::TFromD<D>>
HWY_INLINE void Pass(
    D d, const FftStage& stage, const T* twiddles, Split<const T> in, Split<T> out) {
    using V = hn::Vec<D>;
    const std::size_t groups = stage.length / kRadix;
    for (std::size_t p = 0; p < groups; ++p) {
        Complex<V> w[kRadix];
        for (std::size_t k = 1; k < kRadix; ++k)
            w[k] = {hn::Set(d, twiddles[(2 * k - 2) * groups + p]),
                    hn::Set(d, twiddles[(2 * k - 1) * groups + p])};
        const std::size_t from = stage.stride * p, to = stage.stride * kRadix * p;
        for (std::size_t q = 0; q < stage.stride; q += hn::Lanes(d)) {
            Complex<V> z[kRadix];
            for (std::size_t k = 0; k < kRadix; ++k) {
                const std::size_t at = from + q + stage.stride * groups * k;
                z[k] = {hn::LoadU(d, in.re + at), hn::LoadU(d, in.im + at)};
            }
            Butterfly<kRadix>(d, z);
            for (std::size_t k = 0; k < kRadix; ++k) {
                const auto y = k == 0 ? z[0] : z[k] * w[k];
                hn::StoreU(y.re, d, out.re + to + q + stage.stride * k);
                hn::StoreU(y.im, d, out.im + to + q + stage.stride * k);
            }
        }
    }
}

/// The first radix-4 pass, where the stride is 1: the lanes run over the groups instead.
template <class D, typename T = hn::TFromD<D>>
HWY_INLINE void FirstPass(
    D d, const FftStage& stage, const T* twiddles, Split<const T> in, Split<T> out) {
    const std::size_t groups = stage.length / 4;
    for (std::size_t p = 0; p < groups; p += hn::Lanes(d)) {
        Complex<hn::Vec<D>> z[4];
        for (std::size_t k = 0; k < 4; ++k)
            z[k] = {hn::LoadU(d, in.re + groups * k + p), hn::LoadU(d, in.im + groups * k + p)};
        Butterfly<4>(d, z);
        for (std::size_t k = 1; k < 4; ++k)
            z[k] = z[k] * Complex<hn::Vec<D>>{hn::LoadU(d, twiddles + (2 * k - 2) * groups + p),
                                              hn::LoadU(d, twiddles + (2 * k - 1) * groups + p)};
        hn::StoreInterleaved4(z[0].re, z[1].re, z[2].re, z[3].re, d, out.re + 4 * p);
        hn::StoreInterleaved4(z[0].im, z[1].im, z[2].im, z[3].im, d, out.im + 4 * p);
    }
}

template <class D, typename T = hn::TFromD<D>>
HWY_INLINE void PassOfAnyRadix(
    D d, const FftStage& stage, const T* twiddles, Split<const T> in, Split<T> out) {
    switch (stage.radix) {
        case 2:
            return Pass<2>(d, stage, twiddles, in, out);
        case 3:
            return Pass<3>(d, stage, twiddles, in, out);
        case 4:
            return Pass<4>(d, stage, twiddles, in, out);
        case 5:
            return Pass<5>(d, stage, twiddles, in, out);
        default:
            HWY_ABORT("no such radix");
    }
}

/// All passes, from `a` to `b` and back; returns where the result is.
template <typename T>
HWY_INLINE Split<T> Transform(const FftPlan<T>& plan, Split<T> a, Split<T> b) {
    const hn::ScalableTag<T> full;
    const hn::CappedTag<T, 4> four;
    const hn::CappedTag<T, 1> one;
    for (const FftStage& stage : plan.stages) {
        const T* twiddles = plan.twiddles.data() + stage.twiddlesAt;
        const Split<const T> from{a.re, a.im};
        if (stage.stride == 1 && stage.radix == 4 && stage.length / 4 % hn::Lanes(full) == 0)
            FirstPass(full, stage, twiddles, from, b);
        else if (stage.stride % hn::Lanes(full) == 0)
            PassOfAnyRadix(full, stage, twiddles, from, b);
        else if (stage.stride % hn::Lanes(four) == 0)
            PassOfAnyRadix(four, stage, twiddles, from, b);
        else
            PassOfAnyRadix(one, stage, twiddles, from, b);
        std::swap(a, b);
    }
    return a;
}

/// Even samples as real, odd ones as imaginary parts; `count` pairs.
template <typename T>
HWY_INLINE void Unzip(const T* in, Split<T> out, std::size_t count) {
    const hn::ScalableTag<T> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        auto re = hn::Zero(d), im = hn::Zero(d);
        hn::LoadInterleaved2(d, in + 2 * i, re, im);
        hn::StoreU(re, d, out.re + i);
        hn::StoreU(im, d, out.im + i);
    }
    for (; i < count; ++i) {
        out.re[i] = in[2 * i];
        out.im[i] = in[2 * i + 1];
    }
}

template <typename T>
HWY_INLINE void Zip(Split<const T> in, T* out, std::size_t count) {
    const hn::ScalableTag<T> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreInterleaved2(hn::LoadU(d, in.re + i), hn::LoadU(d, in.im + i), d, out + 2 * i);
    for (; i < count; ++i) {
        out[2 * i] = in.re[i];
        out[2 * i + 1] = in.im[i];
    }
}

/// X[k] = E + W O with E, O the halves of z[k] +- conj z[m - k], for the lanes from k on.
template <class D, class V = hn::Vec<D>>
HWY_INLINE Complex<V> Untie(D d,
                            const Complex<V>& z,
                            const Complex<V>& mirrored,
                            const Complex<V>& w) {
    const auto half = hn::Set(d, hn::TFromD<D>(0.5));
    const Complex<V> conjugate{mirrored.re, hn::Neg(mirrored.im)};
    return (z + conjugate) * half + w * TurnBack((z - conjugate) * half);
}

/// z[k] = E + j O, the way back, times 1 / m.
template <class D, class V = hn::Vec<D>>
HWY_INLINE Complex<V> Tie(
    D d, const Complex<V>& x, const Complex<V>& mirrored, const Complex<V>& w, V scale) {
    (void)d;
    const Complex<V> conjugate{mirrored.re, hn::Neg(mirrored.im)};
    const auto odd = ((x - conjugate) * scale) * Complex<V>{w.re, hn::Neg(w.im)};
    return (x + conjugate) * scale - TurnBack(odd);
}

/// Spectrum of the real signal from the transform `z` of its zipped halves.
template <typename T>
void UntieAll(const FftPlan<T>& plan, Split<const T> z, T* out) {
    const std::size_t half = plan.size / 2;
    const auto pass = [&](auto d, std::size_t k) {
        const std::size_t mirror = half - k - hn::Lanes(d) + 1;
        const auto x =
            Untie(d, Complex<decltype(hn::Zero(d))>{hn::LoadU(d, z.re + k), hn::LoadU(d, z.im + k)},
                  {hn::Reverse(d, hn::LoadU(d, z.re + mirror)),
                   hn::Reverse(d, hn::LoadU(d, z.im + mirror))},
                  {hn::LoadU(d, plan.untieCos.data() + k), hn::LoadU(d, plan.untieSin.data() + k)});
        hn::StoreInterleaved2(x.re, x.im, d, out + 2 * k);
    };
    const hn::ScalableTag<T> full;
    const hn::CappedTag<T, 1> one;
    out[0] = z.re[0] + z.im[0];
    out[1] = T(0);
    out[2 * half] = z.re[0] - z.im[0];
    out[2 * half + 1] = T(0);
    std::size_t k = 1;
    for (; k + hn::Lanes(full) <= half; k += hn::Lanes(full)) pass(full, k);
    for (; k < half; ++k) pass(one, k);
}

template <typename T>
void TieAll(const FftPlan<T>& plan, const T* in, Split<T> z) {
    const std::size_t half = plan.size / 2;
    const T scale = T(0.5) / static_cast<T>(half);
    const auto pass = [&](auto d, std::size_t k) {
        auto re = hn::Zero(d), im = hn::Zero(d), mirrorRe = hn::Zero(d), mirrorIm = hn::Zero(d);
        hn::LoadInterleaved2(d, in + 2 * k, re, im);
        hn::LoadInterleaved2(d, in + 2 * (half - k - hn::Lanes(d) + 1), mirrorRe, mirrorIm);
        const auto value = Tie(
            d, Complex<decltype(re)>{re, im}, {hn::Reverse(d, mirrorRe), hn::Reverse(d, mirrorIm)},
            {hn::LoadU(d, plan.untieCos.data() + k), hn::LoadU(d, plan.untieSin.data() + k)},
            hn::Set(d, scale));
        hn::StoreU(value.re, d, z.re + k);
        hn::StoreU(value.im, d, z.im + k);
    };
    const hn::ScalableTag<T> full;
    const hn::CappedTag<T, 1> one;
    z.re[0] = (in[0] + in[2 * half]) * scale;
    z.im[0] = (in[0] - in[2 * half]) * scale;
    std::size_t k = 1;
    for (; k + hn::Lanes(full) <= half; k += hn::Lanes(full)) pass(full, k);
    for (; k < half; ++k) pass(one, k);
}

template <typename T>
HWY_INLINE void Forward(FftPlan<T>& plan, const T* in, T* out) {
    const std::size_t half = plan.size / 2;
    T* work = plan.work.data();
    const Split<T> a{work, work + half}, b{work + 2 * half, work + 3 * half};
    Unzip(in, a, half);
    const Split<T> z = Transform(plan, a, b);
    UntieAll(plan, Split<const T>{z.re, z.im}, out);
}

template <typename T>
HWY_INLINE void Inverse(FftPlan<T>& plan, const T* in, T* out) {
    const std::size_t half = plan.size / 2;
    T* work = plan.work.data();
    const Split<T> a{work, work + half}, b{work + 2 * half, work + 3 * half};
    TieAll(plan, in, a);
    // Real and imaginary parts exchanged before and after make the inverse transform.
    const Split<T> z = Transform(plan, Split<T>{a.im, a.re}, Split<T>{b.im, b.re});
    Zip(Split<const T>{z.im, z.re}, out, half);
}

void ForwardFloat(FftPlan<float>& plan, const float* in, float* out) { Forward(plan, in, out); }
void ForwardDouble(FftPlan<double>& plan, const double* in, double* out) { Forward(plan, in, out); }
void InverseFloat(FftPlan<float>& plan, const float* in, float* out) { Inverse(plan, in, out); }
void InverseDouble(FftPlan<double>& plan, const double* in, double* out) { Inverse(plan, in, out); }

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(ForwardFloat);
HWY_EXPORT(ForwardDouble);
HWY_EXPORT(InverseFloat);
HWY_EXPORT(InverseDouble);

// A complex number is an array of its two parts (C++ standard, complex.numbers).
void FftForward(FftPlan<float>& plan, const float* in, std::complex<float>* out) {
    HWY_DYNAMIC_DISPATCH(ForwardFloat)(plan, in, reinterpret_cast<float*>(out));
}
void FftForward(FftPlan<double>& plan, const double* in, std::complex<double>* out) {
    HWY_DYNAMIC_DISPATCH(ForwardDouble)(plan, in, reinterpret_cast<double*>(out));
}
void FftInverse(FftPlan<float>& plan, const std::complex<float>* in, float* out) {
    HWY_DYNAMIC_DISPATCH(InverseFloat)(plan, reinterpret_cast<const float*>(in), out);
}
void FftInverse(FftPlan<double>& plan, const std::complex<double>* in, double* out) {
    HWY_DYNAMIC_DISPATCH(InverseDouble)(plan, reinterpret_cast<const double*>(in), out);
}

}  // namespace dsp::vector
#endif
