#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Components/MultithreadedComponentBase.h"
#include "Components/TableDriven.h"

namespace dsp {
class Parametric;
}

namespace zuc::components {

inline constexpr char16_t kParametricEqualizerComponentID[] = u"zuc.ParametricEqualizer";

class PhaseTransition;

extern template class MultithreadedComponentBase<dsp::Parametric>;

/// Eight free bands of minimum phase, each a bell, shelf, high-pass, low-pass, notch, band-pass or tilt,
/// that sound as drawn up to the top octave: the magnitude follows the analog filter's to 0.45 of the
/// rate (see kraaudiodsp/FilterDesign.h) instead of being squeezed below half the rate.
///
/// Gain counts for bells, shelves and tilts, a tilt lifting the highs by it and lowering the lows by as
/// much; Q for all types but the passes, which are Butterworth filters with the slope. Proportional Q
/// narrows bells with their gain: Q (1 + |gain| / 12 dB). A frequency above 0.49 of the rate counts
/// as that. Auto Gain takes back the change of loudness that the bands make on pink noise (K-weighted,
/// ITU-R BS.1770), at most 12 dB either way; it follows from the settings alone, not from the audio.
///
/// With minimum phase, changes ramp the coefficients over 20 ms; latency 0, the tail follows from the
/// settings. With linear phase a finite impulse response of 8192 taps at 48 kHz (a power of two in proportion
/// to the rate) has the analog magnitude and delays all frequencies alike; details narrower than 17 Hz come
/// out smoothed. Latency half the taps, tail as much. A change is heard after 32 ms and fades in
/// over 50 ms. Changing Phase changes the latency; what comes in runs unheard for as long as the
/// taps, then both fade over 50 ms at equal power. Changes that come meanwhile wait.
///
/// With every band off or flat and a gain of 0 dB the output is the input bit for bit, with linear phase
/// later by the latency. All channels get the same filters. 1 to 32 channels; `in[c]` and `out[c]` may be the same buffer. Blocks of 2048 frames or
/// more are spread over the processors, see MultithreadedComponentBase.
class ZUC_API ParametricEqualizer final
    : public TableDriven<MultithreadedComponentBase<dsp::Parametric>> {
public:
    static constexpr int kBandCount = 8;
    /// Of each band, from At(band, kOn).
    enum BandParameter {
        kOn,
        kType,  // in the order bell, low shelf, high shelf, high-pass, low-pass, notch, band-pass, tilt
        kFrequency,  // Hz, 10 to 24000
        kGain,       // dB, -24 to 24
        kQ,          // 0.1 to 40
        kSlope,      // 6, 12, 18, 24, 36 or 48 dB/oct
        kBandParameterCount
    };
    enum Parameter {
        kOutputGain,  // dB, -24 to 24
        kPhase,       // 0 minimum, 1 linear
        kBellLaw,     // 0 constant Q, 1 proportional Q
        kAutoGain,
        kFirstBand,
        kParameterCount = kFirstBand + kBandCount * kBandParameterCount
    };
    static constexpr int At(int band, BandParameter parameter) {
        return kFirstBand + band * kBandParameterCount + parameter;
    }

    ParametricEqualizer();
    ~ParametricEqualizer() override;

    void SetSampleRate(float rateHz) override;  // [host]
    int GetTail() const override;               // [host]
    int GetInitialDelay() const override;       // [host]; with the present parameters
    /// Of GetCurveData; not 0, which hosts draw as a curve over time or level.
    static constexpr int kMagnitudeCurve = 1;
    static constexpr double kLowestCurveHz = 20.0;
    /// Curve kMagnitudeCurve: the analog magnitude that the settings mean, in dB, in even steps of log
    /// frequency from kLowestCurveHz to half the rate. No other curve exists. [host]
    std::size_t GetCurveData(int curve, std::size_t points, std::vector<float>& samples) override;
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Resume() override;                                                             // [audio]

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    struct Settings;
    Settings DeriveSettings() const;
    void SetupParameterInfos();
    double RateHz() const;

    std::unique_ptr<Settings> wanted_;  // the newest that the audio thread knows
    std::unique_ptr<PhaseTransition> transition_;
    bool isFirstBlock_ = true;  // its settings are not ramped in
};

}  // namespace zuc::components
