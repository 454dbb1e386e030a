#include "Components/private/remix/Tempo.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "kraaudiodsp/RealFft.h"

namespace zuc::components {
namespace {

constexpr double kWindowSeconds = 10;
constexpr int kHarmonics = 4;      // of the period in the autocorrelation
constexpr std::size_t kPeaks = 4;  // of the total that start candidates
constexpr std::size_t kMaxCandidates = 10;
constexpr int kReach = 9;            // tempos to each side that one candidate may drift
constexpr float kDriftCost = 0.08f;  // of the row's largest value, per tempo and second

float At(const std::vector<float>& x, double place) {
    if (place < 0 || place + 1 >= static_cast<double>(x.size())) return 0;
    const auto i = static_cast<std::size_t>(place);
    const auto part = static_cast<float>(place - static_cast<double>(i));
    return x[i] + part * (x[i + 1] - x[i]);
}

/// One window's tempos.
class TempoWindow {
public:
    explicit TempoWindow(double rateHz)
        : rateHz_(rateHz), length_(static_cast<std::size_t>(kWindowSeconds * rateHz)) {
        const std::size_t size = dsp::RealFft<float>::GoodSize(4 * length_);
        fft_.Prepare(size);
        padded_.resize(size);
        spectrum_.resize(size / 2 + 1);
        magnitudes_.resize(size / 2 + 1);
    }

    /// The window centred on `center`.
    std::vector<float> Measure(const std::vector<float>& onsets, std::size_t center) {
        std::fill(padded_.begin(), padded_.end(), 0.0f);
        double energy = 0;
        for (std::size_t i = 0; i < length_; ++i) {
            const std::size_t at = center + i - length_ / 2;
            if (at >= onsets.size()) continue;  // also before the first
            const double turn = (static_cast<double>(i) + 0.5) / static_cast<double>(length_);
            const double window = std::sin(std::numbers::pi * turn);
            padded_[i] = static_cast<float>(window) * onsets[at];
            energy += static_cast<double>(padded_[i] * padded_[i]);
        }
        fft_.Forward(padded_.data(), spectrum_.data());
        for (std::size_t k = 0; k < spectrum_.size(); ++k) {
            magnitudes_[k] = std::abs(spectrum_[k]);
            spectrum_[k] = magnitudes_[k] * magnitudes_[k];
        }
        fft_.Inverse(spectrum_.data(), padded_.data());  // the autocorrelation
        std::vector<float> row(Tempogram::kTempos);
        for (std::size_t k = 0; k < row.size(); ++k)
            row[k] = Salience(Tempogram::Bpm(static_cast<double>(k)));
        const float most = *std::max_element(row.begin(), row.end());
        const auto loudness = static_cast<float>(std::sqrt(energy / static_cast<double>(length_)));
        if (most > 0)
            for (float& x : row) x *= loudness / most;
        return row;
    }

private:
    float Salience(double bpm) const {
        const double period = 60 / bpm * rateHz_;
        float repeated = 0;
        for (int h = 1; h <= kHarmonics; ++h)
            repeated += At(padded_, h * period) / static_cast<float>(h);
        const double bin = bpm / 60 / rateHz_ * static_cast<double>(padded_.size());
        const float periodic = At(magnitudes_, bin) + 0.5f * At(magnitudes_, 2 * bin);
        return std::max(0.0f, repeated) * periodic;
    }

    double rateHz_;
    std::size_t length_;
    dsp::RealFft<float> fft_;
    std::vector<float> padded_;
    std::vector<std::complex<float>> spectrum_;
    std::vector<float> magnitudes_;
};

}  // namespace

double Tempogram::Bpm(double tempo) { return kLoBpm * std::exp2(tempo / kPerOctave); }

Tempogram MakeTempogram(const OnsetFunction& onsets) {
    Tempogram tempogram;
    tempogram.total.assign(Tempogram::kTempos, 0.0f);
    TempoWindow window(onsets.rateHz);
    const double seconds = static_cast<double>(onsets.strength.size()) / onsets.rateHz;
    for (int k = 0; k <= static_cast<int>(seconds); ++k) {
        const auto center = static_cast<std::size_t>(k * onsets.rateHz);
        tempogram.rows.push_back(window.Measure(onsets.strength, center));
        for (std::size_t t = 0; t < Tempogram::kTempos; ++t)
            tempogram.total[t] += tempogram.rows.back()[t];
    }
    const float most = *std::max_element(tempogram.total.begin(), tempogram.total.end());
    if (most > 0)
        for (float& x : tempogram.total) x /= most;
    return tempogram;
}

std::vector<double> FindTempoCandidates(const Tempogram& tempogram) {
    const auto& total = tempogram.total;
    std::vector<std::size_t> peaks;
    for (std::size_t t = 1; t + 1 < total.size(); ++t)
        if (total[t] > total[t - 1] && total[t] >= total[t + 1]) peaks.push_back(t);
    std::sort(peaks.begin(), peaks.end(), [&](auto a, auto b) { return total[a] > total[b]; });
    if (peaks.size() > kPeaks) peaks.resize(kPeaks);
    std::vector<double> candidates;
    for (const double ratio : {1.0, 2.0, 0.5, 1.5, 2.0 / 3, 3.0, 1.0 / 3})
        for (const std::size_t peak : peaks) {
            const double tempo =
                static_cast<double>(peak) + Tempogram::kPerOctave * std::log2(ratio);
            const bool isInside = tempo >= 0 && tempo <= Tempogram::kTempos - 1;
            const bool isNew =
                std::none_of(candidates.begin(), candidates.end(),
                             [&](double other) { return std::abs(other - tempo) < 4; });
            if (isInside && isNew && candidates.size() < kMaxCandidates)
                candidates.push_back(tempo);
        }
    return candidates;
}

std::vector<double> FollowTempo(const Tempogram& tempogram,
                                double tempo,
                                const OnsetFunction& onsets) {
    constexpr int kStates = 2 * kReach + 1;
    const auto center = static_cast<int>(tempo + 0.5);
    const std::size_t count = tempogram.rows.size();
    std::vector<std::vector<int>> back(count, std::vector<int>(kStates, 0));
    std::vector<float> scores(kStates, 0.0f);
    for (std::size_t k = 0; k < count; ++k) {
        const auto& row = tempogram.rows[k];
        const float most = *std::max_element(row.begin(), row.end()) + 1e-9f;
        std::vector<float> next(kStates);
        for (int s = 0; s < kStates; ++s) {
            float best = -1e30f;
            for (int from = 0; from < kStates; ++from) {
                const float score =
                    scores[from] - kDriftCost * static_cast<float>(std::abs(from - s));
                if (score > best) {
                    best = score;
                    back[k][s] = from;
                }
            }
            const int t = center + s - kReach;
            const bool isInside = t >= 0 && t < static_cast<int>(row.size());
            next[s] = best + (isInside ? row[static_cast<std::size_t>(t)] / most : -1.0f);
        }
        scores.swap(next);
    }
    std::vector<double> tempos(count);
    auto state = static_cast<int>(std::max_element(scores.begin(), scores.end()) - scores.begin());
    for (std::size_t k = count; k-- > 0; state = back[k][state])
        tempos[k] = center + state - kReach;
    std::vector<double> periods(onsets.strength.size());
    for (std::size_t i = 0; i < periods.size(); ++i) {
        const double at = static_cast<double>(i) / onsets.rateHz;
        const std::size_t k = std::min(static_cast<std::size_t>(at), count - 1);
        const double part = at - static_cast<double>(k);
        const double here = tempos[k] + part * (tempos[std::min(k + 1, count - 1)] - tempos[k]);
        periods[i] = 60 / Tempogram::Bpm(here) * onsets.rateHz;
    }
    return periods;
}

}  // namespace zuc::components
