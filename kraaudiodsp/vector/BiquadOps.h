#pragma once

#include <array>
#include <cstddef>

/// The inner loop of second-order filters in a row; the rules of VectorOps.h hold.
namespace dsp::vector {

inline constexpr std::size_t kBiquadLanes = 4;

/// Four filters that follow each other, with their coefficients (see kraaudiodsp/FilterDesign.h) and their
/// state in transposed form II:
///
///     y = b0 x + s1     s1' = (b1 x - a1 y) + s2     s2' = b2 x - a2 y
struct alignas(32) BiquadGroup {
    using Lanes = std::array<double, kBiquadLanes>;
    Lanes b0{1.0, 1.0, 1.0, 1.0};
    Lanes b1{};
    Lanes b2{};
    Lanes a1{};
    Lanes a2{};
    Lanes s1{};
    Lanes s2{};
};

/// Filters in place through all the groups, from the first lane of the first to the last lane of the last.
/// Each frame goes through one filter a step, the next frame one filter behind, so that all filters
/// work at once; all frames are through when the call returns.
void FilterBiquads(double* io, BiquadGroup* groups, std::size_t groupCount, std::size_t frames);

}  // namespace dsp::vector
