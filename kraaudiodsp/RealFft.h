#pragma once

#include <complex>
#include <cstddef>

#include "kraaudiodsp/vector/FftPasses.h"

namespace dsp {

/// Discrete Fourier transform of real signals, for float and double.
///
///     X[k] = sum over i of x[i] exp(-2 pi j i k / n),   k = 0 .. n/2
///
/// Sizes n are even, at most 2^20, and have no other prime factors than 2, 3 and 5; powers of two are
/// the fastest. Works as a complex transform of half the size (split format, radix 4, 2, 3 and 5 in
/// self-sorting order: Stockham; Cochran et al., "What is the fast Fourier transform?", 1967) and one
/// pass that unties the halves. The instruction set is chosen at run time and does not change results.
/// Forward and back again is within -132 dB (float) or -290 dB (double) of the input.
template <typename T>
class RealFft {
public:
    static constexpr std::size_t kMaxSize = std::size_t{1} << 20;

    /// The smallest allowed size that is at least `size`, which is at most kMaxSize. [any]
    static std::size_t GoodSize(std::size_t size);

    /// Makes tables and work space for transforms of `size` values. A size that is not allowed is
    /// asserted and leaves the object as it was. [host]
    void Prepare(std::size_t size);
    std::size_t GetSize() const { return plan_.size; }  // [any]

    /// `in[0 .. n)` to `out[0 .. n/2]`, unscaled. The buffers must not overlap. [audio]
    void Forward(const T* in, std::complex<T>* out);
    /// The inverse, scaled by 1/n, so that it undoes Forward. The imaginary parts of `in[0]` and
    /// `in[n/2]` are taken as 0. The buffers must not overlap. [audio]
    void Inverse(const std::complex<T>* in, T* out);

private:
    vector::FftPlan<T> plan_;
};

extern template class RealFft<float>;
extern template class RealFft<double>;

}  // namespace dsp
