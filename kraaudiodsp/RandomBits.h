#pragma once

#include <array>
#include <cstdint>

namespace dsp {

/// 64 random bits at a time: xoshiro256++ (Blackman and Vigna, "Scrambled linear pseudorandom number
/// generators", 2021), seeded through splitmix64.
///
/// Streams of one seed lie 2^128 steps apart, so that no two of them ever overlap. The same seed and stream
/// give the same bits everywhere.
class RandomBits {
public:
    /// [any]
    explicit RandomBits(std::uint64_t seed = 0, int stream = 0) {
        for (std::uint64_t& word : state_) {
            seed += 0x9e3779b97f4a7c15u;
            std::uint64_t mixed = (seed ^ (seed >> 30)) * 0xbf58476d1ce4e5b9u;
            mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
            word = mixed ^ (mixed >> 31);
        }
        for (int i = 0; i < stream; ++i) Jump();
    }

    /// [audio]
    std::uint64_t Next() {
        const std::uint64_t result = RotateLeft(state_[0] + state_[3], 23) + state_[0];
        const std::uint64_t shifted = state_[1] << 17;
        state_[2] ^= state_[0];
        state_[3] ^= state_[1];
        state_[1] ^= state_[2];
        state_[0] ^= state_[3];
        state_[2] ^= shifted;
        state_[3] = RotateLeft(state_[3], 45);
        return result;
    }

    /// In [0, 1), on a grid of 2^-53. [audio]
    double NextUnit() { return static_cast<double>(Next() >> 11) * 0x1p-53; }

    /// As 2^128 calls of Next. [audio]
    void Jump() {
        // The generator's transition matrix to the power of 2^128, as a polynomial.
        constexpr std::array<std::uint64_t, 4> kPolynomial{
            0x180ec6d33cfd0abau, 0xd5a61266f0c9392cu, 0xa9582618e03fc9aau, 0x39abdc4529b1661cu};
        std::array<std::uint64_t, 4> sum{};
        for (const std::uint64_t word : kPolynomial)
            for (int bit = 0; bit < 64; ++bit) {
                if ((word >> bit) & 1u)
                    for (std::size_t i = 0; i < 4; ++i) sum[i] ^= state_[i];
                Next();
            }
        state_ = sum;
    }

private:
    static std::uint64_t RotateLeft(std::uint64_t value, int count) {
        return (value << count) | (value >> (64 - count));
    }

    std::array<std::uint64_t, 4> state_{};
};

}  // namespace dsp
