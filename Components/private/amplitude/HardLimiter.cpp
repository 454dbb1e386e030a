#include "Components/HardLimiter.h"

#include <algorithm>
#include <array>

#include "kraaudiodsp/HardLimit.h"
#include "kraaudiodsp/Units.h"

namespace zuc::components {
namespace {

constexpr float kRampMs = 10.0f;
constexpr float kAssumedRateHz = 44100.0f;  // until the host sets one
constexpr float kLargestLookAheadMs = 20.0f;

// clang-format off
constexpr std::array kReleaseModes{
    EnumEntry{"$$$/Effects/HardLimiter/Manual=Manual"},
    EnumEntry{"$$$/Effects/HardLimiter/Auto=Auto"},
};
constexpr std::array kParameters{
    //           index                         name key                                                  unit  kind               lo    hi                   initial auto   role
    ParameterRow{HardLimiter::kCeilingDb,      "$$$/Effects/HardLimiter/Ceiling=Ceiling",                "dB", Kind::kLinear,      -24,  0,                   -1},
    ParameterRow{HardLimiter::kDriveDb,        "$$$/Effects/HardLimiter/Drive=Drive",                    "dB", Kind::kLinear,      -12,  24,                  0},
    ParameterRow{HardLimiter::kLookAheadMs,    "$$$/Effects/HardLimiter/LookAhead=Look-Ahead",           "ms", Kind::kLinear,      0.5f, kLargestLookAheadMs, 5,      false},
    ParameterRow{HardLimiter::kReleaseMs,      "$$$/Effects/HardLimiter/Release=Release",                "ms", Kind::kLogarithmic, 1,    1000,                100},
    ParameterRow{HardLimiter::kReleaseMode,    "$$$/Effects/HardLimiter/ReleaseMode=Release Mode",       "",   Kind::kEnum,        0,    1,                   1,      true,  Role::kControl, kReleaseModes},
    ParameterRow{HardLimiter::kLinkPercent,    "$$$/Effects/HardLimiter/LinkChannels=Link Channels",     "%",  Kind::kLinear,      0,    100,                 100},
    ParameterRow{HardLimiter::kTruePeak,       "$$$/Effects/HardLimiter/TruePeak=True Peak",             "",   Kind::kBool,        0,    1,                   1,      false},
    ParameterRow{HardLimiter::kGainReductionDb, "$$$/Effects/HardLimiter/GainReduction=Gain Reduction",  "dB", Kind::kLinear,      -40,  0,                   0,      false, Role::kMeter},
};
constexpr std::array kPresets{
    //        name key                                                                                   ceiling drive look release mode link true meter
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                                         -1,     0,    5,    100,   1,  100,  1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/StreamingMaster=Streaming Master",                 -1,     3,    5,    100,   1,  100,  1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/CDCeiling=CD Ceiling",                             -0.3f,  0,    3,    100,   1,  100,  1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/Broadcast=Broadcast -2 dBTP",                      -2,     0,    8,    200,   1,  100,  1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/PodcastLoud=Podcast Loud",                         -1.5f,  6,    5,    150,   1,  100,  1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/DrumBus=Drum Bus",                                 -1,     4,    1.5f, 30,    0,  60,   1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/SafetyNet=Safety Net",                             -1,     0,    10,   400,   1,  100,  1,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/SamplePeaksOnly=Sample Peaks Only",                -0.1f,  0,    5,    100,   1,  100,  0,  0),
    PresetRow("$$$/AudioComponents/HardLimiterPresets/ClassicalTransparent=Classical Transparent",       -1,     0,    15,   700,   1,  100,  1,  0),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/HardLimiterTitle=Hard Limiter", kParameters,
                               kPresets};
static_assert(IsWellFormed(kTables));
static_assert(kParameters.size() == HardLimiter::kParameterCount);

}  // namespace

struct HardLimiter::Derived : dsp::HardLimit::Settings {};

HardLimiter::HardLimiter()
    : TableDriven(kTables, kHardLimiterComponentID, kMaxChannelCount),
      dsp_(std::make_unique<dsp::HardLimit>()) {
    SetupParameterInfos();
    PrepareBuffers();
}

HardLimiter::~HardLimiter() = default;

void HardLimiter::SetupParameterInfos() { RegisterParameterInfos(); }

float HardLimiter::RateHz() const {
    return GetSampleRate() > 0.0f ? GetSampleRate() : kAssumedRateHz;
}

HardLimiter::Derived HardLimiter::DeriveSettings() const {
    Derived settings;
    settings.ceiling = dsp::DbToGain(Value(kCeilingDb));
    settings.drive = dsp::DbToGain(Value(kDriveDb));
    settings.lookAheadFrames =
        dsp::MsToFrames(static_cast<double>(Value(kLookAheadMs)), static_cast<double>(RateHz()));
    settings.releaseFrames = Value(kReleaseMs) / 1000.0f * RateHz();
    settings.isReleaseAuto = Choice(kReleaseMode) == 1;
    settings.link = Value(kLinkPercent) / 100.0f;
    settings.usesTruePeaks = IsOn(kTruePeak);
    return settings;
}

// ---- Preparation ----

void HardLimiter::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    PrepareBuffers();
}

void HardLimiter::OnNumberOfChannelsChanged(std::size_t) { PrepareBuffers(); }

void HardLimiter::PrepareBuffers() {
    const auto rateHz = static_cast<double>(RateHz());
    dsp_->Prepare(GetNumberOfOutputChannels(),
                  dsp::MsToFrames(static_cast<double>(kLargestLookAheadMs), rateHz),
                  dsp::MsToFrames(static_cast<double>(kRampMs), rateHz), rateHz);
    dsp_->Reset(DeriveSettings());
    MarkSettingsDirty();
}

int HardLimiter::GetInitialDelay() const { return dsp::HardLimit::GetLatency(DeriveSettings()); }

void HardLimiter::Resume() {
    TableDriven::Resume();
    TakeSettingsDirty();
    dsp_->Reset(DeriveSettings());
    ShowOnMeter(kGainReductionDb, 0.0f);
}

// ---- Processing ----

void HardLimiter::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (TakeSettingsDirty()) dsp_->SetSettings(DeriveSettings());
    float reductionDb = 0.0f;
    ProcessGuarded(in, out, frames, [&](const float* const* from, float* const* to, int count) {
        dsp_->Process(from, to, count);
        reductionDb = std::max(reductionDb, dsp_->GetReductionDb());
    });
    ShowOnMeter(kGainReductionDb, -reductionDb);
}

}  // namespace zuc::components
