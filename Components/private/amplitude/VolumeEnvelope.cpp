#include "Components/VolumeEnvelope.h"

#include <array>
#include <limits>

#include "kraaudiodsp/Units.h"
#include "kraaudiodsp/vector/CurveOps.h"
#include "kracore/FaderTranslator.h"

namespace zuc::components {
namespace {

using Fader = kracore::utility::FaderTranslator<double>;

constexpr float kInitialMaximumDb = 6.0f;

// clang-format off
constexpr std::array kParameters{
    //           index                            name key                                                    unit  kind           lo hi initial            auto
    ParameterRow{VolumeEnvelope::kSmoothCurve,     "$$$/Effects/VolumeEnvelope/SmoothCurve=Smooth Curve",     "",   Kind::kBool,   0, 1,  0,                 false},
    ParameterRow{VolumeEnvelope::kEdgeSmoothingMs, "$$$/Effects/VolumeEnvelope/EdgeSmoothing=Edge Smoothing", "ms", Kind::kLinear, 0, 50, 2,                 true},
    ParameterRow{VolumeEnvelope::kPanVolumeLink,   "$$$/Effects/VolumeEnvelope/Link=Pan/Volume Link",         "",   Kind::kBool,   0, 1,  0,                 false, Role::kDisplay},
    ParameterRow{VolumeEnvelope::kMaximumDb,       "$$$/Effects/VolumeEnvelope/Maximum=Maximum",              "dB", Kind::kLinear, 0, 12, kInitialMaximumDb, false},
};
constexpr std::array kPresets{
    //        name key                                                                          smooth edge link max
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                                   0,   2,   0,  6),
    PresetRow("$$$/AudioComponents/VolumeEnvelopePresets/FadeOutLinear=Fade Out Linear",           0,   2,   0,  6),
    PresetRow("$$$/AudioComponents/VolumeEnvelopePresets/FadeOutSmooth=Fade Out Smooth",           1,   2,   0,  6),
    PresetRow("$$$/AudioComponents/VolumeEnvelopePresets/BellCurve=Bell Curve",                    1,   2,   0,  6),
    PresetRow("$$$/AudioComponents/VolumeEnvelopePresets/VoiceUnder=Voice Under",                  0,   2,   0,  6),
    PresetRow("$$$/AudioComponents/VolumeEnvelopePresets/RemoveStartClick=Remove Start Click",     0,   2,   0,  6),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/VolumeEnvelopeTitle=Volume Envelope",
                               kParameters, kPresets};
static_assert(IsWellFormed(kTables));

}  // namespace

/// The presets' curves, in dB.
struct VolumeEnvelope::Curves {
    static constexpr float kSilence = -std::numeric_limits<float>::infinity();
    // clang-format off
    static constexpr std::array<CurvePoint, 2> kFadeOut{{{0.0, 0.0f}, {1.0, kSilence}}};
    static constexpr std::array<CurvePoint, 3> kBell{{{0.0, kSilence}, {0.5, 0.0f}, {1.0, kSilence}}};
    static constexpr std::array<CurvePoint, 4> kVoiceUnder{{{0.0, 0.0f}, {0.1, -15.0f}, {0.9, -15.0f}, {1.0, 0.0f}}};
    static constexpr std::array<CurvePoint, 2> kRemoveStartClick{{{0.0, kSilence, true, true}, {0.005, 0.0f, false, true}}};
    static constexpr std::array<CurvePreset, kPresets.size()> kAll{{{}, kFadeOut, kFadeOut, kBell, kVoiceUnder, kRemoveStartClick}};
    // clang-format on
};

VolumeEnvelope::VolumeEnvelope()
    : EnvelopeBase(
          kTables,
          kVolumeEnvelopeComponentID,
          new KeyframeContainer(
              static_cast<float>(Fader(kInitialMaximumDb).GetNormalizedValue(0.0))),
          Curves::kAll,
          CurveReader(static_cast<float>(Fader(kInitialMaximumDb).GetNormalizedValue(0.0)))) {
    TakeSettings();
}

VolumeEnvelope::~VolumeEnvelope() = default;

void VolumeEnvelope::SetParameter(int index, float normalized) {
    EnvelopeBase::SetParameter(index, normalized);
    if (index == kSmoothCurve) GetCurve()->EnableSplines(IsOn(kSmoothCurve));
    if (index == kMaximumDb) GetCurve()->SetDefaultValue(ToCurveValue(0.0f));
}

float VolumeEnvelope::GetLevel(float curveValue) const {
    return static_cast<float>(Fader(Value(kMaximumDb)).GetDecibelValue(curveValue));
}

float VolumeEnvelope::ToCurveValue(float level) const {
    return static_cast<float>(Fader(Value(kMaximumDb)).GetNormalizedValue(level));
}

VolumeEnvelope::Settings VolumeEnvelope::DeriveSettings() const {
    const auto exponent = static_cast<float>(Fader(Value(kMaximumDb)).GetExponent());
    // By the same road as the gains, so that the position of 0 dB passes samples bit for bit.
    const float unity = ToCurveValue(0.0f);
    float power = 0.0f;
    dsp::vector::Log2(&power, &unity, 1);
    return {exponent, -(power * exponent),
            dsp::MsToFrames(Value(kEdgeSmoothingMs), GetSampleRate())};
}

void VolumeEnvelope::TakeSettings() { settings_ = DeriveSettings(); }

bool VolumeEnvelope::MakeGains(std::int64_t, bool isLevel, float* gains, int frames) {
    dsp::vector::PowerGains(gains, gains, settings_.exponent, settings_.offset,
                            isLevel ? 1 : static_cast<std::size_t>(frames));
    return isLevel;
}

}  // namespace zuc::components
