#include "Components/IntraClipComponent.h"

#include <array>
#include <string_view>

#include "kraaudiodsp/IntraClip.h"

namespace zuc::components {
namespace {

using dsp::intraclip::IntraClip;

constexpr float kAssumedRateHz = 44100.0f;  // until the host sets one
constexpr std::string_view kOn = "$$$/Effects/IntraClipComponent/On=On";
constexpr std::string_view kOff = "$$$/Effects/IntraClipComponent/Off=Off";

/// Range and initial value are the kernel's.
constexpr ParameterRow Row(int index,
                           std::string_view nameKey,
                           std::string_view unit,
                           Kind kind = Kind::kLinear,
                           Role role = Role::kControl) {
    const auto& bounds = IntraClip::kBounds[static_cast<std::size_t>(index)];
    const bool isAutomatable = role != Role::kMeter;
    return {index,          nameKey,       unit, kind, bounds.lo, bounds.hi,
            bounds.initial, isAutomatable, role, {},   kOn,       kOff};
}

// clang-format off
constexpr std::array kParameters{
    Row(IntraClipComponent::kTargetVolumeLevelDb,   "$$$/Effects/IntraClipComponent/TargetVolumeLevel=Target Volume Level",    "dB RMS"),
    Row(IntraClipComponent::kLevelingAmountPercent, "$$$/Effects/IntraClipComponent/LevelingAmount=Leveling Amount",           "%"),
    Row(IntraClipComponent::kCompressorActive,      "$$$/Effects/IntraClipComponent/CompressorActive=Compressor Active",       "", Kind::kBool),
    Row(IntraClipComponent::kCompressorThresholdDb, "$$$/Effects/IntraClipComponent/CompressorThreshold=Compressor Threshold", "dB"),
    Row(IntraClipComponent::kNoiseGateActive,       "$$$/Effects/IntraClipComponent/NoiseGateActive=Noise Gate Active",        "", Kind::kBool),
    Row(IntraClipComponent::kNoiseOffsetDb,         "$$$/Effects/IntraClipComponent/NoiseThresholdOffset=Noise Offset",        "dB"),
    // Deliberate: the key's spelling is what settings and scripts know.
    Row(IntraClipComponent::kBoostLowSignals,       "$$$/Effects/IntraClipComponent/BoosLowSignals=Boost Low Signals",         "", Kind::kBool),
    Row(IntraClipComponent::kAmplificationMeterDb,  "$$$/Effects/IntraClipComponent/AmplificationMeter=Amplification Meter",   "dB", Kind::kLinear, Role::kMeter),
    Row(IntraClipComponent::kTargetDynamicRangeDb,  "$$$/Effects/IntraClipComponent/TargetDynRange=Target Dynamic Range",      "dB"),
};
constexpr std::array kPresets{
    //        name key                                                   target amount comp. thresh. gate offset boost meter range
    PresetRow("$$$/AudioComponents/IntraClipPresets/Medium=Medium",      -18,   70,    1,    -6,     0,   15,    0,    0,    15),
    PresetRow("$$$/AudioComponents/IntraClipPresets/Soft=Soft",          -18,   50,    1,    -6,     0,   15,    0,    0,    20),
    PresetRow("$$$/AudioComponents/IntraClipPresets/Strong=Strong",      -18,   95,    1,    -6,     1,   15,    0,    0,    8),
    PresetRow("$$$/AudioComponents/IntraClipPresets/Careful=Careful",    -18,   40,    0,    -6,     0,   15,    0,    0,    25),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/SpeechVolumeLevelerTitle=Speech Volume Leveler",
                               kParameters, kPresets};
static_assert(IsWellFormed(kTables));
static_assert(kParameters.size() == IntraClipComponent::kParameterCount &&
              kParameters.size() == static_cast<std::size_t>(IntraClip::kParameterCount));

}  // namespace

IntraClipComponent::IntraClipComponent()
    : TableDriven(kTables, kIntraClipComponentComponentID, kMaxChannelCount),
      kernel_(std::make_unique<IntraClip>()) {
    for (int i = 0; i < kParameterCount; ++i) SetValue(i, kernel_->GetParameter(i));
    SetupParameterInfos();
    InitializeKernel();
}

IntraClipComponent::~IntraClipComponent() = default;

void IntraClipComponent::SetupParameterInfos() { RegisterParameterInfos(); }

void IntraClipComponent::HandOverSettings() {
    for (int i = 0; i < kParameterCount; ++i) kernel_->SetParameter(i, Value(i));
}

// ---- Preparation ----

void IntraClipComponent::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    InitializeKernel();
}

void IntraClipComponent::OnNumberOfChannelsChanged(std::size_t) { InitializeKernel(); }

void IntraClipComponent::InitializeKernel() {
    const float rateHz = GetSampleRate() > 0.0f ? GetSampleRate() : kAssumedRateHz;
    kernel_->Initialize(static_cast<long>(GetNumberOfOutputChannels()), rateHz,
                        GetMaxProcessingBlockSize());
    MarkSettingsDirty();
}

int IntraClipComponent::GetInitialDelay() const { return static_cast<int>(kernel_->GetLatency()); }

void IntraClipComponent::Resume() {
    TableDriven::Resume();
    TakeSettingsDirty();
    HandOverSettings();
    kernel_->Reset();
    ShowOnMeter(kAmplificationMeterDb, 0.0f);
}

// ---- Processing ----

void IntraClipComponent::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (TakeSettingsDirty()) HandOverSettings();
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        kernel_->Process(from, to, count);
    });
    ShowOnMeter(kAmplificationMeterDb, kernel_->GetParameter(kAmplificationMeterDb));
}

}  // namespace zuc::components
