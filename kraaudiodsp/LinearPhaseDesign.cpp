#include "kraaudiodsp/LinearPhaseDesign.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "kraaudiodsp/Bessel.h"

namespace dsp {
namespace {

constexpr double kTapsPerHz = 8192.0 / 48000.0;
constexpr double kKaiserBeta = 8.0;
constexpr int kMagnitudeSteps = 16;
constexpr int kTransformStep = kMagnitudeSteps;
constexpr int kWindowStep = kTransformStep + 1;
constexpr int kFirstPartStep = kWindowStep + 1;
constexpr std::size_t kPartsPerStep = 5;
static_assert(kFirstPartStep + LinearPhaseDesign::kPartCount / kPartsPerStep ==
              LinearPhaseDesign::kStepCount);

}  // namespace

std::size_t LinearPhaseDesign::GetTaps(double rateHz) {
    return std::bit_ceil(static_cast<std::size_t>(std::max(8000.0, rateHz) * kTapsPerHz));
}

void LinearPhaseDesign::Prepare(double rateHz) {
    rateHz_ = rateHz;
    taps_ = GetTaps(rateHz);
    fft_.Prepare(taps_);
    powers_.assign(taps_ / 2 + 1, 1.0);
    magnitudes_.assign(taps_ / 2 + 1, {});
    response_.assign(taps_, 0.0f);
    centered_.assign(kPartCount * GetPartFrames(rateHz), 0.0f);
    const std::size_t half = centered_.size() / 2;
    window_.assign(half, 0.0f);
    for (std::size_t n = 0; n < half; ++n) {
        const double edge = static_cast<double>(n) / static_cast<double>(half);
        window_[n] = static_cast<float>(BesselI0(kKaiserBeta * std::sqrt(1.0 - edge * edge)) /
                                        BesselI0(kKaiserBeta));
    }
    step_ = kStepCount;
}

void LinearPhaseDesign::Start(const ParametricCurve::Bands& bands,
                              double gain,
                              FirSpectra& spectra) {
    spectra_ = &spectra;
    gain_ = gain;
    step_ = 0;
    sectionCount_ = 0;
    for (const ParametricBand& band : bands) {
        const AnalogBand analog = MakeAnalog(band, rateHz_);
        for (std::size_t s = 0; s < analog.count; ++s) {
            const auto& [b, a, frequencyHz] = analog.sections[s];
            const double points = frequencyHz / rateHz_ * static_cast<double>(taps_);
            const double u = 1.0 / (points * points);
            sections_[sectionCount_++] = {
                b[0] * b[0], (b[1] * b[1] - 2.0 * b[0] * b[2]) * u, b[2] * b[2] * u * u,
                a[0] * a[0], (a[1] * a[1] - 2.0 * a[0] * a[2]) * u, a[2] * a[2] * u * u};
        }
    }
}

void LinearPhaseDesign::Step() {
    if (IsDone()) return;
    const std::size_t points = magnitudes_.size();
    const auto step = static_cast<std::size_t>(step_);
    if (step_ < kMagnitudeSteps) {
        MakeMagnitudes(points * step / kMagnitudeSteps, points * (step + 1) / kMagnitudeSteps);
    } else if (step_ == kTransformStep) {
        fft_.Inverse(magnitudes_.data(), response_.data());
    } else if (step_ == kWindowStep) {
        Window();
    } else {
        const std::size_t first = (step - kFirstPartStep) * kPartsPerStep;
        for (std::size_t part = first; part < first + kPartsPerStep; ++part)
            spectra_->SetPart(part, centered_.data() + part * spectra_->GetPartFrames());
    }
    ++step_;
}

void LinearPhaseDesign::MakeMagnitudes(std::size_t first, std::size_t last) {
    std::fill(powers_.data() + first, powers_.data() + last, 1.0);
    for (std::size_t s = 0; s < sectionCount_; ++s) {
        const PowerRatio& r = sections_[s];
        for (std::size_t k = first; k < last; ++k) {
            const double square =
                static_cast<double>(static_cast<int>(k)) * static_cast<double>(static_cast<int>(k));
            powers_[k] *=
                (r.n0 + square * (r.n1 + square * r.n2)) / (r.d0 + square * (r.d1 + square * r.d2));
        }
    }
    // Rounding can leave a notch a little below 0.
    for (std::size_t k = first; k < last; ++k)
        magnitudes_[k] = static_cast<float>(gain_ * std::sqrt(std::max(0.0, powers_[k])));
}

void LinearPhaseDesign::Window() {
    const std::size_t center = centered_.size() / 2;
    centered_[center] = response_[0];
    for (std::size_t n = 1; n < center; ++n)
        centered_[center - n] = centered_[center + n] = response_[n] * window_[n];
}

}  // namespace dsp
