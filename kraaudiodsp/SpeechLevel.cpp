#include "kraaudiodsp/SpeechLevel.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace dsp::intraclip {
namespace {

constexpr double kSilenceDb = -120.0;
constexpr double kFloorRiseDbPerSecond = 6.0;

}  // namespace

void SpeechLevel::Reset(const Settings& settings) {
    settings_ = settings;
    powers_.fill(0.0);
    windows_.fill(kSilenceDb);
    groupMinima_.fill(0.0);
    groupSteps_ = std::max<std::size_t>(
        1, static_cast<std::size_t>(std::lround(kFloorGroupSeconds / settings.stepSeconds)));
    step_ = 0;
    windowDb_ = levelDb_ = kSilenceDb;
    floorDb_ = settings.highestFloorDb;  // it falls at once
    bodyDb_ = settings.lowestBodyDb;
    heardSeconds_ = 0.0;
    isSpeech_ = false;
}

void SpeechLevel::Take(double power, double offsetDb, double dynamicDb) {
    TakeWindow(power);
    SelectLevel();
    FollowFloor();
    isSpeech_ = levelDb_ > floorDb_ + offsetDb;
    if (isSpeech_) FollowBody(dynamicDb);
    ++step_;
}

void SpeechLevel::TakeWindow(double power) {
    powers_[step_ % powers_.size()] = power;
    double sum = 0.0;
    const std::size_t steps = std::min(step_ + 1, settings_.windowSteps);
    for (std::size_t k = 0; k < steps; ++k)
        sum += powers_[(step_ + powers_.size() - k) % powers_.size()];
    const double mean = sum / static_cast<double>(steps);
    windowDb_ = std::max(kSilenceDb, 10.0 * std::log10(std::max(mean, 1e-30)));
    windows_[step_ % windows_.size()] = windowDb_;
}

void SpeechLevel::SelectLevel() {
    std::array<double, kMaxBuckets> buckets{};
    for (std::size_t k = 0; k < settings_.buckets; ++k)
        buckets[k] =
            windows_[(step_ + windows_.size() - k * settings_.windowSteps) % windows_.size()];
    const auto selected = buckets.begin() + static_cast<std::ptrdiff_t>(settings_.selectedBucket);
    std::nth_element(buckets.begin(), selected,
                     buckets.begin() + static_cast<std::ptrdiff_t>(settings_.buckets),
                     std::greater<>());
    levelDb_ = *selected;
}

void SpeechLevel::FollowFloor() {
    double& minimum = groupMinima_[step_ / groupSteps_ % kFloorGroups];
    minimum = step_ % groupSteps_ == 0 ? windowDb_ : std::min(minimum, windowDb_);
    const double least = *std::min_element(groupMinima_.begin(), groupMinima_.end());
    floorDb_ = std::min(least, floorDb_ + kFloorRiseDbPerSecond * settings_.stepSeconds);
    floorDb_ = std::clamp(floorDb_, settings_.lowestFloorDb, settings_.highestFloorDb);
}

void SpeechLevel::FollowBody(double dynamicDb) {
    const double below = bodyDb_ - levelDb_;
    double seconds = below < 0.0         ? settings_.attackSeconds
                     : below > dynamicDb ? settings_.catchUpSeconds
                                         : settings_.releaseSeconds;
    seconds = std::clamp(heardSeconds_, 1e-6, std::max(seconds, 1e-6));
    bodyDb_ += (levelDb_ - bodyDb_) * (1.0 - std::exp(-settings_.stepSeconds / seconds));
    heardSeconds_ += settings_.stepSeconds;
    bodyDb_ = std::clamp(bodyDb_, settings_.lowestBodyDb, settings_.highestBodyDb);
}

}  // namespace dsp::intraclip
