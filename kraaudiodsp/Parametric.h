#pragma once

#include <array>
#include <cstddef>

#include "kraaudiodsp/BiquadCascade.h"
#include "kraaudiodsp/PartitionedFir.h"
#include "kraaudiodsp/SlidingBuffer.h"

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
    bool operator==(const ParametricBand&) const = default;
};

/// The analog sections of one band; the longest is a pass filter of 8th order.
struct AnalogBand {
    std::array<AnalogSection, 4> sections;
    std::size_t count = 0;
};
/// None when the band is off or flat. A frequency above 0.49 of the rate counts as that. [any]
AnalogBand MakeAnalog(const ParametricBand& band, double rateHz);

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

/// The analog magnitude that a band stands for at a rate, linear. [any]
double GetAnalogMagnitude(const ParametricBand& band, double frequencyHz, double rateHz);

/// How much louder the bands make pink noise, in dB, K-weighted as in ITU-R BS.1770-4: from their analog
/// magnitudes at six points an octave from 20 Hz to 20 kHz. [any]
double GetLoudnessChangeDb(const ParametricCurve::Bands& bands);

/// One channel of a parametric equalizer, of minimum or of linear phase.
class Parametric {
public:
    /// What is heard: the curve, or with linear phase a response of LinearPhaseDesign; without one, the
    /// input times a gain after the same time.
    struct Path {
        bool isLinear = false;
        const FirSpectra* response = nullptr;  // outlives its use
        float gain = 1.0f;
    };

    /// The curve of minimum phase, in force after a ramp of 20 ms, or at once. [audio]
    void SetCurve(const ParametricCurve& curve, bool atOnce) {
        cascade_.SetSections(curve.GetSections(), atOnce ? 0 : rampFrames_);
    }
    /// Only after Reset: this is heard, at once. [audio]
    void Start(const Path& path);
    /// Begins to feed what `path` needs, from silence; GetSettlingFrames() later it can be heard as if
    /// it always had been fed. Feeding what is heard already changes nothing. [audio]
    void Feed(const Path& path);
    /// From now on fades to `path` over GetFadeFrames(): both in phase in straight lines, else at equal
    /// power. [audio]
    void FadeTo(const Path& path);

    void Process(const float* in, float* out, int frames);  // [audio]; `out` may be `in`
    void Reset();                                           // [audio]
    void Suspend() {}                                       // [audio]
    void SetSampleRate(int rateHz);                         // [host]
    int GetLatency() const { return 0; }                    // of minimum phase

    static int GetFadeFrames(double rateHz);      // [any]
    static int GetSettlingFrames(double rateHz);  // [any]

private:
    static constexpr std::size_t kPieceFrames = BiquadCascade::kMaxFrames;
    using Piece = std::array<float, kPieceFrames>;

    void ProcessPiece(const float* in, float* out, int frames);
    void RunLinear(const float* in, int frames);
    void Mix(float* out, int frames);
    void EndFade();

    int rampFrames_ = 1;
    int fadeFrames_ = 1;
    int fadePosition_ = 0;
    bool fades_ = false;
    bool minimumRuns_ = true;
    bool linearRuns_ = false;
    std::array<Path, 2> paths_;  // by place; both places hold paths while one fades into the other
    std::size_t heard_ = 0;      // place of the path that is heard, or fades out
    BiquadCascade cascade_;
    PartitionedFir fir_;
    SlidingBuffer past_;  // for a linear phase without a response
    std::size_t latencyFrames_ = 0;
    Piece minimum_{};
    std::array<Piece, 2> linear_{};  // by place
};

}  // namespace dsp
