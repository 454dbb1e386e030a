#include "kraaudiodsp/OctaveEqualizer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kraaudiodsp/Units.h"

namespace dsp {
namespace {

using vector::kOctaveBlockFrames;
using vector::kOctaveStageCount;

constexpr float kFlatDb = 0.001f;
constexpr float kFlatGain = 0.0001f;

enum class Direction { kSideBySide, kApart };

/// Between one array a channel and all channels frame by frame.
template <std::size_t kLanes, std::size_t kChannels>
void Transpose(float* side,
               const std::array<float*, kChannels>& channels,
               std::size_t frames,
               Direction direction) {
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            if (direction == Direction::kSideBySide)
                side[i * kLanes + lane] = channels[lane][i];
            else
                channels[lane][i] = side[i * kLanes + lane];
        }
}

/// Factor of x, then of each average.
std::array<double, OctaveEqualizer::kBandCount> Weights(const OctaveEqualizer::BandGains& bands) {
    std::array<double, OctaveEqualizer::kBandCount> weights{bands.back()};
    for (std::size_t k = 1; k < weights.size(); ++k) {
        const std::size_t band = bands.size() - 1 - k;
        weights[k] = static_cast<double>(bands[band]) - static_cast<double>(bands[band + 1]);
    }
    return weights;
}

}  // namespace

void OctaveEqualizer::Prepare(std::size_t channels) {
    groups_.clear();
    for (std::size_t first = 0; first < channels;) {
        const std::size_t left = channels - first;
        const std::size_t lanes = left > 2 ? kMaxLanes : 2;
        const std::size_t count = std::min(left, lanes);
        groups_.push_back(
            {first, count, lanes, std::vector<double>(vector::kOctaveStateRows * lanes)});
        first += count;
    }
    position_ = 0;
}

void OctaveEqualizer::Reset() {
    for (Group& group : groups_) std::fill(group.state.begin(), group.state.end(), 0.0);
    position_ = 0;
}

void OctaveEqualizer::SetGains(const BandGains& bands, float overall) {
    enabled_ = std::fabs(overall - 1.0f) > kFlatGain ||
               std::any_of(bands.begin(), bands.end(),
                           [](float gain) { return std::fabs(GainToDb(gain)) > kFlatDb; });
    coefficients_ = Weights(bands);
    // The means are kept as sums: stage k lacks the factors 1/2, 1/4, ... up to its own.
    double scale = overall;
    for (std::size_t k = 0; k < coefficients_.size(); ++k) {
        if (k > 0) scale /= static_cast<double>(vector::GetOctaveStageFrames(k - 1));
        coefficients_[k] *= scale;
    }
}

void OctaveEqualizer::Process(float* const* io, int frames) {
    if (!enabled_) return;
    const auto end = static_cast<std::size_t>(frames);
    for (std::size_t done = 0; done < end;) {
        const std::size_t count = std::min(end - done, kOctaveBlockFrames - position_);
        for (Group& group : groups_) FilterGroup(group, io, done, count);
        done += count;
        position_ += count;
        if (position_ < kOctaveBlockFrames) continue;
        for (Group& group : groups_) KeepPast(group);
        position_ = 0;
    }
}

void OctaveEqualizer::FilterGroup(Group& group,
                                  float* const* io,
                                  std::size_t done,
                                  std::size_t frames) {
    std::array<float*, kMaxLanes> channels{};
    for (std::size_t lane = 0; lane < group.lanes; ++lane)
        channels[lane] =
            lane < group.channelCount ? io[group.firstChannel + lane] + done : spare_.data();
    const auto transpose =
        group.lanes == 2 ? Transpose<2, kMaxLanes> : Transpose<kMaxLanes, kMaxLanes>;
    transpose(side_.data(), channels, frames, Direction::kSideBySide);
    vector::FilterOctaveBands(side_.data(), group.state.data(), coefficients_, group.lanes,
                              position_, frames);
    transpose(side_.data(), channels, frames, Direction::kApart);
}

/// Moves what each stage has yet to subtract in front of its block.
void OctaveEqualizer::KeepPast(Group& group) {
    for (std::size_t stage = 0; stage < kOctaveStageCount; ++stage) {
        const std::size_t count = vector::GetOctaveStageFrames(stage) * group.lanes;
        double* block = group.state.data() + vector::GetOctaveStageRow(stage) * group.lanes;
        const double* end = block + kOctaveBlockFrames * group.lanes;
        std::copy(end - count, end, block - count);
    }
}

std::complex<double> OctaveEqualizer::GetResponse(const BandGains& bands, double cyclesPerFrame) {
    const auto weights = Weights(bands);
    std::complex<double> response = weights[0];
    // The mean of 2^k values is k times the mean of two, 1, 2, 4, ... frames apart.
    auto turn = std::polar(1.0, -2.0 * std::numbers::pi * cyclesPerFrame);
    std::complex<double> mean = 1.0;
    std::complex<double> cascade = 1.0;
    for (std::size_t k = 1; k < weights.size(); ++k) {
        mean *= 0.5 * (1.0 + turn);
        turn *= turn;
        cascade *= mean;
        response += weights[k] * cascade;
    }
    return response;
}

double OctaveEqualizer::GetPeakGain(const BandGains& bands) {
    constexpr int kPoints = 2048;
    double peak = 0.0;
    for (int i = 0; i <= kPoints; ++i)
        peak = std::max(peak, std::abs(GetResponse(bands, 0.5 * i / kPoints)));
    return peak;
}

}  // namespace dsp
