#include "kraaudiodsp/Loudness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace dsp {
namespace {

constexpr double kOffsetLufs = -0.691;  // a 997 Hz sine at full scale in one channel reads -3.01
constexpr double kStepSeconds = 0.1;
constexpr double kRelativeGate = 0.1;  // -10 LU as a ratio of powers

double ToLufs(double power) {
    return power > 0.0 ? kOffsetLufs + 10.0 * std::log10(power)
                       : -std::numeric_limits<double>::infinity();
}

}  // namespace

void Loudness::Prepare(double rateHz, std::span<const double> weights) {
    {
        const double k = std::tan(std::numbers::pi * 1681.974450955533 / rateHz);
        const double kq = k / 0.7071752369554196;
        const double gain = std::pow(10.0, 3.999843853973347 / 20.0);
        const double band = std::pow(gain, 0.4996667741545416);
        const double a0 = 1.0 + kq + k * k;
        shelf_ = {(gain + band * kq + k * k) / a0, 2.0 * (k * k - gain) / a0,
                  (gain - band * kq + k * k) / a0, 2.0 * (k * k - 1.0) / a0,
                  (1.0 - kq + k * k) / a0};
    }
    const double k = std::tan(std::numbers::pi * 38.13547087602444 / rateHz);
    const double kq = k / 0.5003270373238773;
    const double a0 = 1.0 + kq + k * k;
    highPass_ = {1.0, -2.0, 1.0, 2.0 * (k * k - 1.0) / a0, (1.0 - kq + k * k) / a0};
    weights_.assign(weights.begin(), weights.end());
    pairs_.resize((weights_.size() + 1) / 2);
    stepFrames_ = std::max<std::size_t>(1, static_cast<std::size_t>(kStepSeconds * rateHz + 0.5));
    bins_.resize(kBins);
    Reset();
}

void Loudness::Reset() {
    std::fill(pairs_.begin(), pairs_.end(), Pair{});
    std::fill(bins_.begin(), bins_.end(), Bin{});
    powers_.fill(0.0);
    framesLeft_ = stepFrames_;
    stepCount_ = 0;
}

void Loudness::Process(const float* const* in, std::size_t frames) {
    for (std::size_t done = 0; done < frames;) {
        const std::size_t run = std::min(frames - done, framesLeft_);
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            const std::size_t second = std::min(2 * p + 1, weights_.size() - 1);
            FilterPair(pairs_[p], in[2 * p] + done, in[second] + done, run);
        }
        framesLeft_ -= run;
        if (framesLeft_ == 0) FinishStep();
        done += run;
    }
}

/// Transposed form II, two channels at a time: a filter waits for its own last output, and two side by side
/// fill that time.
void Loudness::FilterPair(Pair& pair,
                          const float* first,
                          const float* second,
                          std::size_t frames) const {
    const Filter shelf = shelf_;
    const Filter high = highPass_;
    Pair now = pair;
    auto& [s1, s2, t1, t2] = now.state;
    for (std::size_t i = 0; i < frames; ++i) {
        const std::array<double, 2> x{first[i], second[i]};
        for (std::size_t c = 0; c < 2; ++c) {
            const double y = shelf.b0 * x[c] + s1[c];
            s1[c] = shelf.b1 * x[c] - shelf.a1 * y + s2[c];
            s2[c] = shelf.b2 * x[c] - shelf.a2 * y;
            const double z = y + t1[c];
            t1[c] = high.b1 * y - high.a1 * z + t2[c];
            t2[c] = y - high.a2 * z;
            now.sum[c] += z * z;
        }
    }
    pair = now;
}

void Loudness::FinishStep() {
    double sum = 0.0;
    for (std::size_t c = 0; c < weights_.size(); ++c) sum += weights_[c] * pairs_[c / 2].sum[c % 2];
    for (Pair& pair : pairs_) pair.sum = {};
    powers_[stepCount_ % powers_.size()] = sum / static_cast<double>(stepFrames_);
    ++stepCount_;
    framesLeft_ = stepFrames_;
    if (stepCount_ < kMomentarySteps) return;
    const double power = GetLatestPower(kMomentarySteps);
    const double lufs = ToLufs(power);
    if (!(lufs > kLowestLufs)) return;
    const auto place = static_cast<std::size_t>((lufs - kLowestLufs) * kBinsPerLu);
    Bin& bin = bins_[std::min(place, kBins - 1)];
    bin.power += power;
    bin.count += 1.0;
}

double Loudness::GetLatestPower(std::size_t steps) const {
    double sum = 0.0;
    for (std::size_t k = 1; k <= steps; ++k) sum += powers_[(stepCount_ - k) % powers_.size()];
    return sum / static_cast<double>(steps);
}

double Loudness::GetLatestLufs(std::size_t steps) const {
    return stepCount_ < steps ? ToLufs(0.0) : ToLufs(GetLatestPower(steps));
}

double Loudness::GetIntegratedLufs() const {
    const auto mean = [this](double gate) {
        Bin all;
        for (const Bin& bin : bins_) {
            if (bin.power < gate * bin.count) continue;
            all.power += bin.power;
            all.count += bin.count;
        }
        return all.count > 0.0 ? all.power / all.count : 0.0;
    };
    return ToLufs(mean(kRelativeGate * mean(0.0)));
}

}  // namespace dsp
