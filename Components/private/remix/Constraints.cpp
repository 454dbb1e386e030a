#include "Components/private/remix/Constraints.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zuc::components {

double CostOfCosine(float cosine) {
    const double apart = 1 - std::clamp(static_cast<double>(cosine), -1.0, 1.0);
    return std::sqrt(apart * std::sqrt(apart));
}

namespace {

constexpr double kQuietShare = 0.125;  // of the median beat's root mean square
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kEnergyFactor = 10;
constexpr double kShortEndCost = 3;  // more than a join of beats that have nothing in common

/// Adds weight x costs of the beats' unlikeness; the jump replaces the natural successor, so row i gets
/// what stands for beat i + 1.
void AddDissimilarity(TransitionMatrix& transition, const BeatRows& rows, double weight) {
    const std::size_t count = transition.GetBeatCount();
    if (weight == 0 || rows.GetCount() != count) return;
    const std::vector<float> cosines = CosinesOfBeats(rows);
    for (std::size_t i = 0; i + 1 < count; ++i) {
        double* costs = transition.Row(i);
        const float* row = cosines.data() + (i + 1) * count;
        for (std::size_t j = 0; j < count; ++j) costs[j] += weight * CostOfCosine(row[j]);
    }
}

}  // namespace

void TimbrePitchConstraint::Apply(SearchCosts& costs) const {
    const std::size_t count = costs.transition.GetBeatCount();
    AddDissimilarity(costs.transition, costs.song.chroma, static_cast<double>(chromaWeight_));
    AddDissimilarity(costs.transition, costs.song.timbre, static_cast<double>(timbreWeight_));
    for (std::size_t i = 0; i < count; ++i) costs.transition.Row(i)[count - 1] = kInfinity;
    std::fill_n(costs.transition.Row(count - 1), count, kInfinity);
}

void EnergyConstraint::Apply(SearchCosts& costs) const {
    const std::size_t count = costs.transition.GetBeatCount();
    for (std::size_t i = 0; i + 1 < count; ++i) {
        double* row = costs.transition.Row(i);
        for (std::size_t j = 0; j < count; ++j) {
            const double distance =
                kEnergyFactor * std::abs(costs.levels[i + 1].rms - costs.levels[j].rms);
            row[j] += static_cast<double>(weight_) * distance;
        }
    }
    std::fill_n(costs.transition.Row(count - 1), count, kInfinity);
}

void QuietEndsConstraint::Apply(SearchCosts& costs) const {
    if (costs.levels.empty()) return;
    std::vector<double> sorted;
    for (const BeatLevel& level : costs.levels) sorted.push_back(level.rms);
    const auto median = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), median, sorted.end());
    const auto isLoud = [least = kQuietShare * *median](const BeatLevel& level) {
        return level.rms >= least;
    };
    const auto& levels = costs.levels;
    const auto first = static_cast<std::size_t>(std::find_if(levels.begin(), levels.end(), isLoud) -
                                                levels.begin());
    const auto end = static_cast<std::size_t>(levels.rend() -
                                              std::find_if(levels.rbegin(), levels.rend(), isLoud));
    const auto isQuiet = [&](std::size_t beat) { return beat < first || beat >= end; };
    for (std::size_t i = 0; i < levels.size(); ++i) {
        double* row = costs.transition.Row(i);
        for (std::size_t j = 0; j < levels.size(); ++j)
            if (j != i + 1 && (isQuiet(i) || isQuiet(j)))
                row[j] = row[j] + kInfinity;  // what is not a number stays seen
    }
}

void LongEndsConstraint::Apply(SearchCosts& costs) const {
    const auto count = static_cast<int>(costs.transition.GetBeatCount());
    for (int i = 0; i < count; ++i) {
        double* row = costs.transition.Row(static_cast<std::size_t>(i));
        const bool isShort = first_ >= 0 && i >= first_ && i < first_ + beats_;
        for (int j = 0; j < count; ++j)
            if (j != i + 1 && (isShort || (last_ >= 0 && j <= last_ && j > last_ - beats_)))
                row[j] += kShortEndCost;
    }
}

void MinimumLoopConstraint::Apply(SearchCosts& costs) const {
    const auto count = static_cast<std::ptrdiff_t>(costs.transition.GetBeatCount());
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        double* row = costs.transition.Row(static_cast<std::size_t>(i));
        for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, i - beats_ + 1); j <= i; ++j)
            row[j] = kInfinity;
    }
}

void StartAtBeatConstraint::Apply(SearchCosts& costs) const {
    for (int i = 0; i < static_cast<int>(costs.placement.GetBeatCount()); ++i)
        if (i < beat_ - slackBeats_ || i > beat_ + slackBeats_)
            costs.placement.Add(static_cast<std::size_t>(i), 0, kInfinity);
}

void EndAtBeatConstraint::Apply(SearchCosts& costs) const {
    const int count = static_cast<int>(costs.placement.GetBeatCount());
    const int end = beat_ < 0 ? count : beat_ + 1;
    for (int i = 0; i < count; ++i)
        if (i < end - slackBeats_ || i >= end + slackBeats_ + 1)
            costs.placement.Add(static_cast<std::size_t>(i), costs.placement.GetPositionCount() - 1,
                                kInfinity);
}

void SourceTimeRangeConstraint::Apply(SearchCosts& costs) const {
    const std::vector<double>& times = costs.song.beatTimes;
    for (std::size_t i = 0; i < times.size(); ++i)
        if (times[i] < startSeconds_ || times[i] > endSeconds_)
            costs.placement.AddToRow(i, kInfinity);
}

void PenalizeLongEditsConstraint::Apply(SearchCosts& costs) const {
    const std::size_t count = costs.transition.GetBeatCount();
    std::vector<double> byDistance(count, 0.0);
    for (std::size_t d = 0; d < count; ++d) {
        const double beyond = static_cast<double>(d) - freeBeats_;
        if (beyond >= 1)
            byDistance[d] = weight_ * std::pow(beyond / static_cast<double>(count), exponent_);
    }
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = 0; j < count; ++j)
            costs.transition.Row(i)[j] += byDistance[i > j ? i - j : j - i];
}

}  // namespace zuc::components
