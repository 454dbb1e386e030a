#include "kraaudiodsp/Resample.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kracore/Debug.h"

namespace dsp {
namespace {

constexpr double kMaxRatio = 32;
constexpr std::int64_t kMaxTerm = std::int64_t{1} << 20;  // of the reduced ratio
constexpr double kCutoff = 0.9;                           // of the lower Nyquist frequency
constexpr double kKaiserShape = 8;
constexpr std::size_t kMaxExactCoefficients = std::size_t{1} << 18;
constexpr int kInterpolatedPhases = 2048;  // per sample of the lower rate; linear between: -130 dB
constexpr std::size_t kBlockFrames = 1024;
constexpr std::size_t kLanes = 8;  // sums are split in this many, so that they fill vectors

struct Ratio {
    std::int64_t numerator, denominator;
};

/// The nearest fraction with terms up to kMaxTerm, by continued fractions (a walk down the
/// Stern-Brocot tree that takes equal turns at once).
Ratio NearestRatio(double value) {
    Ratio previous{0, 1}, best{1, 0};
    for (double rest = value;;) {
        const auto whole = static_cast<std::int64_t>(std::floor(rest));
        const Ratio next{whole * best.numerator + previous.numerator,
                         whole * best.denominator + previous.denominator};
        if (next.numerator > kMaxTerm || next.denominator > kMaxTerm) return best;
        previous = best;
        best = next;
        const double error = rest - static_cast<double>(whole);
        // What double precision leaves of an exact ratio.
        if (error < 1e-9 ||
            static_cast<double>(best.numerator) == value * static_cast<double>(best.denominator))
            return best;
        rest = 1 / error;
    }
}

double Sinc(double x) {
    return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

}  // namespace

Resample::Resample() { Design(); }

void Resample::SetSampleRates(double fromHz, double toHz) {
    const bool isAllowed =
        fromHz > 0 && toHz > 0 && fromHz <= kMaxRatio * toHz && toHz <= kMaxRatio * fromHz;
    if (!kracore::debug::Assert(isAllowed, "1 / kMaxRatio <= fromHz / toHz <= kMaxRatio")) return;
    const Ratio ratio = NearestRatio(toHz / fromHz);
    up_ = ratio.numerator;
    down_ = ratio.denominator;
    Design();
}

void Resample::SetFilterOrder(int order) {
    order_ = std::clamp(order, 4, 512);
    Design();
}

double Resample::Coefficient(double distance) const {
    const double at = distance / halfWidth_;
    if (std::abs(at) >= 1) return 0;
    const double cutoff =
        kCutoff * std::min(1.0, static_cast<double>(up_) / static_cast<double>(down_));
    const double window = std::cyl_bessel_i(0.0, kKaiserShape * std::sqrt(1 - at * at));
    return Sinc(cutoff * distance) * (window - 1);  // less its height at the edge: no step there
}

void Resample::Design() {
    const double inPerOut = static_cast<double>(down_) / static_cast<double>(up_);
    halfWidth_ = std::floor(order_ / 2.0 + 0.5) * std::max(1.0, inPerOut);
    reach_ = static_cast<int>(std::ceil(halfWidth_));
    rowFrames_ = (2 * static_cast<std::size_t>(reach_) + kLanes - 1) / kLanes * kLanes;
    const bool isExact = static_cast<std::size_t>(up_) * rowFrames_ <= kMaxExactCoefficients;
    phaseCount_ = isExact
                      ? static_cast<int>(up_)
                      : static_cast<int>(std::ceil(kInterpolatedPhases / std::max(1.0, inPerOut)));
    rows_.assign((static_cast<std::size_t>(phaseCount_) + 1) * rowFrames_, 0.0f);
    std::vector<double> row(2 * static_cast<std::size_t>(reach_));
    for (int r = 0; r <= phaseCount_; ++r) {
        double sum = 0;
        for (std::size_t j = 0; j < row.size(); ++j) {
            const double distance = static_cast<double>(j) - (reach_ - 1);
            row[j] = Coefficient(distance - static_cast<double>(r) / phaseCount_);
            sum += row[j];
        }
        for (std::size_t j = 0; j < row.size(); ++j)  // each phase passes constants unchanged
            rows_[static_cast<std::size_t>(r) * rowFrames_ + j] = static_cast<float>(row[j] / sum);
    }
    history_.assign(rowFrames_ + kBlockFrames + kLanes, 0.0f);
    Reset();
}

void Resample::Reset() {
    std::fill(history_.begin(), history_.end(), 0.0f);
    filled_ = static_cast<std::size_t>(reach_) - 1;
    firstFrame_ = 1 - static_cast<std::int64_t>(reach_);
    framesIn_ = framesOut_ = position_ = remainder_ = 0;
}

std::int64_t Resample::GetInputNeeded(std::int64_t frames) const {
    if (frames <= 0) return 0;
    const std::int64_t last = (framesOut_ + frames - 1) * down_ / up_;
    return std::max<std::int64_t>(0, last + reach_ + 1 - framesIn_);
}

float Resample::Interpolate(const float* at, double phase) const {
    const double place = phase * phaseCount_;
    const auto row = static_cast<std::size_t>(place);
    const auto beyond = static_cast<float>(place - static_cast<double>(row));
    const float* a = rows_.data() + row * rowFrames_;
    const float* b = a + rowFrames_;
    float sums[kLanes] = {};
    if (beyond == 0)
        for (std::size_t j = 0; j < rowFrames_; j += kLanes)
            for (std::size_t k = 0; k < kLanes; ++k) sums[k] += at[j + k] * a[j + k];
    else
        for (std::size_t j = 0; j < rowFrames_; j += kLanes)
            for (std::size_t k = 0; k < kLanes; ++k)
                sums[k] += at[j + k] * (a[j + k] + beyond * (b[j + k] - a[j + k]));
    return ((sums[0] + sums[4]) + (sums[2] + sums[6])) +
           ((sums[1] + sums[5]) + (sums[3] + sums[7]));
}

/// Output frames for which the history reaches far enough.
int Resample::Produce(float* out, int outFrames) {
    const std::int64_t end = firstFrame_ + static_cast<std::int64_t>(filled_);
    int produced = 0;
    while (produced < outFrames && position_ + reach_ < end) {
        const float* at = history_.data() + (position_ - reach_ + 1 - firstFrame_);
        // A whole number of rows whenever the table is exact.
        const double phase = static_cast<double>(remainder_) / static_cast<double>(up_);
        out[produced++] = Interpolate(at, phase);
        remainder_ += down_;
        position_ += remainder_ / up_;
        remainder_ %= up_;
    }
    framesOut_ += produced;
    return produced;
}

/// Takes what fits into the history, after what is no longer needed was dropped; null is silence.
int Resample::Store(const float* in, std::int64_t inFrames) {
    const auto used = static_cast<std::size_t>(std::clamp<std::int64_t>(
        position_ - reach_ + 1 - firstFrame_, 0, static_cast<std::int64_t>(filled_)));
    std::copy(history_.begin() + static_cast<std::ptrdiff_t>(used),
              history_.begin() + static_cast<std::ptrdiff_t>(filled_), history_.begin());
    filled_ -= used;
    firstFrame_ += static_cast<std::int64_t>(used);
    const std::size_t room = history_.size() - kLanes - filled_;
    const auto count = std::min<std::size_t>(room, static_cast<std::size_t>(inFrames));
    float* to = history_.data() + filled_;
    if (in != nullptr)
        std::copy_n(in, count, to);
    else
        std::fill_n(to, count, 0.0f);
    filled_ += count;
    return static_cast<int>(count);
}

int Resample::Process(const float* in, int inFrames, float* out, int outFrames, int* consumed) {
    int taken = 0;
    int produced = Produce(out, outFrames);
    while (taken < inFrames && produced < outFrames) {
        const int stored = Store(in + taken, inFrames - taken);
        taken += stored;
        framesIn_ += stored;
        produced += Produce(out + produced, outFrames - produced);
    }
    if (consumed != nullptr) *consumed = taken;
    return produced;
}

int Resample::Flush(float* out, int outFrames) {
    const std::int64_t total = (2 * framesIn_ * up_ + down_) / (2 * down_);
    const auto wanted = static_cast<int>(std::min<std::int64_t>(outFrames, total - framesOut_));
    int produced = wanted > 0 ? Produce(out, wanted) : 0;
    while (produced < wanted) {
        Store(nullptr, kBlockFrames);
        produced += Produce(out + produced, wanted - produced);
    }
    return produced;
}

}  // namespace dsp
