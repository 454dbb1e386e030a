#pragma once

#include <atomic>

#include "Components/EnvelopeBase.h"

namespace zuc::components {

inline constexpr char16_t kFadeEnvelopeComponentID[] = u"zuc.FadeEnvelope";

/// The shapes of fades, over the way p from 0 to 1.
enum class FadeShape {
    kLinear,       // p
    kLogarithmic,  // ln(1 + m p) / ln(1 + m), with the height Bend at p = 1/2
    kCosine,       // (1 - cos(pi p)) / 2
    kEqualPower    // sin(pi/2 p)
};

/// Fades the audio in and out with exact shapes, also as the halves of a crossfade.
///
///     gain = curve * in * out      in = s(p), out = 1 - s'(p)
///
/// Fade In runs from the start of the selection, Fade Out to its end (there is none without a
/// selection); both are exactly 0 and 1 at their ends. s is the chosen shape; with Automatic Reverse s'
/// mirrors it, s'(p) = 1 - s(1 - p), so that the two halves of a crossfade with the shape Equal Power
/// sum to constant power. The curve (type 1, amplitude, 1 without keyframes) runs between its keyframes
/// by the same shapes, s' downwards, and by splines with Smooth Curve. See EnvelopeBase for changes.
class ZUC_API FadeEnvelope final : public EnvelopeBase {
public:
    enum Parameter {
        kShape,
        kBend,
        kFadeInMs,
        kFadeOutMs,
        kSmoothCurve,
        kAutomaticReverse,
        kParameterCount
    };

    FadeEnvelope();
    ~FadeEnvelope() override;

    /// Smooth Curve switches the curve's splines, which takes the curve's lock. [host]
    void SetParameter(int index, float normalized) override;
    std::string_view GetLevelUnit() const override { return "%"; }                   // [any]
    float GetLevel(float curveValue) const override { return 100.0f * curveValue; }  // [host]
    float ToCurveValue(float level) const override;                                  // [host]

protected:
    void TakeSettings() override;                                                         // [audio]
    bool MakeGains(std::int64_t first, bool isLevel, float* gains, int frames) override;  // [audio]

private:
    class Curve;
    struct Curves;  // of the presets
    /// One fade: the gain at a frame is the shape at |frame - silentFrame| / frames.
    struct Fade {
        std::int64_t silentFrame = 0;
        std::int64_t frames = 0;
        int direction = 1;  // from silence: 1 forwards, -1 backwards
        bool mirrored = false;
    };
    /// What the audio thread works from; a pure function of the parameter values and the selection.
    struct Settings {
        FadeShape shape = FadeShape::kLinear;
        double bend = 0.0;  // m of the logarithmic shape
        Fade in;
        Fade out;
    };
    Settings DeriveSettings() const;
    bool ApplyFade(const Fade& fade, std::int64_t first, bool isLevel, float* gains, int frames);
    void ShapeWay(bool mirrored, float* way, std::size_t count) const;

    Settings settings_;
    std::array<float, kMaxPieceFrames> way_{};
};

}  // namespace zuc::components
