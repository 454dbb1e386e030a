#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>

namespace dsp {

/// A sine whose rate may change from step to step without a jump.
class Lfo {
public:
    /// The next step is sin(2 pi cycles). [audio]
    void SetPhase(double cycles) { phase_ = cycles; }
    /// The sine now, in [-1, 1]; then goes on by `cyclesPerStep`. [audio]
    double Next(double cyclesPerStep) {
        const double value = std::sin(2.0 * std::numbers::pi * phase_);
        Skip(cyclesPerStep);
        return value;
    }
    /// Goes on without the sine. [audio]
    void Skip(double cyclesPerStep) {
        phase_ += cyclesPerStep;
        phase_ -= std::floor(phase_);
    }

private:
    double phase_ = 0.0;  // cycles
};

/// A smooth random curve from 0.1 to 1 Hz: the mean of eight sines, whose frequencies lie evenly on a
/// logarithmic scale with a random offset each, and whose phases are random. The same for the same seed;
/// within [-1, 1], 0.25 rms.
class Drift {
public:
    explicit Drift(std::uint64_t seed);
    /// The curve at a time. [any]
    float At(double seconds) const;

private:
    static constexpr std::size_t kSineCount = 8;
    std::array<double, kSineCount> frequenciesHz_{};
    std::array<double, kSineCount> phases_{};  // cycles
};

}  // namespace dsp
