#include "kraaudiodsp/PeakGain.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace dsp {
namespace {

constexpr float kMostDb = 800.0f;
/// Attenuations are whole numbers of 2^-24 dB, so that running sums neither drift nor round: 800 dB over two
/// boxes of 4000 frames stay below 2^58.
constexpr double kUnitsPerDb = 1 << 24;
/// Added to every attenuation above 0, so that rounding in the conversions from and to gains cannot leave a
/// sample above the ceiling.
constexpr float kMarginDb = 4e-5f;
/// A release that has come this close to its goal is over.
constexpr float kInaudibleDb = 1e-4f;

constexpr double kChargeSeconds = 0.05;
constexpr float kChargeAboveDb = 1.0f;
constexpr double kSlowRatio = 8.0;

float KeepAfter(double frames) {
    return static_cast<float>(std::exp(-1.0 / std::max(frames, 1e-3)));
}

}  // namespace

void PeakGain::Prepare(int maxLookAheadFrames, double rateHz) {
    const auto most = static_cast<std::size_t>(std::max(maxLookAheadFrames, 2)) + 2;
    queue_.resize(most);
    first_.resize(most);
    second_.resize(most);
    chargeFrames_ = std::max(1, static_cast<int>(kChargeSeconds * rateHz));
    slowCharge_ = 1.0f - KeepAfter(kChargeSeconds * rateHz);
    Reset(lookAheadFrames_);
}

void PeakGain::Reset(int lookAheadFrames) {
    lookAheadFrames_ = std::clamp(lookAheadFrames, 2, static_cast<int>(queue_.size()) - 2);
    // Two boxes of a and b frames span a + b - 1 values, which must be the look-ahead and the sample.
    const auto boxes = static_cast<std::size_t>(lookAheadFrames_) + 2;
    firstCount_ = boxes / 2;
    secondCount_ = boxes - firstCount_;
    toDb_ =
        1.0 / (kUnitsPerDb * static_cast<double>(firstCount_) * static_cast<double>(secondCount_));
    std::fill(first_.begin(), first_.end(), 0);
    std::fill(second_.begin(), second_.end(), 0);
    firstSum_ = secondSum_ = 0;
    firstIndex_ = secondIndex_ = 0;
    queueBegin_ = queueCount_ = 0;
    chargedFrames_ = 0;
    fastDb_ = slowDb_ = 0.0f;
    frame_ = 0;
}

void PeakGain::SetRelease(double releaseFrames, bool isAuto) {
    isAuto_ = isAuto;
    fastKeep_ = KeepAfter(releaseFrames);
    slowKeep_ = KeepAfter(kSlowRatio * releaseFrames);
}

/// The largest of the last lookAheadFrames_ + 1 values. The queue holds those that may still become the
/// largest.
float PeakGain::SlideMaximum(float needed) {
    const std::size_t size = queue_.size();
    if (queueCount_ > 0 && queue_[queueBegin_].frame < frame_ - lookAheadFrames_) {
        queueBegin_ = queueBegin_ + 1 == size ? 0 : queueBegin_ + 1;
        --queueCount_;
    }
    const auto at = [&](std::size_t k) {
        const std::size_t place = queueBegin_ + k;
        return place < size ? place : place - size;
    };
    if (needed > 0.0f) {
        while (queueCount_ > 0 && queue_[at(queueCount_ - 1)].attenuationDb <= needed)
            --queueCount_;
        queue_[at(queueCount_++)] = {frame_, needed};
    }
    return queueCount_ > 0 ? queue_[queueBegin_].attenuationDb : 0.0f;
}

float PeakGain::Release(float held) {
    const auto fall = [held](float from, float keep) {
        const float now = held + (from - held) * keep;
        return now > held + kInaudibleDb ? now : held;
    };
    fastDb_ = fall(fastDb_, fastKeep_);
    const bool isMuch = held > kChargeAboveDb;
    chargedFrames_ = std::clamp(chargedFrames_ + (isMuch ? 1 : -1), 0, 2 * chargeFrames_);
    if (chargedFrames_ > chargeFrames_ && fastDb_ > slowDb_)
        slowDb_ += (fastDb_ - slowDb_) * slowCharge_;
    else if (const float left = slowDb_ * slowKeep_; left > kInaudibleDb)
        slowDb_ = left;
    else
        slowDb_ = 0.0f;
    return isAuto_ ? std::max(fastDb_, slowDb_) : fastDb_;
}

bool PeakGain::IsAtRest() const {
    return queueCount_ == 0 && chargedFrames_ == 0 && fastDb_ == 0.0f && slowDb_ == 0.0f &&
           firstSum_ == 0 && secondSum_ == 0;
}

bool PeakGain::Process(float* attenuationDb, std::size_t frames) {
    if (IsAtRest() && std::all_of(attenuationDb, attenuationDb + frames,
                                  [](float needed) { return !(needed > 0.0f); })) {
        std::fill_n(attenuationDb, frames, 0.0f);
        frame_ += static_cast<std::int64_t>(frames);
        return false;
    }
    bool lowers = false;
    for (std::size_t i = 0; i < frames; ++i, ++frame_) {
        const float needed =
            attenuationDb[i] > 0.0f ? std::min(attenuationDb[i] + kMarginDb, kMostDb) : 0.0f;
        const float released = Release(SlideMaximum(needed));
        // Rounded up, so that it stays enough.
        const auto units = static_cast<std::int64_t>(std::ceil(released * kUnitsPerDb));
        firstSum_ += units - std::exchange(first_[firstIndex_], units);
        firstIndex_ = firstIndex_ + 1 == firstCount_ ? 0 : firstIndex_ + 1;
        secondSum_ += firstSum_ - std::exchange(second_[secondIndex_], firstSum_);
        secondIndex_ = secondIndex_ + 1 == secondCount_ ? 0 : secondIndex_ + 1;
        attenuationDb[i] = static_cast<float>(static_cast<double>(secondSum_) * toDb_);
        lowers = lowers || secondSum_ != 0;
    }
    return lowers;
}

}  // namespace dsp
