#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/SlidingBuffer.h"
#include "kraaudiodsp/vector/SincOps.h"

namespace dsp {

/// The last samples of some channels, read between the frames by taps that move: a windowed sinc of 32
/// taps (Kaiser, beta 9) in 512 steps of a frame, with the steps joined by straight lines. The error is
/// below -90 dB up to 1/3 of the rate and -60 dB up to 0.417 of it.
///
/// A run is Append, the samples written to the places it gives, and one Read per pair of channels. Delays
/// count from the frame that is read for and are at least kLeastFrames; smaller ones count as that. Reading
/// for frame i of a run needs samples up to i - delay + 15, so with feedback, where reading comes
/// first, a run has at most shortest delay - 15 frames.
class FractionalDelay {
public:
    static constexpr int kLeastFrames = static_cast<int>(vector::kSincTaps / 2);

    /// A place on a curve of delays that is a cubic in time.
    struct Cubic {
        std::array<double, 4> c{};  // delay in frames: c0 + c1 t + c2 t^2 + c3 t^3
    };

    /// For delays of up to `maxFrames` and runs of up to `maxRun`. [host]
    void Prepare(std::size_t channels, int maxFrames, int maxRun);
    /// Silence. [audio]
    void Reset();
    /// Makes the next `frames` places of every channel. [audio]
    void Append(int frames);
    /// Those of one channel. [audio]
    float* Place(std::size_t channel) { return places_[channel]; }
    /// What the taps give for the run, their sum; `channels` is 1 or 2 from `firstChannel` on. Moves the
    /// taps on. [audio]
    void Read(std::size_t firstChannel,
              std::size_t channels,
              float* const* out,
              vector::MovingTap* taps,
              std::size_t tapCount,
              int frames) const;

    /// Sets a tap's way over the next 1 / stepsPerUnit of the curve's time unit per frame. [audio]
    static void Follow(vector::MovingTap& tap, const Cubic& curve, int stepsPerUnit);

private:
    std::vector<SlidingBuffer> lines_;
    std::vector<float*> places_;
};

}  // namespace dsp
