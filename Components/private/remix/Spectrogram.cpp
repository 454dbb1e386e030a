#include "Components/private/remix/Spectrogram.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kraaudiodsp/RealFft.h"

namespace zuc::components {
namespace {

constexpr double kMelLoHz = 30;
constexpr double kMelHiHz = 10000;
constexpr std::size_t kSpectraPerReport = 256;  // some 20 ms of work

double HzToMel(double hz) { return 2595 * std::log10(1 + hz / 700); }
double MelToHz(double mel) { return 700 * (std::pow(10, mel / 2595) - 1); }

/// One block's spectra; `audio` starts half a window before the first centre.
class BlockTransform {
public:
    explicit BlockTransform(std::size_t size)
        : window_(size), windowed_(size), spectrum_(size / 2 + 1), magnitudes_(size / 2 + 1) {
        fft_.Prepare(size);
        double sum = 0;
        for (std::size_t i = 0; i < size; ++i) {
            const double at = (static_cast<double>(i) + 0.5) / static_cast<double>(size);
            window_[i] = static_cast<float>(0.5 - 0.5 * std::cos(2 * std::numbers::pi * at));
            sum += static_cast<double>(window_[i]);
        }
        for (float& w : window_) w *= static_cast<float>(2 / sum);
    }

    const float* Transform(const float* audio) {
        for (std::size_t i = 0; i < window_.size(); ++i) windowed_[i] = window_[i] * audio[i];
        fft_.Forward(windowed_.data(), spectrum_.data());
        const auto* parts = reinterpret_cast<const float*>(spectrum_.data());
        for (std::size_t k = 0; k < magnitudes_.size(); ++k)
            magnitudes_[k] =
                std::sqrt(parts[2 * k] * parts[2 * k] + parts[2 * k + 1] * parts[2 * k + 1]);
        return magnitudes_.data();
    }

private:
    dsp::RealFft<float> fft_;
    std::vector<float> window_;
    std::vector<float> windowed_;
    std::vector<std::complex<float>> spectrum_;
    std::vector<float> magnitudes_;
};

/// `count` frames from `first` on as float; silence outside the signal.
std::vector<float> ReadPadded(IAudioFramesGetter& frames, std::int64_t first, std::size_t count) {
    const std::int64_t from = std::max<std::int64_t>(first, 0);
    const std::int64_t to =
        std::min(first + static_cast<std::int64_t>(count), frames.GetFrameCount());
    std::vector<float> audio(count, 0.0f);
    if (to <= from) return audio;
    const std::vector<double> read = frames.GetFrames(from, to);
    const auto offset = static_cast<std::size_t>(from - first);
    for (std::size_t i = 0; i < std::min(read.size(), count - offset); ++i)
        audio[offset + i] = static_cast<float>(read[i]);
    return audio;
}

}  // namespace

bool ForEachSpectrum(IAudioFramesGetter& frames,
                     const SpectrumLayout& layout,
                     const ProgressShare& progress,
                     const std::function<void(const float* magnitudes)>& visit) {
    const auto total = static_cast<std::size_t>(frames.GetFrameCount()) / layout.hop + 1;
    const double blockFrames = layout.blockSeconds * frames.GetSampleRate();
    const std::size_t perBlock =
        std::max<std::size_t>(1, static_cast<std::size_t>(blockFrames) / layout.hop);
    BlockTransform transform(layout.size);
    for (std::size_t k = 0; k < total; k += perBlock) {
        const std::size_t count = std::min(perBlock, total - k);
        const auto first =
            static_cast<std::int64_t>(k * layout.hop) - static_cast<std::int64_t>(layout.size / 2);
        const auto audio = ReadPadded(frames, first, (count - 1) * layout.hop + layout.size);
        for (std::size_t i = 0; i < count; ++i) {
            const double done = static_cast<double>(k + i) / static_cast<double>(total);
            if (i % kSpectraPerReport == 0 && !progress.Report(done)) return false;
            visit(transform.Transform(audio.data() + i * layout.hop));
        }
    }
    return true;
}

MelBands::MelBands(std::size_t bands, double loHz, double hiHz, std::size_t size, double rateHz) {
    const double lo = HzToMel(loHz), hi = HzToMel(std::min(hiHz, 0.49 * rateHz));
    const double width = (hi - lo) / static_cast<double>(bands + 1);
    const double binHz = rateHz / static_cast<double>(size);
    for (std::size_t b = 0; b < bands; ++b) {
        const double from = MelToHz(lo + width * static_cast<double>(b)) / binHz;
        const double peak = MelToHz(lo + width * static_cast<double>(b + 1)) / binHz;
        const double to = MelToHz(lo + width * static_cast<double>(b + 2)) / binHz;
        Band band{static_cast<std::size_t>(std::ceil(from)), {}};
        double sum = 0;
        for (std::size_t k = band.first; static_cast<double>(k) < to; ++k) {
            const auto at = static_cast<double>(k);
            const double weight = at < peak ? (at - from) / (peak - from) : (to - at) / (to - peak);
            band.weights.push_back(static_cast<float>(weight));
            sum += weight;
        }
        if (sum <= 0) {  // narrower than a bin
            band.first = static_cast<std::size_t>(peak + 0.5);
            band.weights.assign(1, 1.0f);
            sum = 1;
        }
        for (float& weight : band.weights) weight /= static_cast<float>(sum);
        bands_.push_back(std::move(band));
    }
}

void MelBands::Apply(const float* magnitudes, float* out) const {
    for (const Band& band : bands_) {
        float sum = 0;
        for (std::size_t k = 0; k < band.weights.size(); ++k)
            sum += band.weights[k] * magnitudes[band.first + k];
        *out++ = sum;
    }
}

bool ReadMelSpectrogram(IAudioFramesGetter& frames,
                        const SpectrumLayout& layout,
                        std::size_t bands,
                        const ProgressShare& progress,
                        Spectrogram& out) {
    const MelBands mel(bands, kMelLoHz, kMelHiHz, layout.size, frames.GetSampleRate());
    out = {bands, frames.GetSampleRate() / static_cast<double>(layout.hop), {}};
    out.values.reserve((static_cast<std::size_t>(frames.GetFrameCount()) / layout.hop + 1) * bands);
    return ForEachSpectrum(frames, layout, progress, [&](const float* magnitudes) {
        out.values.resize(out.values.size() + bands);
        mel.Apply(magnitudes, out.Row(out.GetCount() - 1));
    });
}

}  // namespace zuc::components
