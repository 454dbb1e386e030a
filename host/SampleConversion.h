#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zuc::host {

/// How the samples of a plain file stand in it, lowest byte first.
enum class Encoding { kUnsigned8, kInt16, kInt24, kInt32, kFloat32 };

std::size_t GetSampleBytes(Encoding encoding);  // [any]

/// `out[i] = samples[i] / 2^(bits-1)`, floats as they are. 24-bit samples are read four bytes at a
/// time, so one byte behind the last one must be readable. `in` need not be aligned. kUnsigned8 is
/// not read. [worker]
void Decode(Encoding encoding, const std::byte* in, float* out, std::size_t samples);

/// `out[c][i] = in[i * channels + order[c]]`; no order means that of the file. [worker]
void Deinterleave(const float* in, float* const* out, int channels, int frames, const int* order);
/// `out[i * channels + order[c]] = in[c][first + i]`. [worker]
void Interleave(
    const float* const* in, int first, float* out, int channels, int frames, const int* order);

/// Triangular noise of 2 LSB peak to peak, white, and new for every sample. The sequence depends on
/// the seed alone, not on the counts in which it is fetched.
///
/// The difference of two uniform variables, the halves of one 32-bit number; eight xorshift generators
/// (Marsaglia, "Xorshift RNGs", 2003) take turns so that the compiler can run them side by side.
class Dither {
public:
    explicit Dither(std::uint64_t seed);
    /// The next `count` values, in LSB. [worker]
    void Fill(float* noise, std::size_t count);

private:
    static constexpr std::size_t kLanes = 8;
    using Lanes = std::array<std::uint32_t, kLanes>;
    static void Step(Lanes& state);

    Lanes state_{};
    std::size_t used_ = kLanes;  // lanes of the current state already taken
};

/// Turns samples at full scale +-1 into integers of `bits` bits: nearest value, cut off at the ends of
/// the range, not-a-number as 0. `noise` is added in LSB before rounding, up to 24 bits; null: none. Up
/// to 24 bits the result is exact for every sample that is a multiple of 2^-(bits-1). [worker]
void Quantise(
    const float* samples, const float* noise, std::int32_t* out, std::size_t count, int bits);

/// Stores integers in the file's bytes; not for kFloat32. [worker]
void Pack(Encoding encoding, const std::int32_t* in, std::byte* out, std::size_t count);

/// Largest |x|; not finite when one sample is not. [worker]
float PeakOf(const float* samples, std::size_t count);

}  // namespace zuc::host
