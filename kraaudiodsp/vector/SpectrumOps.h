#pragma once

#include <complex>
#include <cstddef>

/// The inner loop of convolution by spectra; the rules of VectorOps.h hold.
namespace dsp::vector {

/// sum[k] += a[k] * b[k]. `sum` overlaps neither.
void AddProducts(std::complex<float>* sum,
                 const std::complex<float>* a,
                 const std::complex<float>* b,
                 std::size_t count);

}  // namespace dsp::vector
