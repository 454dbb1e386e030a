#include "Components/Echo.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>

#include "Components/ParameterInfos.h"
#include "Components/private/delay-reverb/DelayTimeUnit.h"
#include "Components/private/delay-reverb/EchoDSP.h"
#include "kraaudiodsp/OctaveEqualizer.h"
#include "kraaudiodsp/Units.h"
#include "kracore/Localizer.h"
#include "kracore/Numbers.h"

namespace zuc::components {
namespace {

constexpr double kLongestDelayMs = 2000.0;
constexpr int kSpareFrames = 200;
constexpr double kFadeMs = 100.0;
constexpr double kTailDb = 90.0;
constexpr double kLongestTailSeconds = 60.0;
constexpr std::size_t kBandCount = dsp::OctaveEqualizer::kBandCount;
// How factory presets store a switch.
constexpr float kOff = 50.0f / 199.0f;
constexpr float kOn = 150.0f / 199.0f;

// clang-format off
constexpr std::string_view kOnKey = "$$$/Effects/Echo/On=On";
constexpr std::string_view kOffKey = "$$$/Effects/Echo/Off=Off";
constexpr std::array<ParameterRow, Echo::kParameterCount> kParameters{{
    //index                name key                                                         unit  kind           lo    hi    initial auto   role
    {Echo::kDelayLeft,     "$$$/Effects/Echo/DelayLeft=Delay Time (Left Channel)",          "ms", Kind::kLinear, 0,    2000, 348.8f},
    {Echo::kDelayRight,    "$$$/Effects/Echo/DelayRight=Delay Time (Right Channel)",        "ms", Kind::kLinear, 0,    2000, 232.6f},
    {Echo::kFeedbackLeft,  "$$$/Effects/Echo/DecayLeft=Feedback (Left Channel)",            "%",  Kind::kLinear, 0.1f, 100,  64},
    {Echo::kFeedbackRight, "$$$/Effects/Echo/DecayRight=Feedback (Right Channel)",          "%",  Kind::kLinear, 0.1f, 100,  64},
    {Echo::kLevelLeft,     "$$$/Effects/Echo/InitEchoLeft=Echo Level (Left Channel)",       "%",  Kind::kLinear, 0.1f, 100,  85},
    {Echo::kLevelRight,    "$$$/Effects/Echo/InitEchoRight=Echo Level (Right Channel)",     "%",  Kind::kLinear, 0.1f, 100,  85},
    {Echo::kFirstBand + 0, "$$$/Effects/Echo/EQGain1=EQ Band 1",                            "dB", Kind::kLinear, -15,  15,   -9.8f},
    {Echo::kFirstBand + 1, "$$$/Effects/Echo/EQGain2=EQ Band 2",                            "dB", Kind::kLinear, -15,  15,   -9.9f},
    {Echo::kFirstBand + 2, "$$$/Effects/Echo/EQGain3=EQ Band 3",                            "dB", Kind::kLinear, -15,  15,   -9.6f},
    {Echo::kFirstBand + 3, "$$$/Effects/Echo/EQGain4=EQ Band 4",                            "dB", Kind::kLinear, -15,  15,   -9.5f},
    {Echo::kFirstBand + 4, "$$$/Effects/Echo/EQGain5=EQ Band 5",                            "dB", Kind::kLinear, -15,  15,   -2.4f},
    {Echo::kFirstBand + 5, "$$$/Effects/Echo/EQGain6=EQ Band 6",                            "dB", Kind::kLinear, -15,  15,   -7},
    {Echo::kFirstBand + 6, "$$$/Effects/Echo/EQGain7=EQ Band 7",                            "dB", Kind::kLinear, -15,  15,   -1.1f},
    {Echo::kFirstBand + 7, "$$$/Effects/Echo/EQGain8=EQ Band 8",                            "dB", Kind::kLinear, -15,  15,   0},
    {Echo::kLockChannels,  "$$$/Effects/Echo/LockLR=Lock Left & Right Channels",            "",   Kind::kBool,   0,    1,    0,      true,  Role::kLink,          {}, kOnKey, kOffKey},
    {Echo::kBounce,        "$$$/Effects/Echo/EchoBounce=Echo Bounce",                       "",   Kind::kBool,   0,    1,    0,      true,  Role::kControl,       {}, kOnKey, kOffKey},
    {Echo::kTimeUnit,      "$$$/Effects/Echo/TimeUnit=Delay Time Units",                    "",   Kind::kEnum,   0,    2,    0,      false, Role::kDisplay,       kDelayTimeUnits},
    {Echo::kChannelCount,  "$$$/Effects/Echo/NumChannels=Number of Channels",               "",   Kind::kLinear, 0,    Echo::kMaxChannelCount, 2, false, Role::kFollowsLayout, {}, {}, {}, 0},
}};

/// What the first rows are called, and whether they can be automated, when there is no left and right.
struct NeutralRow {
    std::string_view nameKey;
    bool automatable;
};
constexpr std::array<NeutralRow, Echo::kFirstBand> kNeutral{{
    {"$$$/Effects/Echo/OnChannelsChanged/Delay=Delay Time",                           true},
    {"$$$/Effects/Echo/OnChannelsChanged/DelayRight=Delay Time (Right Channel)",      false},
    {"$$$/Effects/Echo/OnChannelsChanged/Feedback=Feedback",                          true},
    {"$$$/Effects/Echo/OnChannelsChanged/DecayRight=Feedback (Right Channel)",        false},
    {"$$$/Effects/Echo/OnChannelsChanged/InitEcho=Echo Level",                        true},
    {"$$$/Effects/Echo/OnChannelsChanged/InitEchoRight=Echo Level (Right Channel)",   false},
}};

constexpr std::array kPresets{
    //        name key                                                                                 delay L, R    feedback L, R   level L, R    bands 1 to 8, dB                              lock  bounce unit count
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                                       348.8, 232.6, 64,    64,     85,    85,    -9.8, -9.9, -9.6, -9.5, -2.4, -7,   -1.1, 0,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/AnalogDelay=Analog Delay",                              800,   800,   50.05, 50.05,  85.02, 85.02, -9.8, -9.9, -4.1, 4.5,  2,    1,    0.5,  0,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/DangerSciFi=Danger - Sci Fi Cliche Approaching",        2000,  200,   75.03, 75.03,  100,   100,   -9.8, 0,    1,    -9.5, 1,    -2,   1,    0,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/DelicateWhispers=Delicate Whispers",                    1800,  277,   60.04, 60.04,  75.03, 75.03, -15,  -15,  -15,  -15,  -15,  1,    1.5,  2,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/EchoWeightedLeft=Echo Weighted Left",                   200,   100,   40.06, 40.06,  75.03, 75.03, -4.4, -4.7, -4.1, -1.6, 6.9,  -2.4, -5.5, -9.1, kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/EchoWeightedRight=Echo Weighted Right",                 100,   200,   40.06, 40.06,  75.03, 75.03, -4.5, -4.7, -4.1, -1.6, 6.9,  -2.4, -5.5, -9.1, kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/FormantDelay=Formant Delay",                            1000,  1000,  70.03, 70.03,  85.02, 85.02, -9.8, -9.9, -6.7, -4,   -2.4, -1,   -1.2, -4,   kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/HiPassDelay=Hi-Pass Delay",                             400,   800,   50.05, 50.05,  85.02, 85.02, -15,  -15,  -15,  -15,  1,    2,    3,    4,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/InfiniteLoop=Infinite Loop",                            600,   600,   80.02, 80.02,  75.03, 75.03, 9.8,  9.8,  9.6,  0.5,  -2.4, 0.5,  -1.1, 0,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/LowPassDelay=Low-Pass Delay",                           348.8, 232.6, 64.08, 64.08,  85.02, 85.02, -5,   -3,   -2,   1,    -2.4, -7,   -3,   -3,   kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/Spooky=Spooky",                                         200,   200,   70.03, 70.03,  100,   100,   -9.8, -9.9, -9.6, 1,    -2.2, -4.7, -9.5, -15,  kOff, kOn,  0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/SpringyTelephone=Springy Telephone",                    160,   160,   64.08, 64.08,  85.02, 85.02, -9.8, -9.9, -9.6, -9.5, 4,    -7,   -1.1, 0,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/StereoVocals=Stereo Vocals",                            250,   200,   64.08, 64.08,  30.07, 30.07, -9.8, -9.9, -9.6, 0,    2,    0,    -1.1, 0,    kOff, kOff, 0, 2),
    PresetRow("$$$/AudioComponents/EchoPresets/SynthesizingSMPTE=Synthesizing SMPTE",                  80,    80,    45.05, 45.05,  75.03, 75.03, -4.5, -4.7, -4.1, -1.6, 6.9,  -2.4, -5.5, -9.1, kOff, kOn,  0, 2),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/EchoTitle=Echo", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

}  // namespace

/// What the audio thread works from; a pure function of the parameter values.
struct Echo::Settings {
    EchoDSP::Settings echo;
    dsp::OctaveEqualizer::BandGains bands;  // linear
};

Echo::Echo()
    : TableDriven(kTables, kEchoComponentID, kMaxChannelCount),
      channelCount_(GetNumberOfOutputChannels()),
      dsp_(std::make_unique<EchoDSP>()) {
    SetupParameterInfos();
    NormalizeValues();
    Prepare();
}

Echo::~Echo() = default;

// ---- Parameters ----

void Echo::SetupParameterInfos() {
    ClearParameterInfos();
    for (ParameterRow row : kParameters) {
        const auto identifier = kracore::config::GetKeyName(row.nameKey);
        if (channelCount_ != 2 && row.index < kFirstBand) {
            const NeutralRow& neutral = kNeutral[static_cast<std::size_t>(row.index)];
            row.nameKey = neutral.nameKey;
            row.automatable = neutral.automatable;
        } else if (row.index == kChannelCount) {
            row.lo = 1.0f;
            row.hi = static_cast<float>(channelCount_);
        }
        const auto info = MakeParameterInfo(row);
        // Scripts name a parameter alike in every layout.
        info->SetIdentifier(std::string(identifier));
        AddParameterInfo(static_cast<std::size_t>(row.index), info);
    }
}

WStr Echo::GetParameterString(int index) const {
    switch (index) {
        case kDelayLeft:
        case kDelayRight:
            return FormatDelayTime(Value(index), dsp::MsToWholeFrames(Value(index), RateHz()),
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

Echo::Settings Echo::DeriveSettings() const {
    const auto tap = [this](int delay, int feedback, int level) {
        return EchoDSP::Tap{dsp::MsToWholeFrames(Value(delay), RateHz()), Value(feedback) / 100.0f,
                            Value(level) / 100.0f};
    };
    Settings settings{};
    settings.echo.common = settings.echo.second = tap(kDelayLeft, kFeedbackLeft, kLevelLeft);
    settings.echo.bounce = IsOn(kBounce);
    if (channelCount_ == 2)
        settings.echo.second = tap(kDelayRight, kFeedbackRight, kLevelRight);
    else if (settings.echo.bounce)
        settings.echo.second.level = Value(kLevelRight) / 100.0f;
    for (std::size_t b = 0; b < kBandCount; ++b)
        settings.bands[b] = dsp::DbToGain(Value(kFirstBand + static_cast<int>(b)));
    return settings;
}

int Echo::GetTail() const {
    const Settings settings = DeriveSettings();
    const double longest = kLongestTailSeconds * RateHz();
    const double equalizer = dsp::OctaveEqualizer::GetPeakGain(settings.bands);
    const auto lasts = [&](const EchoDSP::Tap& first, const EchoDSP::Tap& second) {
        // Once through both lines, or through one line twice.
        const double gain = first.feedback * second.feedback * equalizer * equalizer;
        const double trip = dsp_->ReadFrames(first) + dsp_->ReadFrames(second) +
                            2 * dsp::OctaveEqualizer::kMemoryFrames;
        const double decayDb = -20.0 * std::log10(gain);
        return decayDb <= 0.0 ? longest : (std::ceil(kTailDb / decayDb) + 1.0) * trip;
    };
    const auto& [common, second, bounce] = settings.echo;
    const double frames = bounce && channelCount_ > 1
                              ? lasts(common, second)
                              : std::max(lasts(common, common), lasts(second, second));
    return static_cast<int>(std::min(frames, longest));
}

// ---- Preparation ----

void Echo::Prepare() {
    const int lineFrames = dsp::MsToWholeFrames(kLongestDelayMs, RateHz()) + kSpareFrames;
    const int fadeFrames = dsp::MsToWholeFrames(kFadeMs, RateHz());
    dsp_->Prepare(channelCount_, lineFrames, fadeFrames, kMaxPieceFrames);
    isFirstBlock_ = true;
}

void Echo::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    Prepare();
}

void Echo::OnNumberOfChannelsChanged(std::size_t channels) {
    if (channels == channelCount_) return;
    channelCount_ = channels;
    Prepare();
    if (channels == 2) return;
    SetupParameterInfos();
    SetParameter(kChannelCount, 1.0f);
}

void Echo::Resume() {
    TableDriven::Resume();
    dsp_->Reset();
    isFirstBlock_ = true;
}

// ---- Processing ----

void Echo::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (const bool changed = TakeSettingsDirty(); changed || isFirstBlock_) {
        const Settings settings = DeriveSettings();
        dsp_->SetBandGains(settings.bands);
        isFirstBlock_ ? dsp_->StartWith(settings.echo) : dsp_->FadeTo(settings.echo);
        isFirstBlock_ = false;
    }
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        dsp_->Process(from, to, count);
    });
}

}  // namespace zuc::components
