#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "kraaudiodsp/FilterDesign.h"
#include "kraaudiodsp/vector/BiquadOps.h"

namespace dsp {

/// Second-order filters of one channel in a row, in double, whose coefficients ramp to new ones frame by
/// frame. Each filter has its place; one that changes nothing (Biquad{}) is left out of the work.
///
/// A ramp moves all five coefficients on straight lines, on which the filter is stable from end to end
/// when it is at both ends. Output depends neither on block lengths nor on the machine. Never
/// allocates. Transposed form II keeps states at the size of the signal, so a filter of 10 Hz can
/// move as freely as one of 10 kHz.
class BiquadCascade {
public:
    static constexpr std::size_t kMaxSections = 68;
    /// Most frames for one call of Process.
    static constexpr int kMaxFrames = 1024;

    /// Filters in their places, at most kMaxSections and stable; places beyond change nothing. In force
    /// after `rampFrames`, at once with 0. A ramp on its way goes on from where it is. [audio]
    void SetSections(std::span<const Biquad> sections, int rampFrames);
    /// Silence before; coefficients at their targets. [audio]
    void Reset();
    /// `out` may be `in`. [audio]
    void Process(const float* in, float* out, int frames);

private:
    void FilterRamping(std::size_t frames);
    Biquad Present(std::size_t place) const;
    void Pack();
    void Unpack();

    std::array<Biquad, kMaxSections> start_;  // where the ramp began
    std::array<Biquad, kMaxSections> target_;
    std::array<Biquad, kMaxSections> slope_;  // per frame
    int rampFrames_ = 0;
    int rampPosition_ = 0;  // frames of the ramp that are done
    int GetRampLeft() const { return rampFrames_ - rampPosition_; }

    struct State {
        double s1 = 0.0;
        double s2 = 0.0;
    };
    std::array<State, kMaxSections> states_;  // in force during a ramp
    // In force without a ramp: the filters that change something, in the order of their places.
    std::array<vector::BiquadGroup, kMaxSections / vector::kBiquadLanes> groups_;
    std::array<std::size_t, kMaxSections> places_{};
    std::size_t activeCount_ = 0;
    std::array<double, kMaxFrames> work_{};
};

}  // namespace dsp
