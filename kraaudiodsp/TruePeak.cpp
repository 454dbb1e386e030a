#include "kraaudiodsp/TruePeak.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kraaudiodsp/Bessel.h"

namespace dsp {
namespace {

using vector::kTruePeakReach;
using vector::TruePeakTaps;

constexpr double kKaiserBeta = 3.5;
/// Frames that are interpolated or left out together.
constexpr std::size_t kTileFrames = 64;
constexpr std::size_t kHistoryFrames = 2 * kTruePeakReach + 1;

/// The windowed sinc at a distance in frames, never 0.
double Response(double distance) {
    const double edge = distance / static_cast<double>(kTruePeakReach);
    const double window =
        BesselI0(kKaiserBeta * std::sqrt(1.0 - edge * edge)) / BesselI0(kKaiserBeta);
    const double angle = std::numbers::pi * distance;
    return window * std::sin(angle) / angle;
}

struct Interpolator {
    TruePeakTaps taps{};
    float largestRatio = 1.0f;
};

Interpolator MakeInterpolator() {
    double middleSum = 0.0;
    double quarterSum = 0.0;
    double middleSize = 0.0;
    double quarterSize = 0.0;
    for (std::size_t k = 0; k < kTruePeakReach; ++k) {
        const auto at = static_cast<double>(k);
        middleSum += 2.0 * Response(at + 0.5);
        quarterSum += Response(at + 0.25) + Response(at + 0.75);
        middleSize += 2.0 * std::fabs(Response(at + 0.5));
        quarterSize += std::fabs(Response(at + 0.25)) + std::fabs(Response(at + 0.75));
    }
    Interpolator made;
    for (std::size_t k = 0; k < kTruePeakReach; ++k) {
        const auto at = static_cast<double>(k);
        const double near = Response(at + 0.25) / quarterSum;
        const double far = Response(at + 0.75) / quarterSum;
        made.taps.middle[k] = static_cast<float>(Response(at + 0.5) / middleSum);
        made.taps.even[k] = static_cast<float>((near + far) / 2.0);
        made.taps.odd[k] = static_cast<float>((near - far) / 2.0);
    }
    // With magnitudes l and r from 0 to p beside it, the parabola (l - r)^2 / (8 (2p - l - r)) adds at most p / 8.
    made.largestRatio =
        static_cast<float>(1.126 * std::max(middleSize / middleSum, quarterSize / quarterSum));
    return made;
}

const Interpolator kInterpolator = MakeInterpolator();

}  // namespace

float TruePeak::GetLargestRatio() { return kInterpolator.largestRatio; }

void TruePeak::Prepare(std::size_t maxPieceFrames) {
    history_.Prepare(kHistoryFrames, maxPieceFrames);
    Reset();
}

void TruePeak::Reset() { history_.Reset(); }

void TruePeak::Process(const float* in, float* peak, std::size_t frames, float floor) {
    const float* newest = std::copy_n(in, frames, history_.Append(frames)) - frames;
    const float quiet = floor / kInterpolator.largestRatio;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(frames - done, kTileFrames);
        const float* centre = newest + done - kTruePeakReach;
        const float loudest = vector::PeakOf(centre - kTruePeakReach, count + 2 * kTruePeakReach);
        if (loudest > quiet)
            vector::TruePeaks(peak + done, centre, kInterpolator.taps, count);
        else
            std::transform(centre, centre + count, peak + done,
                           [](float x) { return std::fabs(x); });
        done += count;
    }
}

}  // namespace dsp
