#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/vector/OctaveBands.h"

namespace dsp {

/// Eight octave bands from a cascade of moving averages, with a gain for each.
///
///     a1 = mean of the last 2 inputs x,  a2 = mean of the last 4 a1,  ...  a7 = mean of the last 128 a6
///     y = overall ((x - a1) g8 + (a1 - a2) g7 + ... + (a6 - a7) g2 + a7 g1)
///
/// Band 1 is the lowest, what seven averages leave; band 8 the octave below half the rate. The bands
/// add up to the input, so equal gains are a plain gain, without delay. Worked out as
///
///     y = overall (g8 x + (g7 - g8) a1 + (g6 - g7) a2 + ... + (g1 - g2) a7)
///
/// Sums are kept in double: an hour of full-scale noise leaves less than -200 dBFS behind, and no
/// result depends on how the audio is cut into blocks. Up to 247 frames ring after the input. The
/// moving-average form of a comb-and-integrator filter: E. B. Hogenauer, An Economical Class of Digital
/// Filters for Decimation and Interpolation, IEEE ASSP-29, 1981.
class OctaveEqualizer {
public:
    static constexpr std::size_t kBandCount = 8;
    static constexpr int kMemoryFrames = 247;
    /// Linear gain of each band, the lowest first.
    using BandGains = std::array<float, kBandCount>;

    /// Sizes the state for that many channels, all silent. [host]
    void Prepare(std::size_t channels);
    /// Forgets the past; gains stay. [audio]
    void Reset();
    /// In force from the next frame on, for every channel. [audio]
    void SetGains(const BandGains& bands, float overall = 1.0f);
    /// False while every band is within 0.001 dB and the overall gain within 0.0001 of 1: Process then
    /// changes nothing, neither the samples nor the past that is kept. [audio]
    bool IsEnabled() const { return enabled_; }
    /// Filters in place; `io` is channels x frames, values at most about 1. [audio]
    void Process(float* const* io, int frames);

    /// Transfer function for these gains at a frequency given as a fraction of the rate. [any]
    static std::complex<double> GetResponse(const BandGains& bands, double cyclesPerFrame);
    /// Largest magnitude of the transfer function, within 2 %. [any]
    static double GetPeakGain(const BandGains& bands);

private:
    static constexpr std::size_t kMaxLanes = 4;
    /// 2 or 4 channels that are filtered side by side.
    struct Group {
        std::size_t firstChannel;
        std::size_t channelCount;  // at most `lanes`; lanes without a channel are fed silence
        std::size_t lanes;
        std::vector<double> state;
    };
    void FilterGroup(Group& group, float* const* io, std::size_t done, std::size_t frames);
    static void KeepPast(Group& group);

    std::vector<Group> groups_;
    std::array<double, kBandCount> coefficients_{1.0};
    std::size_t position_ = 0;  // frames of the states' blocks that are used
    bool enabled_ = false;
    std::array<float, kMaxLanes * vector::kOctaveBlockFrames> side_{};  // frames x lanes
    std::array<float, vector::kOctaveBlockFrames> spare_{};  // silence, of lanes without a channel
};

}  // namespace dsp
