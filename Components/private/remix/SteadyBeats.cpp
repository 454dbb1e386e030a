#include "Components/private/remix/SteadyBeats.h"

#include <algorithm>
#include <cmath>

namespace zuc::components {
namespace {

constexpr double kPeriodReach = 0.02;  // of the tracked period, to each side
constexpr double kPhaseStep = 2;       // onset values
constexpr std::size_t kMinBeats = 16;
constexpr double kMinKept = 0.72;  // of the tracked beats' strength
constexpr double kThird = 1.0 / 3;

double MiddleInterval(const std::vector<double>& beats) {
    std::vector<double> intervals;
    for (std::size_t k = 1; k < beats.size(); ++k) intervals.push_back(beats[k] - beats[k - 1]);
    std::sort(intervals.begin(), intervals.end());
    const std::size_t cut = intervals.size() / 4;
    double sum = 0;
    for (std::size_t k = cut; k < intervals.size() - cut; ++k) sum += intervals[k];
    return sum / static_cast<double>(intervals.size() - 2 * cut);
}

/// A period and where one of its beats is, in onset values.
struct Metronome {
    double period = 0;
    double origin = 0;
    double strength = -1e30;

    std::vector<double> Beats(double from, double to) const {
        const auto first = static_cast<int>(std::ceil((from - origin) / period - 0.5));
        const auto last = static_cast<int>(std::floor((to - origin) / period + 0.5));
        std::vector<double> beats;
        for (int k = first; k <= last; ++k) beats.push_back(origin + k * period);
        return beats;
    }
};

/// Mean of the values at `first` and then every `period`, up to `last`.
double MeanAlong(const std::vector<float>& widened, double first, double period, double last) {
    const int count = static_cast<int>((last - first) / period) + 1;
    double sum = 0;
    for (int k = 0; k < count; ++k)
        sum += static_cast<double>(widened[static_cast<std::size_t>(first + k * period + 0.5)]);
    return sum / count;
}

/// The strongest metronome with a period near the given one.
Metronome FindMetronome(const std::vector<float>& widened, double period, double from, double to) {
    const double middle = 0.5 * (from + to);
    const double step = kPhaseStep * period / (to - from);  // one phase step at both ends
    const auto reach = static_cast<int>(kPeriodReach * period / step);
    Metronome best;
    for (int p = -reach; p <= reach; ++p) {
        const double tried = period + p * step;
        for (int k = 0; k * kPhaseStep < tried; ++k) {
            const double origin = middle + k * kPhaseStep;
            const double first = origin - std::floor((origin - from) / tried) * tried;
            const double strength = MeanAlong(widened, first, tried, to);
            if (strength > best.strength) best = {tried, origin, strength};
        }
    }
    return best;
}

/// How much like beats the places that lie a fraction of an interval behind the beats are.
double PhaseScore(const OnsetFunction& onsets, const std::vector<double>& beats, double fraction) {
    const auto strength = [&](double at) {
        return MeanStrengthAt(onsets.strength, PlacesBetween(beats, at));
    };
    const double early = strength(fraction + kThird), late = strength(fraction + 2 * kThird);
    return strength(fraction) + MeanStrengthAt(onsets.harmony, PlacesBetween(beats, fraction)) -
           std::max(0.0, early - std::max(late, 0.0));
}

}  // namespace

double MeanStrengthAt(const std::vector<float>& onsets, const std::vector<double>& places) {
    double sum = 0;
    std::size_t count = 0;
    for (const double place : places) {
        if (place < 0.5 || place + 1.5 >= static_cast<double>(onsets.size())) continue;
        const auto i = static_cast<std::size_t>(place + 0.5);
        sum += static_cast<double>(std::max({onsets[i - 1], onsets[i], onsets[i + 1]}));
        ++count;
    }
    return count > 0 ? sum / static_cast<double>(count) : 0;
}

std::vector<double> PlacesBetween(const std::vector<double>& beats,
                                  double fraction,
                                  std::size_t first,
                                  std::size_t step) {
    std::vector<double> places;
    for (std::size_t k = first; k + 1 < beats.size(); k += step)
        places.push_back(beats[k] + fraction * (beats[k + 1] - beats[k]));
    return places;
}

std::vector<double> SteadyBeats(const OnsetFunction& onsets, const std::vector<double>& beats) {
    if (beats.size() < kMinBeats) return beats;
    std::vector<float> widened(onsets.strength);
    for (std::size_t k = 1; k + 1 < widened.size(); ++k)
        widened[k] = std::max({onsets.strength[k - 1], onsets.strength[k], onsets.strength[k + 1]});
    const Metronome metronome =
        FindMetronome(widened, MiddleInterval(beats), beats.front(), beats.back());
    const double tracked = MeanStrengthAt(onsets.strength, beats);
    if (metronome.strength < kMinKept * tracked) return beats;
    return metronome.Beats(beats.front(), beats.back());
}

std::vector<double> ChoosePhase(const OnsetFunction& onsets, const std::vector<double>& beats) {
    double bestFraction = 0, bestScore = PhaseScore(onsets, beats, 0);
    for (const double fraction : {kThird, 0.5, 2 * kThird})
        if (const double score = PhaseScore(onsets, beats, fraction); score > bestScore) {
            bestScore = score;
            bestFraction = fraction;
        }
    return bestFraction == 0 ? beats : PlacesBetween(beats, bestFraction);
}

}  // namespace zuc::components
