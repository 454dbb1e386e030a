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
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < kChannels; ++c) out[i * kChannels + c] = in[c][first + i];
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
        for (int i = 0; i < frames; ++i) {
            left[i] = in[2 * i];
            right[i] = in[2 * i + 1];
        }
        return;
    }
    for (int c = 0; c < channels; ++c) {
        const float* from = in + (order ? order[c] : c);
        for (int i = 0; i < frames; ++i) out[c][i] = from[i * channels];
    }
}

void Interleave(
    const float* const* in, int first, float* out, int channels, int frames, const int* order) {
    if (channels == 1) return InterleaveFixed<1>(in, first, out, frames);
    if (channels == 2) return InterleaveFixed<2>(in, first, out, frames);
    for (int c = 0; c < channels; ++c) {
        float* to = out + (order ? order[c] : c);
        for (int i = 0; i < frames; ++i) to[i * channels] = in[c][first + i];
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

void Dither::AddTo(float* values, std::size_t count) {
    std::size_t i = 0;
    while (i < count && used_ < kLanes) values[i++] += Triangular(state_[used_++]);
    Lanes state = state_;
    for (; i + kLanes <= count; i += kLanes) {
        Step(state);
        for (std::size_t lane = 0; lane < kLanes; ++lane)
            values[i + lane] += Triangular(state[lane]);
    }
    state_ = state;
    if (i == count) return;
    Step(state_);
    for (used_ = 0; i < count;) values[i++] += Triangular(state_[used_++]);
}

void Quantise(float* samples, std::int32_t* out, std::size_t count, int bits, Dither* dither) {
    if (bits > 24) {  // a float holds neither end of this range
        for (std::size_t i = 0; i < count; ++i) {
            const double value = std::isnan(samples[i]) ? 0.0 : samples[i] * 0x1p31;
            out[i] =
                static_cast<std::int32_t>(std::lrint(std::clamp(value, -0x1p31, 0x1p31 - 1.0)));
        }
        return;
    }
    const auto scale = static_cast<float>(1 << (bits - 1));
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = samples[i] == samples[i] ? samples[i] * scale : 0.0f;
    if (dither) dither->AddTo(samples, count);
    const float low = -scale;
    const float high = scale - 1.0f;
    for (std::size_t i = 0; i < count; ++i) {
        float value = samples[i] < low ? low : samples[i];
        value = value > high ? high : value;
        out[i] = static_cast<std::int32_t>(value + (value < 0.0f ? -0.5f : 0.5f));
    }
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
    // Magnitudes compare like their bits, and integers have a maximum the compiler can vectorise.
    std::int32_t largest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::int32_t magnitude = std::bit_cast<std::int32_t>(samples[i]) & 0x7FFFFFFF;
        largest = magnitude > largest ? magnitude : largest;
    }
    return std::bit_cast<float>(largest);
}

}  // namespace zuc::host
