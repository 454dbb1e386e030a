#pragma once

#include <cstddef>

#include "kraaudiodsp/SlidingBuffer.h"
#include "kraaudiodsp/vector/PeakOps.h"

namespace dsp {

/// Peaks of one channel between its samples, which is where converters and encoders clip.
///
/// Interpolates four-fold with 48 taps a phase (sinc, Kaiser window of beta 3.5) and lays a parabola through
/// the largest point of each frame. Tones up to 0.417 of the rate, 20 kHz at 48 kHz, read at most 0.06 dB too
/// little; the interpolator of 12 taps a phase that meters use may miss 0.6 dB there. A smaller beta than the
/// usual 8 keeps the top octave's edge: clipped noise of the full band then reads 0.4 dB more. Source of
/// the method: ITU-R BS.1770-4, annex 2.
class TruePeak {
public:
    /// Frames by which the peaks come later than the sound.
    static constexpr int kLatencyFrames = static_cast<int>(vector::kTruePeakReach);

    explicit TruePeak(std::size_t maxPieceFrames = 1024) { Prepare(maxPieceFrames); }
    void Prepare(std::size_t maxPieceFrames);  // [host]
    void Reset();                              // silence before [audio]

    /// peak[i] = the largest magnitude (linear) from sample i - kLatencyFrames of the stream up to the one
    /// behind it, at most maxPieceFrames at once. Peaks that cannot exceed `floor` may come out lower,
    /// down to the sample's own magnitude: where the signal is far below it nothing is interpolated. [audio]
    void Process(const float* in, float* peak, std::size_t frames, float floor = 0.0f);

    /// No interpolated value exceeds this many times the largest sample around it. [any]
    static float GetLargestRatio();

private:
    SlidingBuffer history_;
};

}  // namespace dsp
