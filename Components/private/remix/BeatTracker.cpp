#include "Components/private/remix/BeatTracker.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "Components/private/remix/SteadyBeats.h"
#include "Components/private/remix/Tempo.h"

namespace zuc::components {
namespace {

constexpr std::size_t kProgressStep = 500;  // onset values
constexpr double kTightness[] = {300, 1200, 5000};
constexpr double kMinKept = 0.85;  // of the loose pass's onset strength, for a stiffer one to count
constexpr std::size_t kMedianIntervals = 17;
constexpr double kUsualBpm = 112;
constexpr double kMinStrength = 0.25;  // standard deviations at the beats; below is no pulse

double Median(std::vector<double> x) {
    const auto middle = x.begin() + static_cast<std::ptrdiff_t>(x.size() / 2);
    std::nth_element(x.begin(), middle, x.end());
    return *middle;
}

/// Smoothed intervals of the beats (median, then mean), for every onset value.
std::vector<double> PeriodsOf(const std::vector<double>& beats, std::size_t count) {
    const std::size_t intervals = beats.size() - 1, half = kMedianIntervals / 2;
    std::vector<double> medians(intervals);
    for (std::size_t k = 0; k < intervals; ++k) {
        std::vector<double> near;
        for (std::size_t j = k > half ? k - half : 0; j < std::min(intervals, k + half + 1); ++j)
            near.push_back(beats[j + 1] - beats[j]);
        // The mean of the middle half keeps fractions of an onset value that a median loses.
        std::sort(near.begin(), near.end());
        const std::size_t cut = near.size() / 4;
        double sum = 0;
        for (std::size_t j = cut; j < near.size() - cut; ++j) sum += near[j];
        medians[k] = sum / static_cast<double>(near.size() - 2 * cut);
    }
    std::vector<double> periods(count);
    for (std::size_t i = 0, k = 0; i < count; ++i) {
        while (k + 1 < intervals && beats[k + 1] <= static_cast<double>(i)) ++k;
        periods[i] = medians[k];
    }
    return periods;
}

struct Hypothesis {
    std::vector<double> beats;
    double score = -std::numeric_limits<double>::infinity();
    double strength = 0;
};

double Score(const OnsetFunction& onsets, const Hypothesis& hypothesis, double salience) {
    const auto& beats = hypothesis.beats;
    std::vector<double> intervals;
    for (std::size_t k = 1; k < beats.size(); ++k) intervals.push_back(beats[k] - beats[k - 1]);
    const double median = Median(intervals);
    double variance = 0;
    for (const double x : intervals) variance += std::pow(std::log(x / median), 2);
    const double spread = std::sqrt(variance / static_cast<double>(intervals.size()));
    // Onsets on both thirds tell of a beat three times as fast; on the second alone, of a swung one.
    const double thirds = std::min(MeanStrengthAt(onsets.strength, PlacesBetween(beats, 1.0 / 3)),
                                   MeanStrengthAt(onsets.strength, PlacesBetween(beats, 2.0 / 3)));
    const double contrast =
        std::abs(MeanStrengthAt(onsets.strength, PlacesBetween(beats, 0, 0, 2)) -
                 MeanStrengthAt(onsets.strength, PlacesBetween(beats, 0, 1, 2)));
    const double low = MeanStrengthAt(onsets.low, PlacesBetween(beats, 0));
    const double octaves = std::log2(60 * onsets.rateHz / median / kUsualBpm);
    return 1.6 * std::log(salience + 0.02) + 0.3 * hypothesis.strength - 0.5 * thirds -
           0.6 * contrast / std::max(hypothesis.strength, 0.1) - 1.5 * spread -
           1.2 * octaves * octaves + 0.3 * low;
}

/// Tracks around one tempo, stiffer as long as the onsets follow.
Hypothesis Follow(const OnsetFunction& onsets,
                  const Tempogram& tempogram,
                  double tempo,
                  const ProgressShare& progress) {
    Hypothesis best;
    std::vector<double> periods = FollowTempo(tempogram, tempo, onsets);
    double looseStrength = 0;
    for (std::size_t pass = 0; pass < std::size(kTightness); ++pass) {
        const auto share = progress.Part(static_cast<double>(pass) / std::size(kTightness),
                                         static_cast<double>(pass + 1) / std::size(kTightness));
        const auto tracked = TrackBeats(onsets.strength, periods, kTightness[pass], share);
        std::vector<double> beats(tracked.begin(), tracked.end());
        if (beats.size() < 4) break;
        const double strength = MeanStrengthAt(onsets.strength, PlacesBetween(beats, 0));
        if (pass == 0) looseStrength = strength;
        if (strength < kMinKept * looseStrength) break;
        periods = PeriodsOf(beats, onsets.strength.size());
        best.beats = std::move(beats);
        best.strength = strength;
    }
    if (best.beats.empty()) return best;
    best.beats = ChoosePhase(onsets, SteadyBeats(onsets, best.beats));
    best.strength = MeanStrengthAt(onsets.strength, best.beats);
    const auto t = static_cast<std::size_t>(tempo + 0.5);
    float salience = 0;
    for (std::size_t k = t > 2 ? t - 2 : 0; k < std::min(Tempogram::kTempos, t + 3); ++k)
        salience = std::max(salience, tempogram.total[k]);
    best.score = Score(onsets, best, static_cast<double>(salience));
    return best;
}

}  // namespace

std::vector<std::size_t> TrackBeats(const std::vector<float>& onsets,
                                    const std::vector<double>& periods,
                                    double tightness,
                                    const ProgressShare& progress) {
    if (!(tightness > 0))
        throw std::invalid_argument("ERROR Beat::beatTrackDp: tightness must be > 0");
    const std::size_t count = onsets.size();
    if (count == 0) return {};
    const double longest = *std::max_element(periods.begin(), periods.end());
    std::vector<float> logs(static_cast<std::size_t>(2 * longest) + 3);
    for (std::size_t l = 1; l < logs.size(); ++l) logs[l] = std::log(static_cast<float>(l));
    std::vector<float> scores(count);
    std::vector<std::size_t> back(count, count);  // count: a first beat
    const auto stiffness = static_cast<float>(tightness);
    for (std::size_t i = 0; i < count; ++i) {
        if (i % kProgressStep == 0 &&
            !progress.Report(static_cast<double>(i + 1) / static_cast<double>(count)))
            return {};
        const auto shortest = static_cast<std::size_t>(std::max(1.0, std::round(periods[i] / 2)));
        const auto reach = std::min(i, static_cast<std::size_t>(2 * periods[i]));
        const auto logPeriod = static_cast<float>(std::log(periods[i]));
        float best = 0;
        for (std::size_t l = shortest; l <= reach; ++l) {
            const float apart = logs[l] - logPeriod;
            const float score = scores[i - l] - stiffness * apart * apart;
            if (score > best) {
                best = score;
                back[i] = i - l;
            }
        }
        scores[i] = onsets[i] + best;
    }
    // The last beat is the best one within the last period.
    const auto tail = std::min(count, static_cast<std::size_t>(periods.back()) + 1);
    auto at = static_cast<std::size_t>(
        std::max_element(scores.end() - static_cast<std::ptrdiff_t>(tail), scores.end()) -
        scores.begin());
    std::vector<std::size_t> beats;
    for (; at != count; at = back[at]) beats.push_back(at);
    std::reverse(beats.begin(), beats.end());
    return beats;
}

BeatTrack FindBeats(const OnsetFunction& onsets, const ProgressShare& progress) {
    BeatTrack track;
    if (onsets.strength.size() < 2) return track;
    const Tempogram tempogram = MakeTempogram(onsets);
    const std::vector<double> candidates = FindTempoCandidates(tempogram);
    Hypothesis best;
    for (std::size_t k = 0; k < candidates.size(); ++k) {
        const double from = static_cast<double>(k), share = static_cast<double>(candidates.size());
        const auto part = progress.Part(from / share, (from + 1) / share);
        if (!part.Report(0)) {
            track.isCancelled = true;
            return track;
        }
        Hypothesis hypothesis = Follow(onsets, tempogram, candidates[k], part);
        if (hypothesis.score > best.score) best = std::move(hypothesis);
    }
    if (best.strength < kMinStrength) return track;
    // Beats of a clear pulse stand two to three standard deviations above the mean.
    track.confidence = std::clamp((best.strength - kMinStrength) / 2, 0.0, 1.0);
    track.beats = std::move(best.beats);
    return track;
}

}  // namespace zuc::components
