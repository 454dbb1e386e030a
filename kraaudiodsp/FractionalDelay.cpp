#include "kraaudiodsp/FractionalDelay.h"

#include <cmath>
#include <memory>
#include <numbers>

#include "kraaudiodsp/Bessel.h"

namespace dsp {
namespace {

using vector::kSincTaps;
using vector::SincRow;

constexpr double kKaiserBeta = 9.0;
constexpr std::size_t kPhases = std::size_t{1} << vector::kSincPhaseBits;

/// Tap k, the oldest first, of a delay of 16 frames and a fraction.
double Tap(std::size_t k, double fraction) {
    constexpr double kHalf = kSincTaps / 2.0;
    const double distance = kHalf - static_cast<double>(k) - fraction;
    const double edge = distance / kHalf;
    if (std::fabs(edge) >= 1.0) return 0.0;
    const double window =
        BesselI0(kKaiserBeta * std::sqrt(1.0 - edge * edge)) / BesselI0(kKaiserBeta);
    const double angle = std::numbers::pi * distance;
    return distance == 0.0 ? 1.0 : window * std::sin(angle) / angle;
}

using Table = std::array<SincRow, kPhases>;

std::unique_ptr<const Table> MakeTable() {
    auto table = std::make_unique<Table>();
    for (std::size_t p = 0; p < kPhases; ++p)
        for (std::size_t k = 0; k < kSincTaps; ++k) {
            const double here = Tap(k, static_cast<double>(p) / kPhases);
            const double next = Tap(k, static_cast<double>(p + 1) / kPhases);
            (*table)[p].taps[k] = static_cast<float>(here);
            (*table)[p].growth[k] = static_cast<float>(next - here);
        }
    return table;
}

const Table& GetTable() {
    static const std::unique_ptr<const Table> table = MakeTable();
    return *table;
}

}  // namespace

void FractionalDelay::Prepare(std::size_t channels, int maxFrames, int maxRun) {
    GetTable();
    lines_.resize(channels);
    places_.assign(channels, nullptr);
    for (SlidingBuffer& line : lines_)
        line.Prepare(static_cast<std::size_t>(maxFrames) + kSincTaps + 1,
                     static_cast<std::size_t>(maxRun));
}

void FractionalDelay::Reset() {
    for (SlidingBuffer& line : lines_) line.Reset();
}

void FractionalDelay::Append(int frames) {
    for (std::size_t c = 0; c < lines_.size(); ++c)
        places_[c] = lines_[c].Append(static_cast<std::size_t>(frames));
}

void FractionalDelay::Read(std::size_t firstChannel,
                           std::size_t channels,
                           float* const* out,
                           vector::MovingTap* taps,
                           std::size_t tapCount,
                           int frames) const {
    vector::ReadMovingTaps(out, places_.data() + firstChannel, channels, GetTable().data(), taps,
                           tapCount, static_cast<std::size_t>(frames));
}

void FractionalDelay::Follow(vector::MovingTap& tap, const Cubic& curve, int stepsPerUnit) {
    const double h = 1.0 / stepsPerUnit;
    const double linear = curve.c[1] * h;
    const double square = curve.c[2] * h * h;
    const double cube = curve.c[3] * h * h * h;
    constexpr auto kUnits =
        static_cast<double>(std::int64_t{1} << vector::kDelayFractionBits);  // a frame
    const auto fixed = [](double frames) { return static_cast<std::int64_t>(frames * kUnits); };
    tap.delay = fixed(curve.c[0]);
    tap.first = fixed(linear + square + cube);
    tap.second = fixed(2.0 * square + 6.0 * cube);
    tap.third = fixed(6.0 * cube);
}

}  // namespace dsp
