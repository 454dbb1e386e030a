#include "host/PeakLimiter.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zuc::host {
namespace {

/// Gains are whole numbers of 2^-30, so that running sums neither drift nor round. At 768 kHz two boxes
/// of 5 ms multiply it by 2^22, which leaves room below 2^63.
constexpr std::int64_t kUnity = std::int64_t{1} << 30;

}  // namespace

PeakLimiter::PeakLimiter(int rateHz, int channels, float ceiling, float lookAheadMs)
    : channels_(channels), ceiling_(ceiling) {
    const auto look = static_cast<int>(std::lround(lookAheadMs / 1000.0 * rateHz));
    latencyFrames_ = std::max(look, 2);
    // Two boxes of a and b frames span a + b - 1 values, which must be the look-ahead and the sample.
    const int boxes = latencyFrames_ + 2;
    first_.assign(static_cast<std::size_t>(boxes / 2), kUnity);
    firstSum_ = kUnity * static_cast<std::int64_t>(first_.size());
    second_.assign(static_cast<std::size_t>(boxes - boxes / 2), firstSum_);
    secondSum_ = firstSum_ * static_cast<std::int64_t>(second_.size());
    queue_.resize(static_cast<std::size_t>(latencyFrames_) + 1);
    delayed_.assign(static_cast<std::size_t>(latencyFrames_) * static_cast<std::size_t>(channels),
                    0.0f);
}

std::int64_t PeakLimiter::NeededGain(const float* const* samples, int frame) const {
    float peak = 0.0f;
    for (int c = 0; c < channels_; ++c) {
        const float magnitude = std::fabs(samples[c][frame]);
        if (std::isfinite(magnitude)) peak = std::max(peak, magnitude);
    }
    if (peak <= ceiling_) return kUnity;
    return static_cast<std::int64_t>(static_cast<double>(ceiling_) / peak *
                                     static_cast<double>(kUnity));
}

/// The smallest of the last latencyFrames_ + 1 values. The queue holds those that may still become the
/// smallest, oldest and smallest first.
std::int64_t PeakLimiter::SlideMinimum(std::int64_t needed) {
    const std::size_t size = queue_.size();
    if (queueCount_ > 0 && queue_[queueBegin_].frame < frame_ - latencyFrames_) {
        queueBegin_ = (queueBegin_ + 1) % size;
        --queueCount_;
    }
    while (queueCount_ > 0 && queue_[(queueBegin_ + queueCount_ - 1) % size].gain >= needed)
        --queueCount_;
    queue_[(queueBegin_ + queueCount_++) % size] = {frame_, needed};
    return queue_[queueBegin_].gain;
}

void PeakLimiter::Process(float* const* samples, int frames) {
    const double unity = static_cast<double>(kUnity) * static_cast<double>(first_.size()) *
                         static_cast<double>(second_.size());
    const auto channels = static_cast<std::size_t>(channels_);
    for (int i = 0; i < frames; ++i, ++frame_) {
        const std::int64_t held = SlideMinimum(NeededGain(samples, i));
        firstSum_ += held - std::exchange(first_[firstIndex_], held);
        firstIndex_ = firstIndex_ + 1 == first_.size() ? 0 : firstIndex_ + 1;
        secondSum_ += firstSum_ - std::exchange(second_[secondIndex_], firstSum_);
        secondIndex_ = secondIndex_ + 1 == second_.size() ? 0 : secondIndex_ + 1;

        const auto gain = static_cast<float>(static_cast<double>(secondSum_) / unity);
        lowestGain_ = std::min(lowestGain_, gain);
        float* delayed = &delayed_[delayIndex_ * channels];
        for (std::size_t c = 0; c < channels; ++c) {
            const float sample = std::exchange(delayed[c], samples[c][i]);
            // Rounding may exceed the ceiling by one unit in the last place, an infinite sample by far.
            samples[c][i] = std::clamp(sample * gain, -ceiling_, ceiling_);
        }
        delayIndex_ =
            delayIndex_ + 1 == static_cast<std::size_t>(latencyFrames_) ? 0 : delayIndex_ + 1;
    }
}

}  // namespace zuc::host
