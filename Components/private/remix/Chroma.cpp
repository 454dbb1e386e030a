#include "Components/private/remix/Chroma.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

namespace zuc::components {
namespace {

constexpr std::size_t kSize = 4096;
constexpr std::size_t kHop = 1024;
constexpr double kLoHz = 110;
constexpr double kHiHz = 3520;
constexpr double kTuningHz = 440;
constexpr std::size_t kClasses = 12;
constexpr std::size_t kPerSemitone = 5;
constexpr std::size_t kFine = kClasses * kPerSemitone;
constexpr double kSpreadSemitones = 0.35;
constexpr std::size_t kNoveltyRows = 4;  // 186 ms at 22050 Hz
constexpr std::size_t kTimeMedian = 9;   // rows
constexpr std::size_t kBandMedian = 21;  // bins

/// Keeps of each spectrum what lasts: the share of the median over time in the sum of its square and
/// that of the median over frequency. Results come kTimeMedian / 2 rows late.
class SustainedPart {
public:
    explicit SustainedPart(std::size_t bins) : bins_(bins), rows_(kTimeMedian * bins, 0.0f) {}

    void Push(const float* spectrum) {
        std::copy_n(spectrum, bins_, rows_.begin() + static_cast<std::ptrdiff_t>(next_ * bins_));
        next_ = (next_ + 1) % kTimeMedian;
    }
    void Get(float* out) {
        const float* middle = rows_.data() + (next_ + kTimeMedian / 2) % kTimeMedian * bins_;
        MediansOverTime(out);
        Window window{};
        window.back() = std::numeric_limits<float>::max();
        const auto at = [&](std::size_t k) { return k < bins_ ? middle[k] : 0.0f; };
        for (std::size_t k = 0; k < kBandMedian / 2; ++k) Exchange(window, 0.0f, at(k));
        for (std::size_t k = 0; k < bins_; ++k) {
            const float leaving = k > kBandMedian / 2 ? at(k - kBandMedian / 2 - 1) : 0.0f;
            Exchange(window, leaving, at(k + kBandMedian / 2));
            const float lasting = out[k] * out[k];
            const float struck = window[kBandMedian / 2 + 1] * window[kBandMedian / 2 + 1];
            out[k] = lasting > 0 ? middle[k] * lasting / (lasting + struck) : 0.0f;
        }
    }

private:
    /// kBandMedian ascending values between a least and a largest one; magnitudes are not negative.
    using Window = std::array<float, kBandMedian + 2>;

    /// By the shortest network for nine values (Paeth, "Median finding on a 3 x 3 grid", 1990), for all
    /// bins alike.
    void MediansOverTime(float* medians) {
        static_assert(kTimeMedian == 9);
        constexpr std::size_t kSorts[][2] = {{1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2},
                                             {4, 5}, {7, 8}, {0, 3}, {5, 8}, {4, 7}, {3, 6}, {1, 4},
                                             {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2}};
        sorting_ = rows_;
        for (const auto& [lo, hi] : kSorts) {
            float* least = sorting_.data() + lo * bins_;
            float* most = sorting_.data() + hi * bins_;
            for (std::size_t k = 0; k < bins_; ++k) {
                const float a = least[k], b = most[k];
                least[k] = a < b ? a : b;
                most[k] = a < b ? b : a;
            }
        }
        std::copy_n(sorting_.data() + kTimeMedian / 2 * bins_, bins_, medians);
    }
    /// Takes one value out of the ascending window and another in, without branches.
    static void Exchange(Window& window, float leaving, float entering) {
        Window rest = window;
        for (std::size_t k = 1; k <= kBandMedian; ++k)
            rest[k] = window[k] < leaving ? window[k] : window[k + 1];
        for (std::size_t k = 1; k <= kBandMedian; ++k) {
            const float least = rest[k - 1] > entering ? rest[k - 1] : entering;
            window[k] = rest[k] < least ? rest[k] : least;
        }
    }

    std::size_t bins_;
    std::vector<float> rows_;
    std::vector<float> sorting_;
    std::size_t next_ = 0;
};

/// Folds spectra into one octave of kFine steps.
class Fold {
public:
    explicit Fold(double rateHz) {
        const double binHz = rateHz / kSize;
        first_ = static_cast<std::size_t>(std::ceil(kLoHz / binHz));
        const auto last = static_cast<std::size_t>(std::min(kHiHz, 0.49 * rateHz) / binHz);
        for (std::size_t k = first_; k <= last; ++k) {
            const double place = kFine * std::log2(static_cast<double>(k) * binHz / kTuningHz);
            const double inOctave = place - kFine * std::floor(place / kFine);
            const auto step = static_cast<std::size_t>(inOctave) % kFine;
            places_.push_back({step, static_cast<float>(inOctave - std::floor(inOctave))});
        }
    }
    std::size_t GetFirstBin() const { return first_; }
    std::size_t GetBinCount() const { return places_.size(); }
    void Apply(const float* bins, float scale, float* fine) const {
        std::fill_n(fine, kFine, 0.0f);
        for (std::size_t k = 0; k < places_.size(); ++k) {
            const float x = std::log1p(scale * bins[k]);
            fine[places_[k].step] += (1 - places_[k].part) * x;
            fine[(places_[k].step + 1) % kFine] += places_[k].part * x;
        }
    }

private:
    struct Place {
        std::size_t step;
        float part;  // that goes to the next step
    };
    std::size_t first_ = 0;
    std::vector<Place> places_;
};

/// How far the song is tuned above 440 Hz, in fine steps (-2.5 to 2.5).
double EstimateTuning(const Spectrogram& fine) {
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < fine.values.size(); ++i)
        sum +=
            static_cast<double>(fine.values[i]) *
            std::polar(1.0, 2 * std::numbers::pi * static_cast<double>(i % kFine) / kPerSemitone);
    return std::abs(sum) > 0 ? std::arg(sum) / (2 * std::numbers::pi) * kPerSemitone : 0;
}

Spectrogram ToClasses(const Spectrogram& fine) {
    const double tuning = EstimateTuning(fine);
    std::array<std::array<float, kFine>, kClasses> weights{};
    for (std::size_t c = 0; c < kClasses; ++c)
        for (std::size_t b = 0; b < kFine; ++b) {
            const double place = static_cast<double>(c * kPerSemitone) + tuning;
            const double apart = std::remainder(static_cast<double>(b) - place, kFine);
            const double deviations = apart / (kSpreadSemitones * kPerSemitone);
            weights[c][b] = static_cast<float>(std::exp(-0.5 * deviations * deviations));
        }
    Spectrogram classes{kClasses, fine.rateHz, std::vector<float>(fine.GetCount() * kClasses)};
    for (std::size_t k = 0; k < fine.GetCount(); ++k)
        for (std::size_t c = 0; c < kClasses; ++c) {
            float sum = 0;
            for (std::size_t b = 0; b < kFine; ++b) sum += weights[c][b] * fine.Row(k)[b];
            classes.Row(k)[c] = sum;
        }
    return classes;
}

}  // namespace

bool ReadChroma(IAudioFramesGetter& frames,
                const ChromaOptions& options,
                const ProgressShare& progress,
                Spectrogram& out) {
    const Fold fold(frames.GetSampleRate());
    Spectrogram fine{kFine, frames.GetSampleRate() / static_cast<double>(kHop), {}};
    SustainedPart sustained(fold.GetBinCount());
    std::vector<float> bins(fold.GetBinCount());
    std::size_t late = options.separateSources ? kTimeMedian / 2 : 0;
    const auto add = [&](const float* spectrum) {
        fine.values.resize(fine.values.size() + kFine);
        fold.Apply(spectrum, options.loudnessScale, fine.Row(fine.GetCount() - 1));
    };
    const auto push = [&](const float* spectrum) {
        sustained.Push(spectrum);
        if (late > 0 && late-- > 0) return;
        sustained.Get(bins.data());
        add(bins.data());
    };
    const SpectrumLayout layout{kSize, kHop, options.blockSeconds};
    const bool isDone = ForEachSpectrum(frames, layout, progress, [&](const float* magnitudes) {
        if (options.separateSources)
            push(magnitudes + fold.GetFirstBin());
        else
            add(magnitudes + fold.GetFirstBin());
    });
    if (!isDone) return false;
    const std::vector<float> silence(fold.GetBinCount(), 0.0f);
    for (std::size_t k = 0; options.separateSources && k < kTimeMedian / 2; ++k)
        push(silence.data());
    out = ToClasses(fine);
    return true;
}

std::vector<float> HarmonicNovelty(const Spectrogram& chroma) {
    const std::size_t count = chroma.GetCount();
    std::vector<float> novelty(count, 0.0f);
    for (std::size_t k = 1; k < count; ++k) {
        std::array<float, kClasses> before{}, after{};
        for (std::size_t j = 0; j < kNoveltyRows; ++j)
            for (std::size_t c = 0; c < kClasses; ++c) {
                if (k > j) before[c] += chroma.Row(k - j - 1)[c];
                if (k + j < count) after[c] += chroma.Row(k + j)[c];
            }
        float product = 0, beforePower = 0, afterPower = 0;
        for (std::size_t c = 0; c < kClasses; ++c) {
            product += before[c] * after[c];
            beforePower += before[c] * before[c];
            afterPower += after[c] * after[c];
        }
        const float scale = std::sqrt(beforePower * afterPower);
        novelty[k] = scale > 0 ? 1 - product / scale : 0.0f;
    }
    return novelty;
}

}  // namespace zuc::components
