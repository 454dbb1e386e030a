#pragma once

#include <cstddef>

/// Array loops of delay effects; the rules of VectorOps.h hold. A gain that moves is
/// start + step * (first + i) for frame i, and constant with a step of 0.
namespace dsp::vector {

/// out[i] = out[i] + in[i] * gain(i)
void AddRamped(
    float* out, const float* in, float start, float step, std::size_t first, std::size_t count);

/// Lets each of two arrays go over into the other: a = a + (b - a) * gain(i) and b = b + (a - b) * gain(i)
/// with the values from before.
void Exchange(float* a, float* b, float start, float step, std::size_t first, std::size_t count);

/// Closes a feedback loop: kept[i] = in[i] * gain(i) + echo[i] within [-1, 1], 0 where that is not
/// finite, and out[i] = in[i] + echo[i]. `out` may be `in`.
void FeedBack(float* kept,
              float* out,
              const float* in,
              const float* echo,
              float start,
              float step,
              std::size_t first,
              std::size_t count);

}  // namespace dsp::vector
