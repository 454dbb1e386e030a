#pragma once

#include "Components/EnvelopeBase.h"

namespace zuc::components {

inline constexpr char16_t kVolumeEnvelopeComponentID[] = u"zuc.VolumeEnvelope";

/// Draws the way of a volume fader over the audio.
///
///     gainDb = FaderTranslator(Maximum).GetDecibelValue(v)
///
/// with the fader's position v in [0, 1] from the curve (type 0; without keyframes the position of
/// 0 dB): silence at 0, the maximum at 1. The end of a hold fades over Edge Smoothing; see EnvelopeBase
/// for all other changes. Pan/Volume Link is for editors that show both curves and changes no sample.
class ZUC_API VolumeEnvelope final : public EnvelopeBase {
public:
    enum Parameter { kSmoothCurve, kEdgeSmoothingMs, kPanVolumeLink, kMaximumDb, kParameterCount };

    VolumeEnvelope();
    ~VolumeEnvelope() override;

    /// Smooth Curve and Maximum take the curve's lock: they switch its splines and move its default.
    /// Keyframes keep their fader positions. [host]
    void SetParameter(int index, float normalized) override;
    std::string_view GetLevelUnit() const override { return "dB"; }  // [any]
    float GetLevel(float curveValue) const override;                 // [host]
    float ToCurveValue(float level) const override;                  // [host]

protected:
    void TakeSettings() override;                                                         // [audio]
    bool MakeGains(std::int64_t first, bool isLevel, float* gains, int frames) override;  // [audio]
    int GetEdgeFrames() const override { return settings_.edgeFrames; }

private:
    struct Curves;  // of the presets
    /// What the audio thread works from; a pure function of the parameter values.
    struct Settings {
        float exponent = 1.0f;
        float offset = 0.0f;  // powers of two
        int edgeFrames = 0;
    };
    Settings DeriveSettings() const;

    Settings settings_;
};

}  // namespace zuc::components
