#pragma once

#include <cmath>

namespace dsp {

/// Linear factor of a level in dB: 10^(dB / 20). [any]
inline float DbToGain(float db) { return std::pow(10.0f, db / 20.0f); }
/// Level in dB of a linear factor; -infinity for 0. [any]
inline float GainToDb(float gain) { return 20.0f * std::log10(gain); }
/// Whole frames of a time, to nearest. [any]
inline int MsToFrames(double ms, double rateHz) {
    return static_cast<int>(ms / 1000.0 * rateHz + 0.5);
}
/// Whole frames of a time, what is left over dropped. [any]
inline int MsToWholeFrames(double ms, double rateHz) {
    return static_cast<int>(ms / 1000.0 * rateHz);
}

}  // namespace dsp
