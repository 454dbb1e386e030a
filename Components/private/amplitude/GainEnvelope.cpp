#include "Components/GainEnvelope.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "kraaudiodsp/Units.h"
#include "kraaudiodsp/vector/CurveOps.h"

namespace zuc::components {
namespace {

constexpr float kUnityValue = 0.5f;
constexpr float kPowersOfTwoPerDb = 0.166096404f;  // log2(10) / 20

// clang-format off
constexpr std::array kParameters{
    //           index                          name key                                                    unit  kind            lo  hi initial auto
    ParameterRow{GainEnvelope::kRangeDb,         "$$$/Effects/GainEnvelope/Range=Range",                    "dB", Kind::kLinear,  3,  48, 24,    false},
    ParameterRow{GainEnvelope::kSmoothCurve,     "$$$/Effects/GainEnvelope/SmoothCurve=Smooth Curve",       "",   Kind::kBool,    0,  1,  0,     false},
    ParameterRow{GainEnvelope::kEdgeSmoothingMs, "$$$/Effects/GainEnvelope/EdgeSmoothing=Edge Smoothing",   "ms", Kind::kLinear,  0,  50, 2,     true},
    ParameterRow{GainEnvelope::kOutputTrimDb,    "$$$/Effects/GainEnvelope/OutputTrim=Output Trim",         "dB", Kind::kLinear, -24, 24, 0,     true},
};
constexpr std::array kPresets{
    //        name key                                                               range smooth edge trim
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                      24,   0,     2,   0),
    PresetRow("$$$/AudioComponents/GainEnvelopePresets/FadeIn=Fade In 24 dB",         24,   0,     2,   0),
    PresetRow("$$$/AudioComponents/GainEnvelopePresets/FadeOut=Fade Out 24 dB",       24,   0,     2,   0),
    PresetRow("$$$/AudioComponents/GainEnvelopePresets/DuckMiddle=Duck Middle -12",   24,   0,     2,   0),
    PresetRow("$$$/AudioComponents/GainEnvelopePresets/Swell=Swell +6",               24,   0,     2,   0),
    PresetRow("$$$/AudioComponents/GainEnvelopePresets/Stutter=Stutter",              24,   0,     2,   0),
    PresetRow("$$$/AudioComponents/GainEnvelopePresets/Crescendo=Crescendo",          24,   0,     2,   0),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/GainEnvelopeTitle=Gain Envelope", kParameters,
                               kPresets};
static_assert(IsWellFormed(kTables));

}  // namespace

/// The presets' curves, in dB.
struct GainEnvelope::Curves {
    static constexpr float kSilence = -std::numeric_limits<float>::infinity();
    // clang-format off
    static constexpr std::array<CurvePoint, 2> kFadeIn{{{0.0, kSilence}, {1.0, 0.0f}}};
    static constexpr std::array<CurvePoint, 2> kFadeOut{{{0.0, 0.0f}, {1.0, kSilence}}};
    static constexpr std::array<CurvePoint, 6> kDuckMiddle{{{0.0, 0.0f}, {0.2, 0.0f}, {0.25, -12.0f}, {0.75, -12.0f}, {0.8, 0.0f}, {1.0, 0.0f}}};
    static constexpr std::array<CurvePoint, 3> kSwell{{{0.0, 0.0f}, {0.5, 6.0f}, {1.0, 0.0f}}};
    static constexpr std::array<CurvePoint, 8> kStutter{{{0.0, 0.0f, true}, {0.125, kSilence, true}, {0.25, 0.0f, true}, {0.375, kSilence, true},
                                                         {0.5, 0.0f, true}, {0.625, kSilence, true}, {0.75, 0.0f, true}, {0.875, kSilence, true}}};
    static constexpr std::array<CurvePoint, 3> kCrescendo{{{0.0, 0.0f}, {2.0 / 3.0, 0.0f}, {1.0, 12.0f}}};
    static constexpr std::array<CurvePreset, kPresets.size()> kAll{{{}, kFadeIn, kFadeOut, kDuckMiddle, kSwell, kStutter, kCrescendo}};
    // clang-format on
};

GainEnvelope::GainEnvelope()
    : EnvelopeBase(kTables,
                   kGainEnvelopeComponentID,
                   new KeyframeContainer(kUnityValue),
                   Curves::kAll,
                   CurveReader(kUnityValue)) {
    TakeSettings();
}

GainEnvelope::~GainEnvelope() = default;

void GainEnvelope::SetParameter(int index, float normalized) {
    EnvelopeBase::SetParameter(index, normalized);
    if (index == kSmoothCurve) GetCurve()->EnableSplines(IsOn(kSmoothCurve));
}

float GainEnvelope::GetLevel(float curveValue) const {
    if (!(curveValue > 0.0f)) return -std::numeric_limits<float>::infinity();
    return (2.0f * curveValue - 1.0f) * Value(kRangeDb);
}

float GainEnvelope::ToCurveValue(float level) const {
    return std::clamp(0.5f * (level / Value(kRangeDb) + 1.0f), 0.0f, 1.0f);
}

GainEnvelope::Settings GainEnvelope::DeriveSettings() const {
    const float range = Value(kRangeDb);
    return {2.0f * range * kPowersOfTwoPerDb, (Value(kOutputTrimDb) - range) * kPowersOfTwoPerDb,
            dsp::MsToFrames(Value(kEdgeSmoothingMs), GetSampleRate())};
}

void GainEnvelope::TakeSettings() { settings_ = DeriveSettings(); }

bool GainEnvelope::MakeGains(std::int64_t, bool isLevel, float* gains, int frames) {
    dsp::vector::ExponentialGains(gains, gains, settings_.slope, settings_.offset,
                                  isLevel ? 1 : static_cast<std::size_t>(frames));
    return isLevel;
}

}  // namespace zuc::components
