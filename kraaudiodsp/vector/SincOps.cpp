#include "kraaudiodsp/vector/SincOps.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/SincOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

/// Sums are kept in eight columns on every machine, so that all add up in the same order.
constexpr std::size_t kColumns = 8;
using Tag = hn::CappedTag<float, kColumns>;
using Vector = hn::Vec<Tag>;
constexpr std::size_t kVectorLanes = sizeof(Vector) / sizeof(float);
constexpr std::size_t kVectors = kColumns / kVectorLanes;

constexpr std::int64_t kOne = std::int64_t{1} << kDelayFractionBits;
constexpr std::int64_t kHalfTaps = kSincTaps / 2;
constexpr int kRowShift = kDelayFractionBits - kSincPhaseBits;
constexpr float kRowScale = 1.0f / static_cast<float>(std::int64_t{1} << kRowShift);

/// ((c0 + c4) + (c2 + c6)) + ((c1 + c5) + (c3 + c7))
HWY_INLINE float AddColumns(const Vector* columns) {
#if HWY_TARGET == HWY_SCALAR
    float c[kColumns];
    for (std::size_t v = 0; v < kVectors; ++v) c[v] = hn::GetLane(columns[v]);
    return ((c[0] + c[4]) + (c[2] + c[6])) + ((c[1] + c[5]) + (c[3] + c[7]));
#else
#if HWY_MAX_BYTES >= 32
    const hn::CappedTag<float, 4> four;
    const auto fours = hn::Add(hn::LowerHalf(four, columns[0]), hn::UpperHalf(four, columns[0]));
#else
    const auto fours = hn::Add(columns[0], columns[1]);
#endif
    const auto twos = hn::Add(fours, hn::Shuffle1032(fours));
    return hn::GetLane(hn::Add(twos, hn::Shuffle2301(twos)));
#endif
}

/// A tap on its way through a piece, in registers: taps in memory would hold up each frame until those of
/// the frame before are stored.
template <std::size_t kChannels>
class TapReader {
public:
    using Sums = Vector[kChannels][kVectors];

    HWY_ATTR TapReader(const MovingTap& tap, const float* const* in) : tap_(tap) {
        for (std::size_t c = 0; c < kChannels; ++c) in_[c] = in[c];
    }
    const MovingTap& GetTap() const { return tap_; }

    /// Adds what frame i reads, and moves the tap on.
    HWY_INLINE HWY_ATTR void Add(const SincRow* rows, std::int64_t i, Sums& sums) {
        const Tag d;
        const std::int64_t delay = std::max(tap_.delay, kHalfTaps * kOne);
        const std::int64_t fraction = delay & (kOne - 1);
        const SincRow& row = rows[fraction >> kRowShift];
        const auto between = hn::Set(
            d, static_cast<float>(fraction & ((std::int64_t{1} << kRowShift) - 1)) * kRowScale);
        const std::int64_t oldest = i - (delay >> kDelayFractionBits) - kHalfTaps;
        for (std::size_t v = 0; v < kVectors; ++v) {
            Vector read[kChannels];
            for (std::size_t k = v * kVectorLanes; k < kSincTaps; k += kColumns) {
                // Multiplied and added apart, never fused.
                const auto weight = hn::Add(hn::Load(d, &row.taps[k]),
                                            hn::Mul(between, hn::Load(d, &row.growth[k])));
                for (std::size_t c = 0; c < kChannels; ++c) {
                    const auto product = hn::Mul(
                        weight, hn::LoadU(d, in_[c] + oldest + static_cast<std::int64_t>(k)));
                    read[c] = k < kColumns ? product : hn::Add(read[c], product);
                }
            }
            for (std::size_t c = 0; c < kChannels; ++c)
                sums[c][v] = hn::Add(sums[c][v], hn::Mul(read[c], hn::Set(d, tap_.gain[c])));
        }
        tap_.delay += tap_.first;
        tap_.first += tap_.second;
        tap_.second += tap_.third;
        for (std::size_t c = 0; c < kChannels; ++c) tap_.gain[c] += tap_.gainStep[c];
    }

private:
    MovingTap tap_;
    const float* in_[kChannels] = {};
};

/// The columns of each channel for some frames.
constexpr std::size_t kPieceFrames = 16;
template <std::size_t kChannels>
struct Piece {
    alignas(64) float columns[kPieceFrames][kChannels][kColumns];
    std::int64_t firstFrame;
    std::size_t frames;
};

/// Adds what the tap reads, and moves it on.
template <std::size_t kChannels>
HWY_INLINE HWY_ATTR void AddTap(Piece<kChannels>& piece,
                                const float* const* in,
                                const SincRow* rows,
                                MovingTap& tap) {
    const Tag d;
    TapReader<kChannels> reader(tap, in);
    for (std::size_t i = 0; i < piece.frames; ++i) {
        typename TapReader<kChannels>::Sums sums;
        for (std::size_t c = 0; c < kChannels; ++c)
            for (std::size_t v = 0; v < kVectors; ++v)
                sums[c][v] = hn::Load(d, piece.columns[i][c] + v * kVectorLanes);
        reader.Add(rows, piece.firstFrame + static_cast<std::int64_t>(i), sums);
        for (std::size_t c = 0; c < kChannels; ++c)
            for (std::size_t v = 0; v < kVectors; ++v)
                hn::Store(sums[c][v], d, piece.columns[i][c] + v * kVectorLanes);
    }
    tap = reader.GetTap();
}

template <std::size_t kChannels>
void Read(float* const* out,
          const float* const* in,
          const SincRow* rows,
          MovingTap* taps,
          std::size_t tapCount,
          std::size_t count) {
    const Tag d;
    Piece<kChannels> piece{};
    for (std::size_t done = 0; done < count; done += kPieceFrames) {
        piece.firstFrame = static_cast<std::int64_t>(done);
        piece.frames = std::min(kPieceFrames, count - done);
        std::fill_n(&piece.columns[0][0][0], piece.frames * kChannels * kColumns, 0.0f);
        for (std::size_t t = 0; t < tapCount; ++t) AddTap(piece, in, rows, taps[t]);
        for (std::size_t i = 0; i < piece.frames; ++i)
            for (std::size_t c = 0; c < kChannels; ++c) {
                Vector sums[kVectors];
                for (std::size_t v = 0; v < kVectors; ++v)
                    sums[v] = hn::Load(d, piece.columns[i][c] + v * kVectorLanes);
                out[c][done + i] = AddColumns(sums);
            }
    }
}

void ReadOne(float* const* out,
             const float* const* in,
             const SincRow* rows,
             MovingTap* taps,
             std::size_t tapCount,
             std::size_t count) {
    Read<1>(out, in, rows, taps, tapCount, count);
}

void ReadTwo(float* const* out,
             const float* const* in,
             const SincRow* rows,
             MovingTap* taps,
             std::size_t tapCount,
             std::size_t count) {
    Read<2>(out, in, rows, taps, tapCount, count);
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(ReadOne);
HWY_EXPORT(ReadTwo);

void ReadMovingTaps(float* const* out,
                    const float* const* in,
                    std::size_t channels,
                    const SincRow* rows,
                    MovingTap* taps,
                    std::size_t tapCount,
                    std::size_t count) {
    const auto read = channels == 2 ? HWY_DYNAMIC_DISPATCH(ReadTwo) : HWY_DYNAMIC_DISPATCH(ReadOne);
    read(out, in, rows, taps, tapCount, count);
}

}  // namespace dsp::vector
#endif
