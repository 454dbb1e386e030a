#pragma once

#include <cstddef>

/// Array loops, each in the fastest form that the machine has. Target first, then sources, then the
/// count; any count and alignment; `out` and `in` may be the same array but not overlap otherwise.
/// Results are the same on every machine and for any split of the array. All are [any].
namespace dsp::vector {

/// out[i] = in[i] * gain
void Multiply(float* out, const float* in, float gain, std::size_t count);

/// out[i] = in[i] * (start + step * (first + i)): one piece of a linear gain ramp whose frame `first`
/// comes at out[0]. `first + count` must stay below 2^24.
void MultiplyRamp(
    float* out, const float* in, float start, float step, std::size_t first, std::size_t count);

/// How many of the values are infinite or not a number.
std::size_t CountNonFinite(const float* in, std::size_t count);

/// Copies, with 0 in place of values that are not finite; returns how many those were.
std::size_t CopyFinite(float* out, const float* in, std::size_t count);

}  // namespace dsp::vector
