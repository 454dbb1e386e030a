#pragma once

#include <array>
#include <cstddef>

/// The inner loop of the octave equalizer (see kraaudiodsp/OctaveEqualizer.h): seven running sums in a
/// row, for 2 or 4 channels side by side.
namespace dsp::vector {

inline constexpr std::size_t kOctaveStageCount = 7;
inline constexpr std::size_t kOctaveBlockFrames = 128;

/// Values that stage `stage` (from 0) adds up: 2, 4, ... 128.
constexpr std::size_t GetOctaveStageFrames(std::size_t stage) { return std::size_t{2} << stage; }

/// The state, in rows of one value per channel: the sums, then for each stage the values that it has
/// added up and after them room for a block of new ones.
constexpr std::size_t GetOctaveStageRow(std::size_t stage) {
    std::size_t row = kOctaveStageCount + GetOctaveStageFrames(0);
    for (std::size_t s = 1; s <= stage; ++s) row += kOctaveBlockFrames + GetOctaveStageFrames(s);
    return row;
}
inline constexpr std::size_t kOctaveStateRows =
    GetOctaveStageRow(kOctaveStageCount - 1) + kOctaveBlockFrames;

/// For each frame with the value x and s[0] = x:
///
///     s[k] = the sum of the last 2^k values s[k - 1]
///     y = coefficient[0] x + coefficient[1] s[1] + ... + coefficient[7] s[7]
///
/// in double, in this order, the sums kept as (sum - leaving) + new. `io` is frames x lanes, x in and y
/// out; `state` has kOctaveStateRows rows of `lanes` values, of whose blocks `position` frames are
/// used; `lanes` is 2 or 4; `position + frames` at most kOctaveBlockFrames. [any]
void FilterOctaveBands(float* io,
                       double* state,
                       const std::array<double, kOctaveStageCount + 1>& coefficients,
                       std::size_t lanes,
                       std::size_t position,
                       std::size_t frames);

}  // namespace dsp::vector
