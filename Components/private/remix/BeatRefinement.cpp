#include "Components/private/remix/BeatRefinement.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>

namespace zuc::components {
namespace {

constexpr SpectrumLayout kFineLayout{256, 64, 60};
constexpr std::size_t kBands = 24;
constexpr std::size_t kFluxFrames = 2;  // the past that a frame is compared with: 6 ms
// Where the flux of a click has its peak, against the click, in frames of the analysis rate: found
// with click tracks at 44.1 and 48 kHz, and the same for all because windows and hops are.
constexpr double kPeakFrames = -12;
constexpr int kAttackSteps = 100;  // of an attack's course, centred on its peak
constexpr double kAttackStepSeconds = 0.0005;
constexpr double kAttackReachSeconds = 0.5 * kAttackSteps * kAttackStepSeconds;
constexpr double kAttackMeanSeconds = 0.001;        // that each of its values is a mean of
constexpr double kAttackFloor = 1e-6;               // of an attack's power
constexpr double kAttackBegun = 0.1;                // of the rise
constexpr double kReachSeconds[] = {0.045, 0.030};  // of the two searches
constexpr double kSpreadSeconds = 0.020;            // of their Gaussian weight
constexpr double kAgreementSeconds = 0.010;
constexpr std::ptrdiff_t kLineBeats = 4;  // to each side
constexpr std::size_t kEndIntervals = 8;  // that tell the period at an end

struct FineOnsets {
    double rateHz = 0;
    double offsetSeconds = 0;  // of value 0
    std::vector<float> flux;
    double mean = 0;
};

bool ReadFlux(IAudioFramesGetter& frames,
              float scale,
              double blockSeconds,
              const ProgressShare& progress,
              FineOnsets& out) {
    const double rateHz = frames.GetSampleRate();
    const MelBands mel(kBands, 30, 10000, kFineLayout.size, rateHz);
    std::vector<float> past(kFluxFrames * kBands, 0.0f), bands(kBands);
    std::size_t slot = 0;
    SpectrumLayout layout = kFineLayout;
    layout.blockSeconds = blockSeconds;
    const bool isDone = ForEachSpectrum(frames, layout, progress, [&](const float* magnitudes) {
        mel.Apply(magnitudes, bands.data());
        float* before = past.data() + slot * kBands;
        float sum = 0;
        for (std::size_t b = 0; b < kBands; ++b) {
            const float loudness = std::log1p(scale * bands[b]);
            sum += std::max(0.0f, loudness - before[b]);
            before[b] = loudness;
        }
        slot = (slot + 1) % kFluxFrames;
        out.flux.push_back(sum);
        out.mean += static_cast<double>(sum);
    });
    out.rateHz = rateHz / static_cast<double>(kFineLayout.hop);
    out.offsetSeconds = -kPeakFrames / rateHz;
    out.mean /= static_cast<double>(std::max<std::size_t>(out.flux.size(), 1));
    return isDone;
}

struct Peak {
    double seconds = 0;
    double salience = 0;  // height over the song's mean flux
};

/// The strongest onset near `seconds`, to a fraction of a value.
Peak FindPeak(const FineOnsets& onsets, double seconds, double reachSeconds) {
    const double at = (seconds - onsets.offsetSeconds) * onsets.rateHz;
    const auto last = static_cast<std::ptrdiff_t>(onsets.flux.size()) - 2;
    const auto lo = std::max<std::ptrdiff_t>(
        1, static_cast<std::ptrdiff_t>(std::ceil(at - reachSeconds * onsets.rateHz)));
    const auto hi = std::min<std::ptrdiff_t>(
        last, static_cast<std::ptrdiff_t>(std::floor(at + reachSeconds * onsets.rateHz)));
    const auto weighted = [&](std::ptrdiff_t k) {
        const double deviations = (static_cast<double>(k) - at) / (kSpreadSeconds * onsets.rateHz);
        return static_cast<double>(onsets.flux[static_cast<std::size_t>(k)]) *
               std::exp(-0.5 * deviations * deviations);
    };
    Peak peak{seconds, 0};
    std::ptrdiff_t best = -1;
    double most = 0;
    for (std::ptrdiff_t k = lo; k <= hi; ++k)
        if (weighted(k) > most) {
            most = weighted(k);
            best = k;
        }
    if (best < 0 || onsets.mean <= 0) return peak;
    const auto k = static_cast<std::size_t>(best);
    const double a = onsets.flux[k - 1], b = onsets.flux[k], c = onsets.flux[k + 1];
    const double curvature = a - 2 * b + c;
    const double part = curvature < 0 ? std::clamp(0.5 * (a - c) / curvature, -0.5, 0.5) : 0;
    peak.seconds = (static_cast<double>(best) + part) / onsets.rateHz + onsets.offsetSeconds;
    peak.salience = b / onsets.mean;
    return peak;
}

/// The line through the peaks around beat k, at k; peaks off the line count less.
double LineAt(const std::vector<Peak>& peaks, std::size_t k) {
    const auto center = static_cast<std::ptrdiff_t>(k);
    const std::ptrdiff_t lo = std::max<std::ptrdiff_t>(0, center - kLineBeats);
    const std::ptrdiff_t hi =
        std::min(static_cast<std::ptrdiff_t>(peaks.size()) - 1, center + kLineBeats);
    double height = peaks[k].seconds, slope = 0;
    for (int round = 0; round < 4; ++round) {
        double w = 0, wx = 0, wy = 0, wxx = 0, wxy = 0;
        for (std::ptrdiff_t j = lo; j <= hi; ++j) {
            const auto x = static_cast<double>(j - center);
            const Peak& peak = peaks[static_cast<std::size_t>(j)];
            const double off = (peak.seconds - (height + slope * x)) / kAgreementSeconds;
            const double weight = (peak.salience + 0.01) / (round == 0 ? 1 : 1 + off * off);
            w += weight;
            wx += weight * x;
            wy += weight * peak.seconds;
            wxx += weight * x * x;
            wxy += weight * x * peak.seconds;
        }
        const double determinant = w * wxx - wx * wx;
        if (!(determinant > 1e-12)) break;
        height = (wxx * wy - wx * wxy) / determinant;
        slope = (w * wxy - wx * wy) / determinant;
    }
    return height;
}

/// Level of the signal's steps around `seconds`, as the logarithm of their power.
std::vector<double> AttackCourse(IAudioFramesGetter& frames, double seconds) {
    const double rateHz = frames.GetSampleRate();
    const double half = 0.5 * kAttackMeanSeconds;
    const auto first =
        static_cast<std::int64_t>((seconds - kAttackReachSeconds - half) * rateHz) - 1;
    const auto count = static_cast<std::int64_t>(2 * (kAttackReachSeconds + half) * rateHz) + 3;
    if (first < 0) return {};
    const std::vector<double> audio = frames.GetFrames(first, first + count);
    if (static_cast<std::int64_t>(audio.size()) < count) return {};
    std::vector<double> power(audio.size() + 1, 0.0);  // of all steps before
    for (std::size_t i = 1; i < audio.size(); ++i)
        power[i + 1] = power[i] + (audio[i] - audio[i - 1]) * (audio[i] - audio[i - 1]);
    std::vector<double> course;
    for (int k = 0; k <= kAttackSteps; ++k) {
        const double t = seconds - kAttackReachSeconds + k * kAttackStepSeconds;
        const double from = (t - half) * rateHz - static_cast<double>(first);
        const auto lo = static_cast<std::size_t>(from + 0.5);
        const auto hi = static_cast<std::size_t>(from + kAttackMeanSeconds * rateHz + 0.5);
        course.push_back(power[hi] - power[lo]);
    }
    const double floor = kAttackFloor * *std::max_element(course.begin(), course.end());
    for (double& x : course) x = floor > 0 ? std::log(x + floor) : 0.0;
    return course;
}

/// Mean course of the clearer half of the peaks.
std::vector<double> MeanCourse(IAudioFramesGetter& frames, const std::vector<Peak>& peaks) {
    std::vector<double> saliences;
    for (const Peak& peak : peaks) saliences.push_back(peak.salience);
    const auto middle = saliences.begin() + static_cast<std::ptrdiff_t>(saliences.size() / 2);
    std::nth_element(saliences.begin(), middle, saliences.end());
    std::vector<double> mean;
    for (const Peak& peak : peaks) {
        if (peak.salience < *middle) continue;
        const auto course = AttackCourse(frames, peak.seconds);
        if (course.empty()) continue;
        mean.resize(course.size(), 0.0);
        std::transform(course.begin(), course.end(), mean.begin(), mean.begin(), std::plus<>());
    }
    return mean;
}

/// How far from the peaks of the flux the sounds begin, below 0 before them. A soft attack is at its
/// steepest, where the flux has its peak, some milliseconds after it begins; how many differs from song
/// to song more than within one.
double FindAttack(IAudioFramesGetter& frames, const std::vector<Peak>& peaks) {
    const std::vector<double> course = MeanCourse(frames, peaks);
    if (course.empty()) return 0;
    const auto middle = course.begin() + static_cast<std::ptrdiff_t>(course.size() / 2);
    const auto reach = static_cast<std::ptrdiff_t>(course.size() / 6);  // 8 ms
    const auto most = std::max_element(middle - reach, middle + reach);
    const auto before = course.begin() + static_cast<std::ptrdiff_t>(course.size() / 4);
    const double base =
        std::accumulate(course.begin(), before, 0.0) / static_cast<double>(before - course.begin());
    if (*most <= base) return 0;
    const double level = base + kAttackBegun * (*most - base);
    auto begin = most;
    while (begin > before && *(begin - 1) > level) --begin;
    const double part = std::clamp((*begin - level) / (*begin - *(begin - 1)), 0.0, 1.0);
    const double place = static_cast<double>(begin - course.begin()) - part;
    // A mean rises as soon as its front end reaches the sound.
    return place * kAttackStepSeconds - kAttackReachSeconds + 0.5 * kAttackMeanSeconds;
}

}  // namespace

bool RefineBeats(IAudioFramesGetter& frames,
                 float loudnessScale,
                 double blockSeconds,
                 const ProgressShare& progress,
                 std::vector<double>& beatTimes) {
    FineOnsets onsets;
    if (!ReadFlux(frames, loudnessScale, blockSeconds, progress, onsets)) return false;
    if (beatTimes.size() < 2) return true;
    std::vector<Peak> peaks;
    for (const double reach : kReachSeconds) {
        peaks.clear();
        for (const double seconds : beatTimes) peaks.push_back(FindPeak(onsets, seconds, reach));
        for (std::size_t k = 0; k < peaks.size(); ++k) {
            const double line = LineAt(peaks, k);
            const double apart = (peaks[k].seconds - line) / kAgreementSeconds;
            const double trust =
                peaks[k].salience / (peaks[k].salience + 2) * std::exp(-0.5 * apart * apart);
            beatTimes[k] = line + trust * (peaks[k].seconds - line);
        }
        std::sort(beatTimes.begin(), beatTimes.end());
    }
    const double attack = FindAttack(frames, peaks);
    for (double& seconds : beatTimes) seconds += attack;
    return true;
}

void ExtendBeats(double durationSeconds, std::vector<double>& beatTimes) {
    if (beatTimes.size() < 2) return;
    const std::size_t intervals = std::min(kEndIntervals, beatTimes.size() - 1);
    const auto median = [&](std::size_t first) {
        std::vector<double> near;
        for (std::size_t k = first; k < first + intervals; ++k)
            near.push_back(beatTimes[k + 1] - beatTimes[k]);
        std::sort(near.begin(), near.end());
        return std::max(near[near.size() / 2], 0.05);
    };
    const double front = median(0), back = median(beatTimes.size() - 1 - intervals);
    std::vector<double> before;
    double earlier = beatTimes.front() - front;
    while (earlier >= 0) {
        before.push_back(earlier);
        earlier -= front;
    }
    beatTimes.insert(beatTimes.begin(), before.rbegin(), before.rend());
    while (beatTimes.back() + back < durationSeconds) beatTimes.push_back(beatTimes.back() + back);
    while (beatTimes.size() > 1 && beatTimes.back() >= durationSeconds) beatTimes.pop_back();
    while (beatTimes.size() > 1 && beatTimes.front() < 0) beatTimes.erase(beatTimes.begin());
}

}  // namespace zuc::components
