#pragma once

#include <cstdint>
#include <vector>

namespace zuc::host {

/// Keeps a stream's samples at or below a ceiling by lowering the gain smoothly around each peak.
///
///     needed[n] = min(1, ceiling / max over channels |x[n]|)
///     held[n]   = min(needed[n - L] .. needed[n])
///     gain[n]   = held, averaged over two boxes in a row, together L + 2 frames long
///     out[n]    = x[n - L] gain[n],  L = look-ahead
///
/// Every average only contains values that are no larger than what its sample needs, so the output
/// never exceeds the ceiling. The sums are integers and thus exact: where nothing exceeds the ceiling
/// within the look-ahead, the output is the input, bit by bit. Channels share one gain. Infinite
/// samples become the ceiling, not-a-number passes.
class PeakLimiter {
public:
    /// `ceiling` is linear and above 0. [host]
    PeakLimiter(int rateHz, int channels, float ceiling = 1.0f, float lookAheadMs = 5.0f);

    /// How much later the output comes; the caller drops that many frames at the start and feeds as
    /// many zeros behind the end. [any]
    int GetLatencyFrames() const { return latencyFrames_; }
    /// Changes `samples[channel][0 .. frames)` in place. [worker]
    void Process(float* const* samples, int frames);
    /// The lowest gain so far, linear; 1 when nothing was lowered. [worker]
    float GetLowestGain() const { return lowestGain_; }

private:
    struct Held {
        std::int64_t frame;
        std::int64_t gain;
    };
    std::int64_t NeededGain(const float* const* samples, int frame) const;
    std::int64_t SlideMinimum(std::int64_t needed);

    int channels_;
    float ceiling_;
    int latencyFrames_;
    std::int64_t frame_ = 0;  // frames processed
    float lowestGain_ = 1.0f;
    std::vector<Held> queue_;  // ring of rising minima, oldest first
    std::size_t queueBegin_ = 0;
    std::size_t queueCount_ = 0;
    std::vector<std::int64_t> first_;   // last values of the minimum, one box long
    std::vector<std::int64_t> second_;  // last sums of the first box, one box long
    std::size_t firstIndex_ = 0;
    std::size_t secondIndex_ = 0;
    std::int64_t firstSum_ = 0;
    std::int64_t secondSum_ = 0;
    std::vector<float> delayed_;  // latencyFrames_ frames of each channel
    std::size_t delayIndex_ = 0;
};

}  // namespace zuc::host
