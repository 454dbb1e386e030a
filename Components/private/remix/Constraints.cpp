#include "Components/private/remix/Constraints.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Components/private/remix/Retarget.h"

namespace zuc::components {
namespace {

constexpr double kQuietShare = 0.125;  // of the median beat's root mean square
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kEnergyFactor = 10;

/// (1 - cosine)^0.75. Of the powers tried, this one keeps the music at the joins most alike while
/// making few of them.
double CostOfCosine(float cosine) {
    const double apart = 1 - std::clamp(static_cast<double>(cosine), -1.0, 1.0);
    return std::sqrt(apart * std::sqrt(apart));
}

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

std::vector<double> EnergiesOfBeats(const std::vector<double>& beatTimes,
                                    IAudioFramesGetter& frames) {
    const double rateHz = frames.GetSampleRate();
    std::vector<double> energies(beatTimes.size(), 0.0);
    for (std::size_t i = 0; i + 1 < beatTimes.size(); ++i) {
        const auto samples = frames.GetFrames(static_cast<std::int64_t>(beatTimes[i] * rateHz),
                                              static_cast<std::int64_t>(beatTimes[i + 1] * rateHz));
        double sum = 0;
        for (const double x : samples) sum += x * x;
        if (!samples.empty()) energies[i] = std::sqrt(sum / static_cast<double>(samples.size()));
    }
    if (energies.size() > 1) energies.back() = energies[energies.size() - 2];
    return energies;
}

}  // namespace

void TimbrePitchConstraint::Apply(TransitionMatrix& transition,
                                  PlacementMatrix&,
                                  const Retarget& retarget,
                                  const std::vector<double>&,
                                  IAudioFramesGetter&) const {
    const std::size_t count = transition.GetBeatCount();
    const SongAnalysis& song = retarget.GetSong().GetAnalysis();
    AddDissimilarity(transition, song.chroma, static_cast<double>(chromaWeight_));
    AddDissimilarity(transition, song.timbre, static_cast<double>(timbreWeight_));
    for (std::size_t i = 0; i < count; ++i) transition.Row(i)[count - 1] = kInfinity;
    std::fill_n(transition.Row(count - 1), count, kInfinity);
}

void EnergyConstraint::Apply(TransitionMatrix& transition,
                             PlacementMatrix&,
                             const Retarget&,
                             const std::vector<double>& beatTimes,
                             IAudioFramesGetter& frames) const {
    const std::size_t count = transition.GetBeatCount();
    const std::vector<double> energies = EnergiesOfBeats(beatTimes, frames);
    for (std::size_t i = 0; i + 1 < count; ++i) {
        double* costs = transition.Row(i);
        for (std::size_t j = 0; j < count; ++j) {
            const double distance = kEnergyFactor * std::abs(energies[i + 1] - energies[j]);
            costs[j] += static_cast<double>(weight_) * distance;
        }
    }
    std::fill_n(transition.Row(count - 1), count, kInfinity);
}

void QuietEndsConstraint::Apply(TransitionMatrix& transition,
                                PlacementMatrix&,
                                const Retarget&,
                                const std::vector<double>& beatTimes,
                                IAudioFramesGetter& frames) const {
    const std::vector<double> energies = EnergiesOfBeats(beatTimes, frames);
    if (energies.empty()) return;
    std::vector<double> sorted = energies;
    const auto median = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), median, sorted.end());
    const auto isLoud = [least = kQuietShare * *median](double energy) { return energy >= least; };
    const auto first = static_cast<std::size_t>(
        std::find_if(energies.begin(), energies.end(), isLoud) - energies.begin());
    const auto end = static_cast<std::size_t>(
        energies.rend() - std::find_if(energies.rbegin(), energies.rend(), isLoud));
    const auto isQuiet = [&](std::size_t beat) { return beat < first || beat >= end; };
    for (std::size_t i = 0; i < energies.size(); ++i) {
        double* costs = transition.Row(i);
        for (std::size_t j = 0; j < energies.size(); ++j)
            if (j != i + 1 && (isQuiet(i) || isQuiet(j))) costs[j] += kInfinity;
    }
}

void MinimumLoopConstraint::Apply(TransitionMatrix& transition,
                                  PlacementMatrix&,
                                  const Retarget&,
                                  const std::vector<double>&,
                                  IAudioFramesGetter&) const {
    const auto count = static_cast<std::ptrdiff_t>(transition.GetBeatCount());
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        double* costs = transition.Row(static_cast<std::size_t>(i));
        for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, i - beats_ + 1); j <= i; ++j)
            costs[j] = kInfinity;
    }
}

void StartAtBeatConstraint::Apply(TransitionMatrix&,
                                  PlacementMatrix& placement,
                                  const Retarget&,
                                  const std::vector<double>&,
                                  IAudioFramesGetter&) const {
    for (int i = 0; i < static_cast<int>(placement.GetBeatCount()); ++i)
        if (i < beat_ - slackBeats_ || i > beat_ + slackBeats_)
            placement.Add(static_cast<std::size_t>(i), 0, kInfinity);
}

void EndAtBeatConstraint::Apply(TransitionMatrix&,
                                PlacementMatrix& placement,
                                const Retarget&,
                                const std::vector<double>&,
                                IAudioFramesGetter&) const {
    const int count = static_cast<int>(placement.GetBeatCount());
    const int end = beat_ < 0 ? count : beat_ + 1;
    for (int i = 0; i < count; ++i)
        if (i < end - slackBeats_ || i >= end + slackBeats_ + 1)
            placement.Add(static_cast<std::size_t>(i), placement.GetPositionCount() - 1, kInfinity);
}

void SourceTimeRangeConstraint::Apply(TransitionMatrix&,
                                      PlacementMatrix& placement,
                                      const Retarget&,
                                      const std::vector<double>& beatTimes,
                                      IAudioFramesGetter&) const {
    for (std::size_t i = 0; i < beatTimes.size(); ++i)
        if (beatTimes[i] < startSeconds_ || beatTimes[i] > endSeconds_)
            placement.AddToRow(i, kInfinity);
}

void PenalizeLongEditsConstraint::Apply(TransitionMatrix& transition,
                                        PlacementMatrix&,
                                        const Retarget&,
                                        const std::vector<double>&,
                                        IAudioFramesGetter&) const {
    const std::size_t count = transition.GetBeatCount();
    std::vector<double> costs(count, 0.0);  // by distance
    for (std::size_t d = 0; d < count; ++d) {
        const double beyond = static_cast<double>(d) - freeBeats_;
        if (beyond >= 1)
            costs[d] = weight_ * std::pow(beyond / static_cast<double>(count), exponent_);
    }
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = 0; j < count; ++j)
            transition.Row(i)[j] += costs[i > j ? i - j : j - i];
}

}  // namespace zuc::components
