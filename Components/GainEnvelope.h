#pragma once

#include "Components/EnvelopeBase.h"

namespace zuc::components {

inline constexpr char16_t kGainEnvelopeComponentID[] = u"zuc.GainEnvelope";

/// Draws a gain in decibels over the audio.
///
///     gainDb = (2 v - 1) Range + Output Trim      v = 0: silence
///
/// with v in [0, 1] from the curve (type 0, 0.5 without keyframes). Straight lines of the curve are
/// straight in dB. The end of a hold fades over Edge Smoothing; see EnvelopeBase for all other changes.
/// The gain is within 0.01 dB of the curve's at every frame.
class ZUC_API GainEnvelope final : public EnvelopeBase {
public:
    enum Parameter { kRangeDb, kSmoothCurve, kEdgeSmoothingMs, kOutputTrimDb, kParameterCount };

    GainEnvelope();
    ~GainEnvelope() override;

    /// Smooth Curve switches the curve's splines, which takes the curve's lock. [host]
    void SetParameter(int index, float normalized) override;
    std::string_view GetLevelUnit() const override { return "dB"; }  // [any]
    float GetLevel(float curveValue) const override;                 // [host] without the trim
    float ToCurveValue(float level) const override;                  // [host]

protected:
    void TakeSettings() override;                                                         // [audio]
    bool MakeGains(std::int64_t first, bool isLevel, float* gains, int frames) override;  // [audio]
    int GetEdgeFrames() const override { return settings_.edgeFrames; }

private:
    struct Curves;  // of the presets
    /// What the audio thread works from; a pure function of the parameter values.
    struct Settings {
        float slope = 0.0f;   // powers of two for a curve value of 1
        float offset = 0.0f;  // powers of two
        int edgeFrames = 0;
    };
    Settings DeriveSettings() const;

    Settings settings_;
};

}  // namespace zuc::components
