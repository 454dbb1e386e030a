#include "Components/private/remix/SmoothJoinConstraint.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

namespace zuc::components {
namespace {

constexpr double kTimbreCost = 4;
constexpr double kChromaCost = 2;
constexpr double kNearShare = 0.02;  // of pairs of beats
constexpr int kSampledPairs = 4096;
constexpr std::size_t kApartBeats = 4;  // nearer beats are alike because they share their sounds
constexpr std::size_t kClasses = 12;    // of chroma

constexpr double kCostPerDb = 1.0 / 3;
constexpr double kFreeDb = 1;

constexpr double kWindowBeats = 3;  // to either side
constexpr double kReachBeats = 0.5;
constexpr std::size_t kNearFrames = 1;  // of the onset curve: about 12 ms
constexpr double kMostFramesPerBeat = 1000;
constexpr double kTimingCost = 16;
constexpr double kTimingMargin = 0.1;
constexpr std::size_t kTimedPerRow = 32;
constexpr double kUntimedCost = 3;

/// Calls add(e, j) for every beat e and every other beat j that may stand in its place, and adds what it
/// answers.
template <typename Add>
void AddToJoins(TransitionMatrix& transition, Add&& add) {
    const std::size_t count = transition.GetBeatCount();
    for (std::size_t e = 1; e < count; ++e) {
        double* row = transition.Row(e - 1);
        for (std::size_t j = 0; j < count; ++j)
            if (j != e) row[j] += add(e, j);
    }
}

/// Distances of pairs drawn from a song, in no order.
std::vector<float> SampleDistances(const std::vector<float>& distances, std::size_t count) {
    std::mt19937 random;  // the same pairs every time
    std::vector<float> sample;
    for (int k = 0; k < kSampledPairs; ++k) {
        const std::size_t i = random() % count, j = random() % count;
        const float distance = distances[i * count + j];
        if ((i > j ? i - j : j - i) >= kApartBeats && std::isfinite(distance))
            sample.push_back(distance);
    }
    return sample;
}

double TakeQuantile(std::vector<float>& values, double share) {
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size()));
    std::nth_element(values.begin(), at, values.end());
    return static_cast<double>(*at);
}

void AddDistances(TransitionMatrix& transition, const BeatRows& rows, double weight) {
    const std::size_t count = transition.GetBeatCount();
    if (weight == 0 || rows.GetCount() != count) return;
    const std::vector<float> distances = DistancesOfBeats(rows);
    std::vector<float> sample = SampleDistances(distances, count);
    if (sample.empty()) return;
    const double near = TakeQuantile(sample, kNearShare);
    const double spread = TakeQuantile(sample, 0.5) - near;
    if (!(spread > 0)) return;  // all beats sound alike
    AddToJoins(transition, [&](std::size_t e, std::size_t j) {
        const double beyond = static_cast<double>(distances[e * count + j]) - near;
        return weight * std::max(0.0, beyond / spread);
    });
}

/// Each slice of each beat less the mean of its classes: which notes, not how much of them.
BeatRows WithoutClassMeans(BeatRows rows) {
    if (rows.columns % kClasses != 0) return rows;
    for (auto slice = rows.values.begin(); slice != rows.values.end(); slice += kClasses) {
        const float mean = std::accumulate(slice, slice + kClasses, 0.0f) / kClasses;
        for (auto value = slice; value != slice + kClasses; ++value) *value -= mean;
    }
    return rows;
}

void AddLevelSteps(TransitionMatrix& transition, const std::vector<BeatLevel>& levels) {
    if (levels.size() != transition.GetBeatCount()) return;
    const auto before = [&](std::size_t beat) {
        return levels[beat > 0 ? beat - 1 : 0].firstHalfDb;
    };
    AddToJoins(transition, [&](std::size_t e, std::size_t j) {
        const double behind = levels[j].secondHalfDb - levels[e].secondHalfDb;
        const double stepDb = std::abs(behind + before(j) - before(e)) / 2;
        return kCostPerDb * std::max(0.0, stepDb - kFreeDb);
    });
}

/// The onset curve around every beat.
class OnsetWindows {
public:
    explicit OnsetWindows(const SongAnalysis& song)
        : half_(static_cast<std::size_t>(kWindowBeats * GetFramesPerBeat(song))),
          reach_(static_cast<std::size_t>(kReachBeats * GetFramesPerBeat(song))),
          width_(2 * (half_ + reach_) + 1),
          values_(song.beatTimes.size() * width_) {
        for (std::size_t i = 0; i < song.beatTimes.size(); ++i) {
            float* window = values_.data() + i * width_;
            const double first =
                song.beatTimes[i] * song.onsetRateHz - static_cast<double>(half_ + reach_);
            for (std::size_t k = 0; k < width_; ++k)
                window[k] = OnsetAt(song.onsets, first + static_cast<double>(k));
            norms_.push_back(std::sqrt(std::inner_product(
                window + reach_, window + reach_ + 2 * half_, window + reach_, 0.0)));
        }
    }

    static bool CanShow(const SongAnalysis& song) {
        const double frames = GetFramesPerBeat(song);
        return frames >= 1 && frames <= kMostFramesPerBeat && !song.onsets.empty();
    }

    /// What the timing of j in place of e costs; nothing where there are no onsets.
    double GetCost(std::size_t e, std::size_t j) {
        const double norm = norms_[e] * norms_[j];
        if (norm == 0) return 0;
        correlation_.assign(2 * reach_ + 1, 0.0f);
        const float* still = values_.data() + e * width_ + reach_;
        const float* moved = values_.data() + j * width_;
        for (std::size_t k = 0; k < 2 * half_; ++k) {
            if (still[k] == 0) continue;
            for (std::size_t lag = 0; lag < correlation_.size(); ++lag)
                correlation_[lag] += still[k] * moved[k + lag];
        }
        float here = 0, away = 0;
        for (std::size_t lag = 0; lag < correlation_.size(); ++lag) {
            const std::size_t apart = lag > reach_ ? lag - reach_ : reach_ - lag;
            float& most = apart <= kNearFrames ? here : away;
            most = std::max(most, correlation_[lag]);
        }
        const double likeness = static_cast<double>(here) / norm;
        const double other = static_cast<double>(away) / norm;
        return std::max(0.0, 1 - likeness) +
               kTimingCost * std::max(0.0, other - likeness + kTimingMargin);
    }

private:
    static double GetFramesPerBeat(const SongAnalysis& song) {
        return song.beatPeriodSeconds * song.onsetRateHz;
    }

    static float OnsetAt(const std::vector<float>& onsets, double frame) {
        if (!(frame >= 0) || frame >= static_cast<double>(onsets.size() - 1)) return 0;
        const auto k = static_cast<std::size_t>(frame);
        const auto share = static_cast<float>(frame - static_cast<double>(k));
        return (1 - share) * std::max(0.0f, onsets[k]) + share * std::max(0.0f, onsets[k + 1]);
    }

    std::size_t half_, reach_, width_;
    std::vector<float> values_;
    std::vector<double> norms_;
    std::vector<float> correlation_;
};

void AddTiming(SearchCosts& costs) {
    if (!OnsetWindows::CanShow(costs.song)) return;
    OnsetWindows windows(costs.song);
    std::vector<std::size_t> candidates;
    for (std::size_t e = 1; e < costs.transition.GetBeatCount(); ++e) {
        double* row = costs.transition.Row(e - 1);
        candidates.clear();
        for (std::size_t j = 0; j < costs.transition.GetBeatCount(); ++j)
            if (j != e && std::isfinite(row[j]) && std::isfinite(costs.placement.GetRowCost(j)))
                candidates.push_back(j);
        const std::size_t timed = std::min(kTimedPerRow, candidates.size());
        std::nth_element(candidates.begin(),
                         candidates.begin() + static_cast<std::ptrdiff_t>(timed), candidates.end(),
                         [row](auto a, auto b) { return row[a] < row[b]; });
        for (std::size_t k = 0; k < candidates.size(); ++k)
            row[candidates[k]] += k < timed ? windows.GetCost(e, candidates[k]) : kUntimedCost;
    }
}

}  // namespace

void SmoothJoinConstraint::Apply(SearchCosts& costs) const {
    const double timbreWeight = static_cast<double>(timbreWeight_);
    const double chromaWeight = static_cast<double>(chromaWeight_);
    AddDistances(costs.transition, costs.song.timbre, kTimbreCost * timbreWeight);
    AddDistances(costs.transition, WithoutClassMeans(costs.song.chroma),
                 kChromaCost * chromaWeight);
    AddLevelSteps(costs.transition, costs.levels);
    AddTiming(costs);
}

}  // namespace zuc::components
