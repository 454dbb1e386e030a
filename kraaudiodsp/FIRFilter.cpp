#include "kraaudiodsp/FIRFilter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kraaudiodsp/Bessel.h"
#include "kraaudiodsp/vector/FirOps.h"

namespace dsp {
namespace {

constexpr double kBeta = 5.0;  // of the Kaiser window

double Sinc(double x) {
    const double angle = std::numbers::pi * x;
    return std::fabs(angle) < 1e-9 ? 1.0 : std::sin(angle) / angle;
}

}  // namespace

void FIRFilter::Prepare(int maxTaps) {
    const auto maxHalf = static_cast<std::size_t>(std::max(maxTaps, 1)) / 2;
    coeffs_.assign(maxHalf + 1, 0.0f);
    coeffs_[0] = 1.0f;
    half_ = 0;
    history_.Prepare(2 * maxHalf, kPieceFrames);
    isEnabled_ = false;
}

void FIRFilter::GenerateFIRCoeffs(double low, double high, int taps) {
    low = std::clamp(low, 0.0, 0.5);
    high = std::clamp(high, 0.0, 0.5);
    if (low > high) std::swap(low, high);
    half_ = std::min(static_cast<std::size_t>(std::max(taps, 1)) / 2, coeffs_.size() - 1);
    isEnabled_ = low > 0.0 || high < 0.5;
    if (!isEnabled_) {
        std::fill_n(coeffs_.begin(), half_, 0.0f);
        coeffs_[half_] = 1.0f;
        return;
    }

    // The gain is 1 where the response is summed against this frequency.
    const double unityAt = low <= 0.0 ? 0.0 : high >= 0.5 ? 0.5 : std::sqrt(low * high);
    const double windowScale = 1.0 / BesselI0(kBeta);
    const auto response = [&](std::size_t n) {
        const auto at = static_cast<double>(n);
        const double place = at / (static_cast<double>(half_) + 1.0);
        const double window = windowScale * BesselI0(kBeta * std::sqrt(1.0 - place * place));
        return window * std::cos(std::numbers::pi * (high + low) * at) * Sinc((high - low) * at);
    };
    double gain = 0.0;
    for (std::size_t n = 0; n <= half_; ++n) {
        const double value = response(n);
        const double turn = 2.0 * std::numbers::pi * unityAt * static_cast<double>(n);
        gain += (n == 0 ? 1.0 : 2.0 * std::cos(turn)) * value;
        coeffs_[half_ - n] = static_cast<float>(value);
    }
    for (std::size_t n = 0; n <= half_; ++n) coeffs_[n] = static_cast<float>(coeffs_[n] / gain);
}

void FIRFilter::CopyCoeffs(const FIRFilter& other) {
    half_ = std::min(other.half_, coeffs_.size() - 1);
    std::copy_n(other.coeffs_.begin() + static_cast<std::ptrdiff_t>(other.half_ - half_), half_ + 1,
                coeffs_.begin());
    isEnabled_ = other.isEnabled_;
}

void FIRFilter::Process(float* samples, int frames) {
    for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, kPieceFrames);
        const auto size = static_cast<std::size_t>(count);
        float* piece = samples + done;
        const float* newest = std::copy_n(piece, count, history_.Append(size)) - count;
        if (isEnabled_)
            vector::SymmetricFir(piece, newest - 2 * half_, coeffs_.data(), half_, size);
        else
            std::copy_n(newest - half_, count, piece);
        done += count;
    }
}

void FIRFilter::Reset() { history_.Reset(); }

}  // namespace dsp
