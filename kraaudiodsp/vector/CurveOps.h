#pragma once

#include <cstddef>

/// Array loops for gains that follow curves; the rules of VectorOps.h hold.
namespace dsp::vector {

/// out[i] = from + slope * (first + i); `first` and `count` together stay below 2^24.
void Line(float* out, float from, float slope, int first, std::size_t count);

/// out[i] = in[i] * gains[i]; all may be the same array.
void MultiplyBy(float* out, const float* in, const float* gains, std::size_t count);

/// out[i] = 2^(slope * in[i] + offset), and 0 where in[i] <= 0; within 4e-7 of it for results from
/// 2^-126 to 2^127, clamped to them.
void ExponentialGains(float* out, const float* in, float slope, float offset, std::size_t count);

/// out[i] = log2(in[i]) for positive in[i] that are not denormal; within 2e-7 or a few ULP.
void Log2(float* out, const float* in, std::size_t count);

/// out[i] = 2^(exponent * log2(in[i]) + offset), and 0 where in[i] <= 0; relative error below 2e-6 for
/// |exponent log2(in)| up to 16, growing with it.
void PowerGains(float* out, const float* in, float exponent, float offset, std::size_t count);

/// out[i] = ln(1 + bend * in[i]) / ln(1 + bend) for in[i] in [0, 1] and bend >= 1e-6; within 3e-7.
void LogShape(float* out, const float* in, float bend, std::size_t count);

/// out[i] = sin(pi/2 * in[i]) for in[i] in [0, 1]; within 2e-7 and never above 1.
void SineShape(float* out, const float* in, std::size_t count);

}  // namespace dsp::vector
