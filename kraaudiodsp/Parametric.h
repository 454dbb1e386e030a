#pragma once

#include <array>
#include <cstddef>

#include "kraaudiodsp/BiquadCascade.h"

namespace dsp {

enum class BandType { kBell, kLowShelf, kHighShelf, kHighPass, kLowPass, kNotch, kBandPass, kTilt };

/// One band of a parametric equalizer. Gain counts for bells, shelves and tilts; Q for all but high- and
/// low-passes, which are Butterworth filters of the order given. A tilt lifts what is above its
/// frequency by its gain and lowers what is below by as much.
struct ParametricBand {
    bool on = false;
    BandType type = BandType::kBell;
    double frequencyHz = 1000.0;
    double gainDb = 0.0;
    double q = 1.0;
    int order = 2;  // 1 to 8, 6 dB an octave each
};

/// What a parametric equalizer does to every channel: bands and a gain as filters in a row.
class ParametricCurve {
public:
    static constexpr std::size_t kBandCount = 8;
    static constexpr std::size_t kSectionsPerBand = 8;
    static constexpr std::size_t kSectionCount = kBandCount * kSectionsPerBand + 1;
    using Bands = std::array<ParametricBand, kBandCount>;
    using Sections = std::array<Biquad, kSectionCount>;

    ParametricCurve() = default;
    /// Bands that are off or flat change nothing. Frequencies above 0.49 of the rate count as that.
    /// Never allocates; up to some 20 us. [any]
    ParametricCurve(const Bands& bands, double gain, double rateHz);

    const Sections& GetSections() const { return sections_; }
    /// Frames until a response to anything has decayed by 90 dB, estimated from the slowest pole. [any]
    int GetTail() const;

private:
    Sections sections_;
};

/// The analog magnitude that the bands stand for, linear. [any]
double GetAnalogMagnitude(const ParametricBand& band, double frequencyHz);

/// How much louder the bands make pink noise, in dB, K-weighted as in ITU-R BS.1770-4: from their analog
/// magnitudes at six points an octave from 20 Hz to 20 kHz. [any]
double GetLoudnessChangeDb(const ParametricCurve::Bands& bands);

/// One channel of a parametric equalizer of minimum phase.
class Parametric {
public:
    /// In force after a ramp of 20 ms, or at once. [audio]
    void SetCurve(const ParametricCurve& curve, bool atOnce) {
        cascade_.SetSections(curve.GetSections(), atOnce ? 0 : rampFrames_);
    }
    void Process(const float* in, float* out, int frames);  // [audio]; `out` may be `in`
    void Reset() { cascade_.Reset(); }                      // [audio]
    void Suspend() {}                                       // [audio]
    void SetSampleRate(int rateHz);                         // [host]
    int GetLatency() const { return 0; }

private:
    int rampFrames_ = 1;
    BiquadCascade cascade_;
};

}  // namespace dsp
