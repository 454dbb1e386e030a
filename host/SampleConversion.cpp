#include "host/SampleConversion.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace zuc::host {
namespace {

static_assert(std::endian::native == std::endian::little, "samples are packed lowest byte first");

/// splitmix64 (Steele, Lea & Flood, OOPSLA 2014): neighbouring seeds give unrelated states.
std::uint64_t NextSeed(std::uint64_t& state) {
    std::uint64_t z = state += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

float Triangular(std::uint32_t word) {
    const auto sum =
        static_cast<std::int32_t>(word >> 16) + static_cast<std::int32_t>(word & 0xFFFF);
    return static_cast<float>(sum - 0xFFFF) * (1.0f / 65536.0f);
}

template <int kChannels>
void InterleaveFixed(const float* const* in, int first, float* out, int frames) {
    for (std::ptrdiff_t i = 0; i < frames; ++i)
        for (std::ptrdiff_t c = 0; c < kChannels; ++c) out[i * kChannels + c] = in[c][first + i];
}

}  // namespace

std::size_t GetSampleBytes(Encoding encoding) {
    switch (encoding) {
        case Encoding::kUnsigned8:
            return 1;
        case Encoding::kInt16:
            return 2;
        case Encoding::kInt24:
            return 3;
        case Encoding::kInt32:
        case Encoding::kFloat32:
            return 4;
    }
    return 0;
}

void Decode(Encoding encoding, const std::byte* in, float* out, std::size_t samples) {
    switch (encoding) {
        case Encoding::kUnsigned8:
            return;
        case Encoding::kInt16:
            for (std::size_t i = 0; i < samples; ++i) {
                std::int16_t value = 0;
                std::memcpy(&value, in + 2 * i, sizeof value);
                out[i] = static_cast<float>(value) * 0x1p-15f;
            }
            return;
        case Encoding::kInt24:
            for (std::size_t i = 0; i < samples; ++i) {
                std::uint32_t value = 0;
                std::memcpy(&value, in + 3 * i, sizeof value);
                out[i] = static_cast<float>(static_cast<std::int32_t>(value << 8)) * 0x1p-31f;
            }
            return;
        case Encoding::kInt32:
            for (std::size_t i = 0; i < samples; ++i) {
                std::int32_t value = 0;
                std::memcpy(&value, in + 4 * i, sizeof value);
                out[i] = static_cast<float>(value) * 0x1p-31f;
            }
            return;
        case Encoding::kFloat32:
            std::memcpy(out, in, samples * sizeof(float));
            return;
    }
}

void Deinterleave(const float* in, float* const* out, int channels, int frames, const int* order) {
    if (channels == 2 && order == nullptr) {
        float* left = out[0];
        float* right = out[1];
        for (std::ptrdiff_t i = 0; i < frames; ++i) {
            left[i] = in[2 * i];
            right[i] = in[2 * i + 1];
        }
        return;
    }
    for (int c = 0; c < channels; ++c) {
        const float* from = in + (order ? order[c] : c);
        for (std::ptrdiff_t i = 0; i < frames; ++i) out[c][i] = from[i * channels];
    }
}

void Interleave(
    const float* const* in, int first, float* out, int channels, int frames, const int* order) {
    if (channels == 1) return InterleaveFixed<1>(in, first, out, frames);
    if (channels == 2) return InterleaveFixed<2>(in, first, out, frames);
    for (int c = 0; c < channels; ++c) {
        float* to = out + (order ? order[c] : c);
        for (std::ptrdiff_t i = 0; i < frames; ++i) to[i * channels] = in[c][first + i];
    }
}

Dither::Dither(std::uint64_t seed) {
    for (std::uint32_t& lane : state_) do
            lane = static_cast<std::uint32_t>(NextSeed(seed) >> 32);
        while (lane == 0);  // the one state that a xorshift generator never leaves
}

void Dither::Step(Lanes& state) {
    for (std::uint32_t& lane : state) {
        lane ^= lane << 13;
        lane ^= lane >> 17;
        lane ^= lane << 5;
    }
}

void Dither::Fill(float* noise, std::size_t count) {
    std::size_t i = 0;
    while (i < count && used_ < kLanes) noise[i++] = Triangular(state_[used_++]);
    Lanes state = state_;
    for (; i + kLanes <= count; i += kLanes) {
        Step(state);
        for (std::size_t lane = 0; lane < kLanes; ++lane) noise[i + lane] = Triangular(state[lane]);
    }
    state_ = state;
    if (i == count) return;
    Step(state_);
    for (used_ = 0; i < count;) noise[i++] = Triangular(state_[used_++]);
}

namespace {

/// `value` cut off to [low, high] and rounded to the nearest, halves away from 0.
std::int32_t Round(float value, float low, float high) {
    value = value > low ? value : low;
    value = value < high ? value : high;
    return static_cast<std::int32_t>(value + std::copysign(0.5f, value));
}

float ZeroIfNan(float value) { return value == value ? value : 0.0f; }

}  // namespace

void Quantise(
    const float* samples, const float* noise, std::int32_t* out, std::size_t count, int bits) {
    if (bits > 24) {  // a float holds neither end of this range
        for (std::size_t i = 0; i < count; ++i) {
            const double value = static_cast<double>(ZeroIfNan(samples[i])) * 0x1p31;
            out[i] =
                static_cast<std::int32_t>(std::lrint(std::clamp(value, -0x1p31, 0x1p31 - 1.0)));
        }
        return;
    }
    const auto scale = static_cast<float>(1 << (bits - 1));
    const float low = -scale;
    const float high = scale - 1.0f;
    if (noise != nullptr)
        for (std::size_t i = 0; i < count; ++i)
            out[i] = Round(ZeroIfNan(samples[i]) * scale + noise[i], low, high);
    else
        for (std::size_t i = 0; i < count; ++i)
            out[i] = Round(ZeroIfNan(samples[i]) * scale, low, high);
}

void Pack(Encoding encoding, const std::int32_t* in, std::byte* out, std::size_t count) {
    switch (encoding) {
        case Encoding::kUnsigned8:
            for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<std::byte>(in[i] + 128);
            return;
        case Encoding::kInt16:
            for (std::size_t i = 0; i < count; ++i) {
                const auto value = static_cast<std::int16_t>(in[i]);
                std::memcpy(out + 2 * i, &value, sizeof value);
            }
            return;
        case Encoding::kInt24:
            for (std::size_t i = 0; i < count; ++i) std::memcpy(out + 3 * i, in + i, 3);
            return;
        case Encoding::kInt32:
        case Encoding::kFloat32:
            std::memcpy(out, in, count * sizeof *in);
            return;
    }
}

float PeakOf(const float* samples, std::size_t count) {
    // Magnitudes compare like their bits, and of integers the compiler makes maxima side by side; the
    // quarters keep one comparison from waiting for the one before.
    const auto magnitude = [samples](std::size_t i) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, samples + i, sizeof bits);
        return static_cast<std::int32_t>(bits & 0x7FFFFFFF);
    };
    std::int32_t a = 0, b = 0, c = 0, d = 0;
    const std::size_t quarter = count / 4;
    for (std::size_t i = 0; i < quarter; ++i) {
        a = std::max(a, magnitude(i));
        b = std::max(b, magnitude(i + quarter));
        c = std::max(c, magnitude(i + 2 * quarter));
        d = std::max(d, magnitude(i + 3 * quarter));
    }
    for (std::size_t i = 4 * quarter; i < count; ++i) a = std::max(a, magnitude(i));
    return std::bit_cast<float>(std::max({a, b, c, d}));
}

}  // namespace zuc::host
