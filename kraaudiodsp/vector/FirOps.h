#pragma once

#include <cstddef>

/// Array loops of FIR filters; the rules of VectorOps.h hold, except that `out` and `in` must not
/// overlap.
namespace dsp::vector {

/// A symmetric filter of 2 half + 1 taps, of which the first half + 1 are given:
///
///     out[i] = taps[half] in[i + half] + sum over k < half of taps[k] (in[i + k] + in[i + 2 half - k])
///
/// `in` holds count + 2 half values. The sum runs from k = 0 upwards for every i.
void SymmetricFir(
    float* out, const float* in, const float* taps, std::size_t half, std::size_t count);

}  // namespace dsp::vector
