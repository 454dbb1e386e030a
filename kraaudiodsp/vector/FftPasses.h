#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/AlignedVector.h"

/// The passes of dsp::RealFft, which is what others use.
namespace dsp::vector {

/// One pass of the complex transform: `stride` interleaved transforms of `length` values each become
/// `stride * radix` transforms of `length / radix`.
struct FftStage {
    std::size_t radix = 4;  // 2, 3, 4 or 5
    std::size_t length = 0;
    std::size_t stride = 1;
    /// First of (radix - 1) x (cos, -sin) x (length / radix) values.
    std::size_t twiddlesAt = 0;
};

template <typename T>
struct FftPlan {
    std::size_t size = 0;  // n, of the real transform
    std::vector<FftStage> stages;
    AlignedVector<T> twiddles;
    AlignedVector<T> untieCos;  // cos(2 pi k / n), k < n/2
    AlignedVector<T> untieSin;  // -sin(2 pi k / n)
    AlignedVector<T> work;      // four blocks of n/2: two pairs of real and imaginary parts
};

/// RealFft::Forward and RealFft::Inverse. [audio]
void FftForward(FftPlan<float>& plan, const float* in, std::complex<float>* out);
void FftForward(FftPlan<double>& plan, const double* in, std::complex<double>* out);
void FftInverse(FftPlan<float>& plan, const std::complex<float>* in, float* out);
void FftInverse(FftPlan<double>& plan, const std::complex<double>* in, double* out);

}  // namespace dsp::vector
