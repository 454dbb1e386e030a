#pragma once

#include <cstddef>

namespace dsp::vector {

/// out[k] = sum over i < length of row[i] * rows[k * length + i], k < rowCount. Sixteen partial sums
/// are kept whatever the machine's vectors hold, so the result is the same on all. `out` must not
/// overlap; any length and alignment, multiples of 16 and 64 bytes being the fastest. [any]
void DotProducts(
    float* out, const float* row, const float* rows, std::size_t rowCount, std::size_t length);

}  // namespace dsp::vector
