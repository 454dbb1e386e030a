#pragma once

#include <array>
#include <cstddef>

/// Array loops that find and hold peaks; the rules of VectorOps.h hold.
namespace dsp::vector {

/// The largest |in[i]|; 0 for none.
float PeakOf(const float* in, std::size_t count);

/// The sum of in[i]^2 in double, in an order that does not depend on the machine.
double SumOfSquares(const float* in, std::size_t count);

inline constexpr std::size_t kTruePeakReach =
    24;  // samples that are read on either side of a place

/// A four-fold interpolator by its symmetry: with s = left + right and d = left - right of the samples k
/// steps to either side of the middle between two samples,
///
///     middle = sum middle[k] s     first, third quarter = sum even[k] s +- sum odd[k] d
struct TruePeakTaps {
    std::array<float, kTruePeakReach> middle;
    std::array<float, kTruePeakReach> even;
    std::array<float, kTruePeakReach> odd;
};

/// out[i] = the largest magnitude from sample i up to sample i + 1 of the signal between the samples, by
/// four-fold interpolation and a parabola through the largest point where it tops its neighbours; never
/// below |in[i]|. Reads in[-kTruePeakReach] to in[count + kTruePeakReach - 1]; `out` and `in` must not
/// overlap.
void TruePeaks(float* out, const float* in, const TruePeakTaps& taps, std::size_t count);

/// out[i] = in[i] * gains[i], held within +-ceiling; returns how many had to be held.
std::size_t MultiplyWithin(
    float* out, const float* in, const float* gains, float ceiling, std::size_t count);

}  // namespace dsp::vector
