#include "Components/Chorus.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "Components/private/delay-reverb/ChorusDSP.h"

namespace zuc::components {
namespace {

constexpr int kMaxChannelCount = 32;
constexpr double kLongestDelayMs =
    200.0;  // the longest of all settings is 171 ms; the rest is for glides
constexpr float kMostOfDelay = 0.9f;  // that a voice moves by
constexpr float kFullDriftMs = 3.0f;
constexpr double kTailDb = 90.0;

// clang-format off
constexpr std::array<ParameterRow, Chorus::kParameterCount> kParameters{{
    {Chorus::kVoices,       "$$$/Effects/Chorus/Voices=Voices",              "",       Kind::kLinear,       1,     8,     4,     false, Role::kCount, {}, {}, {}, 0},
    {Chorus::kDelay,        "$$$/Effects/Chorus/Delay=Delay",                "ms",     Kind::kLinear,       1,     60,    14,    true},
    {Chorus::kDelaySpread,  "$$$/Effects/Chorus/DelaySpread=Delay Spread",   "ms",     Kind::kLinear,       0,     30,    6,     true},
    {Chorus::kDepth,        "$$$/Effects/Chorus/Depth=Depth",                "$$$/Effects/Chorus/Cents=cents", Kind::kLinear,       0,     100,   12,    true},
    {Chorus::kRate,         "$$$/Effects/Chorus/Rate=Rate",                  "Hz",     Kind::kLogarithmic,  0.02f, 10,    0.6f,  true},
    {Chorus::kRateSpread,   "$$$/Effects/Chorus/RateSpread=Rate Spread",     "%",      Kind::kLinear,       0,     100,   30,    true},
    {Chorus::kDrift,        "$$$/Effects/Chorus/Drift=Drift",                "%",      Kind::kLinear,       0,     100,   25,    true},
    {Chorus::kFeedback,     "$$$/Effects/Chorus/Feedback=Feedback",          "%",      Kind::kLinear,       -80,   80,    0,     true},
    {Chorus::kStereoWidth,  "$$$/Effects/Chorus/StereoWidth=Stereo Width",   "%",      Kind::kLinear,       0,     100,   80,    true},
    {Chorus::kDry,          "$$$/Effects/Chorus/Dry=Dry",                    "%",      Kind::kLinear,       0,     100,   100,   true},
    {Chorus::kWet,          "$$$/Effects/Chorus/Wet=Wet",                    "%",      Kind::kLinear,       0,     100,   60,    true},
    {Chorus::kWetLowCut,    "$$$/Effects/Chorus/WetLowCut=Wet Low Cut",      "Hz",     Kind::kLogarithmic,  20,    1000,  120,   true},
    {Chorus::kWetHighCut,   "$$$/Effects/Chorus/WetHighCut=Wet High Cut",    "Hz",     Kind::kLogarithmic,  1000,  24000, 12000, true},
}};
constexpr std::array kPresets{
    //        name key                                                                       voices delay spread depth rate rate spread drift feedback width dry wet low cut high cut
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                             4,     14,    6,     12,    0.6,   30,    25,    0,     80,    100,   60,    120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/Classic2=Classic 2",                        2,     14,    6,     8,     0.8,   30,    25,    0,     80,    100,   60,    120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/TwelveString=Twelve String",                3,     6,     2,     6,     0.6,   30,    25,    0,     80,    100,   80,    120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/RichChoir=Rich Choir",                      8,     22,    18,    18,    0.3,   30,    70,    0,     80,    100,   60,    120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/WarmBass=Warm Bass",                        2,     14,    6,     6,     0.6,   30,    25,    0,     80,    100,   40,    250,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/WideSynth=Wide Synth",                      6,     14,    6,     15,    0.6,   30,    25,    0,     100,   100,   60,    120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/Vibrato=Vibrato",                           1,     14,    6,     30,    5,     30,    25,    0,     80,    0,     100,   120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/Seasick=Seasick",                           1,     14,    6,     90,    0.7,   30,    25,    0,     80,    100,   60,    120,   12000),
    PresetRow("$$$/AudioComponents/ChorusPresets/SubtleDouble=Subtle Double",                1,     28,    6,     4,     0.6,   30,    80,    0,     80,    100,   50,    120,   12000),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/ChorusTitle=Chorus", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

float OnePoleCoefficient(double frequencyHz, double rateHz) {
    return static_cast<float>(-std::expm1(-2.0 * std::numbers::pi * frequencyHz / rateHz));
}

/// Where a voice stands, from -1 to 1: in turn left and right, from the outside in.
float GetPlace(int voice, int count) {
    if (count % 2 == 1 && voice == count - 1) return 0.0f;
    const int pair = voice / 2;
    const float inwards = 1.0f - static_cast<float>(2 * pair) / static_cast<float>(count);
    return voice % 2 == 0 ? -inwards : inwards;
}

}  // namespace

/// What the audio thread works from; a pure function of the parameter values.
struct Chorus::Settings {
    ChorusDSP::Settings chorus;
    ChorusDSP::Rates rates{};
};

Chorus::Chorus()
    : TableDriven(kTables, kChorusComponentID, kMaxChannelCount),
      channelCount_(GetNumberOfOutputChannels()),
      dsp_(std::make_unique<ChorusDSP>()) {
    SetupParameterInfos();
    Prepare();
}

Chorus::~Chorus() { Unsubscribe(); }

void Chorus::SetupParameterInfos() { RegisterParameterInfos(); }

double Chorus::RateHz() const { return std::max(1.0, static_cast<double>(GetSampleRate())); }

Chorus::Settings Chorus::DeriveSettings() const {
    Settings settings;
    const int count = static_cast<int>(std::lround(Value(kVoices)));
    const auto framesPerMs = static_cast<float>(RateHz() / 1000.0);
    for (int v = 0; v < count; ++v) {
        const float spread =
            count > 1 ? static_cast<float>(v) / static_cast<float>(count - 1) : 0.5f;
        ChorusDSP::Voice& voice = settings.chorus.voices[static_cast<std::size_t>(v)];
        const float delayMs = Value(kDelay) + (count > 1 ? Value(kDelaySpread) * spread : 0.0f);
        const float rateHz = Value(kRate) * (1.0f + Value(kRateSpread) / 100.0f * (spread - 0.5f));
        const float swingMs = std::min(Value(kDepth) / 1200.0f * std::numbers::ln2_v<float> /
                                           (2.0f * std::numbers::pi_v<float> * rateHz) * 1000.0f,
                                       kMostOfDelay * delayMs);
        const float driftMs =
            std::min(Value(kDrift) / 100.0f * kFullDriftMs, kMostOfDelay * delayMs - swingMs);
        voice.delayFrames = delayMs * framesPerMs;
        voice.swingFrames = swingMs * framesPerMs;
        voice.driftFrames = driftMs * framesPerMs;
        settings.rates[static_cast<std::size_t>(v)] = rateHz * ChorusDSP::kControlFrames / RateHz();
        const float angle = (GetPlace(v, count) * Value(kStereoWidth) / 100.0f + 1.0f) *
                            std::numbers::pi_v<float> / 4.0f;
        const float scale =
            std::sqrt((channelCount_ == 1 ? 1.0f : 2.0f) / static_cast<float>(count));
        voice.gain = channelCount_ == 1
                         ? std::array{scale, 0.0f}
                         : std::array{scale * std::cos(angle), scale * std::sin(angle)};
    }
    settings.chorus.dry = Value(kDry) / 100.0f;
    settings.chorus.wet = Value(kWet) / 100.0f;
    settings.chorus.feedback = Value(kFeedback) / 100.0f;
    settings.chorus.lowCutCoefficient = OnePoleCoefficient(Value(kWetLowCut), RateHz());
    settings.chorus.highCutCoefficient = OnePoleCoefficient(Value(kWetHighCut), RateHz());
    return settings;
}

int Chorus::GetInitialDelay() const { return ChorusDSP::kLatencyFrames; }

int Chorus::GetTail() const {
    const ChorusDSP::Settings settings = DeriveSettings().chorus;
    float longest = 0.0f;
    for (const ChorusDSP::Voice& voice : settings.voices)
        longest = std::max(longest, voice.delayFrames + voice.swingFrames + voice.driftFrames);
    const double feedback = std::fabs(settings.feedback);
    const double trips = feedback > 0.0 ? std::ceil(kTailDb / 20.0 / -std::log10(feedback)) : 0.0;
    // Then the low cut decays.
    const double decay = kTailDb / 20.0 * std::numbers::ln10 * RateHz() /
                         (2.0 * std::numbers::pi * Value(kWetLowCut));
    return static_cast<int>((trips + 1.0) * (longest + 2.0 * ChorusDSP::kLatencyFrames) + decay);
}

// ---- Preparation ----

void Chorus::Prepare() {
    Unsubscribe();  // what the pool fills is about to move
    dsp_->Prepare(channelCount_, RateHz(), static_cast<int>(kLongestDelayMs / 1000.0 * RateHz()),
                  ChorusDSP::kControlFrames);
    isFirstBlock_ = true;
}

void Chorus::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    Prepare();
}

void Chorus::OnNumberOfChannelsChanged(std::size_t channels) {
    channelCount_ = channels;
    Prepare();
}

void Chorus::Resume() {
    TableDriven::Resume();
    isFirstBlock_ = true;
    if (!isSubscribed_) EffectThreadPool::SubscribeEffect(this);
    isSubscribed_ = true;
}

void Chorus::Suspend() {
    TableDriven::Suspend();
    Unsubscribe();
}

void Chorus::Unsubscribe() {
    if (isSubscribed_) EffectThreadPool::UnsubscribeEffect(this);
    isSubscribed_ = false;
}

// ---- Processing ----

void Chorus::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (const bool changed = TakeSettingsDirty(); changed || isFirstBlock_) {
        const Settings settings = DeriveSettings();
        isFirstBlock_ ? dsp_->Reset(settings.chorus, settings.rates)
                      : dsp_->GlideTo(settings.chorus, settings.rates);
        isFirstBlock_ = false;
    }
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        dsp_->Process(from, to, count);
    });
    if (isSubscribed_ && dsp_->TakeDriftRequest()) EffectThreadPool::ScheduleEffect(this);
}

void Chorus::ScheduledFunction() { dsp_->FillDrift(); }

}  // namespace zuc::components
