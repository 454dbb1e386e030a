#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The inner loop of delays between frames (see kraaudiodsp/FractionalDelay.h); the rules of VectorOps.h
/// hold.
namespace dsp::vector {

inline constexpr std::size_t kSincTaps = 32;
inline constexpr int kSincPhaseBits = 9;
inline constexpr int kDelayFractionBits = 40;  // of a delay in frames, as an integer

/// The taps for one fraction of a frame, and what they grow by to the next one.
struct alignas(64) SincRow {
    std::array<float, kSincTaps> taps;
    std::array<float, kSincTaps> growth;
};

/// A moving copy of two channels. Each frame: delay += first, first += second, second += third, and
/// gain[c] += gainStep[c].
struct MovingTap {
    std::int64_t delay = 0;  // frames in units of 2^-40; less than kSincTaps / 2 counts as that
    std::int64_t first = 0;
    std::int64_t second = 0;
    std::int64_t third = 0;
    std::array<float, 2> gain{};
    std::array<float, 2> gainStep{};
};

/// out[c][i] = sum over the taps of gain[c] times in[c] at i - delay, for one or two channels. Reads in[c]
/// from i - delay - 16 to i - delay + 15 in whole frames, never beyond in[c][i - 1]. Moves the taps on by `count`
/// frames. `rows` has 2^kSincPhaseBits rows.
void ReadMovingTaps(float* const* out,
                    const float* const* in,
                    std::size_t channels,
                    const SincRow* rows,
                    MovingTap* taps,
                    std::size_t tapCount,
                    std::size_t count);

}  // namespace dsp::vector
