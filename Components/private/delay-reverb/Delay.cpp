#include "Components/Delay.h"

#include <array>
#include <string>
#include <string_view>

#include "Components/ParameterInfos.h"
#include "Components/private/delay-reverb/DelayDSP.h"
#include "Components/private/delay-reverb/DelayTimeUnit.h"
#include "kraaudiodsp/Units.h"
#include "kracore/Localizer.h"
#include "kracore/Numbers.h"

namespace zuc::components {
namespace {

constexpr int kSpareFrames = 200;
constexpr double kFadeMs = 100.0;
// How factory presets store a switch.
constexpr float kOff = 50.0f / 199.0f;
constexpr float kOn = 150.0f / 199.0f;

// clang-format off
constexpr std::string_view kOnKey = "$$$/Effects/Delay/On=On";
constexpr std::string_view kOffKey = "$$$/Effects/Delay/Off=Off";
constexpr std::array<ParameterRow, Delay::kParameterCount> kParameters{{
    //index               name key                                                       unit  kind           lo    hi   initial auto   role
    {Delay::kDelayLeft,   "$$$/Effects/Delay/LeftDelayTime=Left Channel Delay Time",     "ms", Kind::kLinear, -500, 500, 120},
    {Delay::kInvertLeft,  "$$$/Effects/Delay/LeftInvert=Invert Left Channel",            "",   Kind::kBool,   0,    1,   0,      true,  Role::kControl,       {}, kOnKey, kOffKey},
    {Delay::kMixLeft,     "$$$/Effects/Delay/LeftMix=Left Channel Mix",                  "%",  Kind::kLinear, 0,    100, 75},
    {Delay::kDelayRight,  "$$$/Effects/Delay/RightDelayTime=Right Channel Delay Time",   "ms", Kind::kLinear, -500, 500, 180},
    {Delay::kInvertRight, "$$$/Effects/Delay/RightInvert=Invert Right Channel",          "",   Kind::kBool,   0,    1,   0,      true,  Role::kControl,       {}, kOnKey, kOffKey},
    {Delay::kMixRight,    "$$$/Effects/Delay/RightMix=Right Channel Mix",                "%",  Kind::kLinear, 0,    100, 65},
    {Delay::kTimeUnit,    "$$$/Effects/Delay/TimeUnit=Delay Time Units",                 "",   Kind::kEnum,   0,    2,   0,      false, Role::kDisplay,       kDelayTimeUnits},
    {Delay::kChannelCount, "$$$/Effects/Delay/NumChannels=Number of Channels",           "",   Kind::kLinear, 0,    Delay::kMaxChannelCount, 2, false, Role::kFollowsLayout, {}, {}, {}, 0},
}};

/// What the left rows are called when there is no left and right; the right ones keep their names and
/// cannot be automated then.
constexpr std::array<std::string_view, Delay::kDelayRight> kNeutralKeys{
    "$$$/Effects/Delay/OnChannelsChanged/Delay=Delay Time",
    "$$$/Effects/Delay/OnChannelsChanged/Invert=Invert All Channels",
    "$$$/Effects/Delay/OnChannelsChanged/Mix=Mix",
};

constexpr std::array kPresets{
    //        name key                                                                                 left: ms invert mix  right: ms invert mix  unit count
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                                       120,     kOff,  75,  180,      kOff,  65,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/100msDelayOnLeft=100ms Delay on Left",                 100,     kOff,  50,  0,        kOff,  50,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/Bounce=Bounce",                                        120,     kOff,  75,  180,      kOff,  65,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/DuelingDrunkDrummers=Dueling Drunk Drummers",          -482,    kOn,   43,  284,      kOff,  57,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/MonoRepeater=Mono Repeater",                           120,     kOff,  65,  0,        kOff,  100, 0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/OutOfTime=Out of Time",                                -500,    kOff,  75,  333,      kOff,  65,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/RichDouble=Rich Double",                               60,      kOff,  75,  65,       kOff,  65,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/Rockabilly=Rockabilly",                                150,     kOff,  50,  150,      kOff,  50,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/RoomAmbience=Room Ambience",                           110,     kOff,  24,  126.7,    kOff,  23,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/SlapBack=Slap Back",                                   120,     kOff,  75,  180,      kOff,  65,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/SpatialEcho=Spatial Echo",                             -200,    kOff,  60,  200,      kOff,  60,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/Stutter=Stutter",                                      75,      kOff,  75,  75,       kOff,  65,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/TapeSlap=Tape Slap",                                   -200,    kOff,  80,  200,      kOff,  80,  0, 2),
    PresetRow("$$$/AudioComponents/DelayPresets/WideMaxDelay=Wide Max Delay",                          -500,    kOn,   50,  500,      kOff,  50,  0, 2),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/DelayTitle=Delay", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

}  // namespace

/// What the audio thread works from; a pure function of the parameter values.
struct Delay::Settings : DelayDSP::Settings {};

Delay::Delay()
    : TableDriven(kTables, kDelayComponentID, kMaxChannelCount),
      channelCount_(GetNumberOfOutputChannels()),
      dsp_(std::make_unique<DelayDSP>()) {
    SetupParameterInfos();
    NormalizeValues();
    Prepare();
}

Delay::~Delay() = default;

// ---- Parameters ----

void Delay::SetupParameterInfos() {
    ClearParameterInfos();
    for (ParameterRow row : kParameters) {
        const auto identifier = kracore::config::GetKeyName(row.nameKey);
        if (channelCount_ != 2 && row.index < kDelayRight)
            row.nameKey = kNeutralKeys[static_cast<std::size_t>(row.index)];
        else if (channelCount_ != 2 && row.index <= kMixRight)
            row.automatable = false;
        else if (row.index == kChannelCount) {
            row.lo = 1.0f;
            row.hi = static_cast<float>(channelCount_);
        }
        const auto info = MakeParameterInfo(row);
        // Scripts name a parameter alike in every layout.
        info->SetIdentifier(std::string(identifier));
        AddParameterInfo(static_cast<std::size_t>(row.index), info);
    }
}

WStr Delay::GetParameterString(int index) const {
    switch (index) {
        case kDelayLeft:
        case kDelayRight:
            return FormatDelayTime(Value(index), dsp::MsToFrames(Value(index), RateHz()),
                                   Choice(kTimeUnit));
        case kTimeUnit:
            return GetDelayTimeUnitName(Choice(kTimeUnit));
        case kChannelCount:
            return kracore::utility::NumberToString(static_cast<double>(channelCount_), 0, 0, {},
                                                    31);
        default:
            return TableDriven::GetParameterString(index);
    }
}

Delay::Settings Delay::DeriveSettings() const {
    const auto tap = [this](int delay, int invert, int mix) {
        const float wet = Value(mix) / 100.0f;
        // Deliberate: a time below 0 is truncated towards zero too, so -500 ms can be a frame short.
        return DelayDSP::Tap{dsp::MsToFrames(Value(delay), RateHz()), IsOn(invert) ? -wet : wet,
                             1.0f - wet};
    };
    Settings settings{};
    settings.common = tap(kDelayLeft, kInvertLeft, kMixLeft);
    settings.second =
        channelCount_ == 2 ? tap(kDelayRight, kInvertRight, kMixRight) : settings.common;
    return settings;
}

int Delay::GetTail() const {
    const Settings settings = DeriveSettings();
    int tail = 0;
    for (const DelayDSP::Tap& tap : {settings.common, settings.second})
        if (tap.wet != 0.0f) tail = std::max(tail, tap.delayFrames);
    return tail;
}

int Delay::GetInitialDelay() const { return (kSpareFrames + static_cast<int>(RateHz())) / 2; }

// ---- Preparation ----

void Delay::Prepare() {
    dsp_->Prepare(channelCount_, GetInitialDelay(), dsp::MsToWholeFrames(kFadeMs, RateHz()),
                  kMaxPieceFrames);
    isFirstBlock_ = true;
}

void Delay::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    Prepare();
}

void Delay::OnNumberOfChannelsChanged(std::size_t channels) {
    if (channels == channelCount_) return;
    channelCount_ = channels;
    Prepare();
    if (channels == 2) return;
    SetupParameterInfos();
    SetParameter(kChannelCount, 1.0f);
}

void Delay::Resume() {
    TableDriven::Resume();
    dsp_->Reset();
    isFirstBlock_ = true;
}

// ---- Processing ----

void Delay::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (const bool changed = TakeSettingsDirty(); changed || isFirstBlock_) {
        const Settings settings = DeriveSettings();
        isFirstBlock_ ? dsp_->StartWith(settings) : dsp_->FadeTo(settings);
        isFirstBlock_ = false;
    }
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        dsp_->Process(from, to, count);
    });
}

}  // namespace zuc::components
