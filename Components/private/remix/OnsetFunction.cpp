#include "Components/private/remix/OnsetFunction.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace zuc::components {
namespace {

constexpr float kCompression = 100;
constexpr double kReferencePercentile = 0.95;
constexpr std::size_t kParts = 5;         // of the spectrum
constexpr std::size_t kFluxFrames = 2;    // the past that a frame is compared with
constexpr double kLevelSeconds = 4;       // of the mean that a part's flux is divided by
constexpr float kLevelFloor = 0.05f;      // of the whole song's mean, added to it
constexpr double kBaselineSeconds = 0.7;  // of the mean that is subtracted at the end

/// Largest value of the band and its neighbours.
float MaxOfNeighbours(const float* row, std::size_t band, std::size_t bands) {
    float most = row[band];
    if (band > 0) most = std::max(most, row[band - 1]);
    if (band + 1 < bands) most = std::max(most, row[band + 1]);
    return most;
}

/// Flux of each part of the spectrum.
std::vector<std::vector<float>> FluxOfParts(const Spectrogram& loudness) {
    const std::size_t count = loudness.GetCount(), bands = loudness.bands;
    std::vector<std::vector<float>> parts(kParts, std::vector<float>(count, 0.0f));
    std::vector<float> past(bands);
    for (std::size_t k = 0; k < count; ++k) {
        const float* before = loudness.Row(k < kFluxFrames ? 0 : k - kFluxFrames);
        const float* now = loudness.Row(k);
        for (std::size_t b = 0; b < bands; ++b) past[b] = MaxOfNeighbours(before, b, bands);
        for (std::size_t b = 0; b < bands; ++b)
            parts[b * kParts / bands][k] += std::max(0.0f, now[b] - past[b]);
    }
    return parts;
}

/// A part's flux as a multiple of its usual level.
void DivideByLevel(std::vector<float>& flux, double rateHz) {
    const auto width = static_cast<std::size_t>(kLevelSeconds * rateHz) | 1u;
    const std::vector<float> level = RunningMean(flux, width);
    double mean = 0;
    for (const float x : flux) mean += static_cast<double>(x);
    mean /= static_cast<double>(flux.size());
    const float floor = kLevelFloor * static_cast<float>(mean) + 1e-9f;
    for (std::size_t k = 0; k < flux.size(); ++k) flux[k] /= level[k] + floor;
}

/// Takes out the slow part, smooths over three values and scales to standard deviation 1.
void Normalize(std::vector<float>& x, double rateHz) {
    const auto base = RunningMean(x, static_cast<std::size_t>(kBaselineSeconds * rateHz) | 1u);
    std::vector<float> y(x);
    if (const std::vector<double> taps{0.25, 0.5, 0.25}; x.size() >= taps.size()) {
        const auto smooth = ConvolveSame(std::vector<double>(x.begin(), x.end()), taps);
        std::transform(smooth.begin(), smooth.end(), y.begin(),
                       [](double v) { return static_cast<float>(v); });
    }
    for (std::size_t k = 0; k < x.size(); ++k) y[k] -= base[k];
    double sum = 0, squares = 0;
    for (const float v : y) {
        sum += static_cast<double>(v);
        squares += static_cast<double>(v) * static_cast<double>(v);
    }
    const auto count = static_cast<double>(y.size());
    const double variance = squares / count - sum * sum / (count * count);
    const float scale = variance > 1e-12 ? static_cast<float>(1 / std::sqrt(variance)) : 0.0f;
    for (std::size_t k = 0; k < x.size(); ++k) x[k] = y[k] * scale;
}

}  // namespace

std::vector<float> RunningMean(const std::vector<float>& x, std::size_t width) {
    const std::size_t half = width / 2;
    std::vector<float> mean(x.size());
    double sum = 0;
    std::size_t from = 0, to = 0;
    for (std::size_t k = 0; k < x.size(); ++k) {
        for (; to < std::min(x.size(), k + half + 1); ++to) sum += static_cast<double>(x[to]);
        for (; from + half < k; ++from) sum -= static_cast<double>(x[from]);
        mean[k] = static_cast<float>(sum / static_cast<double>(to - from));
    }
    return mean;
}

std::vector<double> ConvolveSame(const std::vector<double>& x, const std::vector<double>& y) {
    if (x.size() < y.size())
        throw std::invalid_argument(
            "ERROR FFT::convolveSame: size of x has to be larger than size of y");
    std::vector<double> sums(x.size(), 0.0);
    const auto shift = static_cast<std::ptrdiff_t>(y.size() / 2);
    for (std::ptrdiff_t k = 0; k < static_cast<std::ptrdiff_t>(x.size()); ++k)
        for (std::ptrdiff_t j = 0; j < static_cast<std::ptrdiff_t>(y.size()); ++j) {
            const std::ptrdiff_t at = k + shift - j;
            if (at >= 0 && at < static_cast<std::ptrdiff_t>(x.size())) sums[k] += x[at] * y[j];
        }
    return sums;
}

float CompressLoudness(Spectrogram& spectrogram) {
    const std::size_t count = spectrogram.GetCount(), bands = spectrogram.bands;
    if (count == 0) return 0;
    std::vector<float> maxima(count);
    for (std::size_t k = 0; k < count; ++k)
        maxima[k] = *std::max_element(spectrogram.Row(k), spectrogram.Row(k) + bands);
    const auto at = static_cast<std::ptrdiff_t>(kReferencePercentile * static_cast<double>(count));
    std::nth_element(maxima.begin(), maxima.begin() + at, maxima.end());
    const float reference = maxima[static_cast<std::size_t>(at)];
    const float scale = reference > 0 ? kCompression / reference : 0.0f;
    for (float& x : spectrogram.values) x = std::log1p(scale * x);
    return scale;
}

OnsetFunction MakeOnsetFunction(const Spectrogram& loudness,
                                const std::vector<float>& novelty,
                                double noveltyRateHz) {
    OnsetFunction onsets{loudness.rateHz, std::vector<float>(loudness.GetCount(), 0.0f), {}, {}};
    if (onsets.strength.empty()) return onsets;
    auto parts = FluxOfParts(loudness);
    for (auto& part : parts) DivideByLevel(part, onsets.rateHz);
    onsets.low = parts.front();
    for (std::size_t k = 0; k < onsets.strength.size(); ++k) {
        float sum = 0;
        for (const auto& part : parts) sum += std::sqrt(part[k]);
        onsets.strength[k] = (sum / kParts) * (sum / kParts);
    }
    Normalize(onsets.strength, onsets.rateHz);
    Normalize(onsets.low, onsets.rateHz);
    if (novelty.size() < 2) return onsets;
    const double mean =
        std::accumulate(novelty.begin(), novelty.end(), 0.0) / static_cast<double>(novelty.size());
    const float scale = mean > 0 ? static_cast<float>(1 / mean) : 0.0f;
    for (std::size_t k = 0; k < onsets.strength.size(); ++k) {
        const double at = static_cast<double>(k) * noveltyRateHz / onsets.rateHz;
        const auto i = std::min(static_cast<std::size_t>(at), novelty.size() - 2);
        const auto part = static_cast<float>(std::min(1.0, at - static_cast<double>(i)));
        onsets.harmony.push_back(scale * (novelty[i] + part * (novelty[i + 1] - novelty[i])));
    }
    return onsets;
}

}  // namespace zuc::components
