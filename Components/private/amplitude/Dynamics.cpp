#include "Components/Dynamics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <string_view>

#include "Components/ParameterInfos.h"
#include "Components/private/amplitude/DynamicsDSP.h"
#include "kraaudiodsp/Units.h"
#include "kracore/Localizer.h"

namespace zuc::components {
namespace {

constexpr float kRampSeconds = 0.01f;
constexpr float kAssumedRateHz = 44100.0f;  // until the host sets one
constexpr float kLowestCutoffHz = 20.0f;
constexpr float kLargestLookaheadMs = 500.0f;
constexpr int kExtraLatencyFrames = 32;
constexpr int kDefaultHalfTaps = 160;
constexpr int kMaxHalfTaps = 256;
constexpr double kPeriodsInHalfFilter = 1.5;  // of the lower edge
constexpr double kLowestEdgeHz = 40.0;        // that decides the filter's length
constexpr double kEnvelopeRest = 0.01;        // of a step that is left after an envelope's time

// clang-format off
constexpr std::array kParameters{
    //           index                      name key                                                                       unit  kind           lo    hi      initial auto   role
    ParameterRow{Dynamics::kLevelAttackMs,  "$$$/Effects/Dynamics/LeveAttackTime=Level Detector - Attack Time",            "ms", Kind::kLinear, 0,    500,    24},
    ParameterRow{Dynamics::kLevelReleaseMs, "$$$/Effects/Dynamics/LevelReleaseTime=Level Detector - Release Time",         "ms", Kind::kLinear, 0,    2000,   100},
    ParameterRow{Dynamics::kGainAttackMs,   "$$$/Effects/Dynamics/GainAttackTime=Gain Processor - Attack Time",            "ms", Kind::kLinear, 0,    500,    0.5f},
    ParameterRow{Dynamics::kGainReleaseMs,  "$$$/Effects/Dynamics/GainReleaseTime=Gain Processor - Release Time",          "ms", Kind::kLinear, 0,    2000,   300},
    ParameterRow{Dynamics::kLookaheadMs,    "$$$/Effects/Dynamics/LookaheadTime=Lookahead Time",                           "ms", Kind::kLinear, 0,    kLargestLookaheadMs, 3, false},
    ParameterRow{Dynamics::kInputGainDb,    "$$$/Effects/Dynamics/InputGain=Input Gain",                                   "dB", Kind::kLinear, -48,  48,     0},
    ParameterRow{Dynamics::kOutputGainDb,   "$$$/Effects/Dynamics/OutputGain=Output Gain",                                 "dB", Kind::kLinear, -48,  48,     0},
    ParameterRow{Dynamics::kLowCutoffHz,    "$$$/Effects/Dynamics/LowCutoff=Low Cutoff",                                   "Hz", Kind::kLinear, kLowestCutoffHz, kAssumedRateHz / 2, kLowestCutoffHz, false},
    ParameterRow{Dynamics::kHighCutoffHz,   "$$$/Effects/Dynamics/HighCutoff=High Cutoff",                                 "Hz", Kind::kLinear, kLowestCutoffHz, kAssumedRateHz / 2, kAssumedRateHz / 2, false},
    ParameterRow{Dynamics::kLockFilter,     "$$$/Effects/Dynamics/LockFilter=Lock Filter",                                 "",   Kind::kLinear, 0,    1,      0,      false, Role::kDisplay},
    ParameterRow{Dynamics::kXYCount,        "$$$/Effects/Dynamics/XYCount=Number of X/Y Pairs", "$$$/Effects/Dynamics/pairs=pairs", Kind::kLinear, 0, 7,   3,      false, Role::kCount},
    ParameterRow{Dynamics::kLinkChannels,   "$$$/Effects/Dynamics/LinkChannels=Link Channels",                             "",   Kind::kBool,   0,    1,      0,      true,  Role::kControl, {}, "$$$/Effects/Dynamics/On=On", "$$$/Effects/Dynamics/Off=Off"},
    ParameterRow{Dynamics::kPeakRms,        "$$$/Effects/Dynamics/PeakRMS=Peak/RMS",                                       "",   Kind::kBool,   0,    1,      1,      true,  Role::kControl, {}, "$$$/Effects/Dynamics/On=On", "$$$/Effects/Dynamics/Off=Off"},
    ParameterRow{Dynamics::kEnvelopeOnly,   "$$$/Effects/Dynamics/EnvelopeOnly=Envelope Only",                             "",   Kind::kLinear, 0,    1,      0,      false, Role::kSwitch},
    ParameterRow{Dynamics::kSplineCurves,   "$$$/Effects/Dynamics/SplineCurves=Spline Curves",                             "",   Kind::kBool,   0,    1,      0,      true,  Role::kControl, {}, "$$$/Effects/Dynamics/On=On", "$$$/Effects/Dynamics/Off=Off"},
    ParameterRow{Dynamics::kNoiseGating,    "$$$/Effects/Dynamics/NoiseGatingIf=Noise Gating (if expanding more than 50:1)", "", Kind::kLinear, 0,    1,      0,      false, Role::kSwitch},
    ParameterRow{Dynamics::kCurrentTab,     "$$$/Effects/Dynamics/CurrentTab=Current Tab",                                 "",   Kind::kLinear, 0,    1,      0,      false, Role::kDisplay},
    ParameterRow{17, "$$$/Effects/Dynamics/Location1=Location1", "dB", Kind::kLinear, -100, 0, -100, false},
    ParameterRow{18, "$$$/Effects/Dynamics/Value1=Value1",       "dB", Kind::kLinear, -100, 0, -100, false},
    ParameterRow{19, "$$$/Effects/Dynamics/Location2=Location2", "dB", Kind::kLinear, -100, 0, -20,  false},
    ParameterRow{20, "$$$/Effects/Dynamics/Value2=Value2",       "dB", Kind::kLinear, -100, 0, -20,  false},
    ParameterRow{21, "$$$/Effects/Dynamics/Location3=Location3", "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{22, "$$$/Effects/Dynamics/Value3=Value3",       "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{23, "$$$/Effects/Dynamics/Location4=Location4", "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{24, "$$$/Effects/Dynamics/Value4=Value4",       "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{25, "$$$/Effects/Dynamics/Location5=Location5", "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{26, "$$$/Effects/Dynamics/Value5=Value5",       "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{27, "$$$/Effects/Dynamics/Location6=Location6", "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{28, "$$$/Effects/Dynamics/Value6=Value6",       "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{29, "$$$/Effects/Dynamics/Location7=Location7", "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{30, "$$$/Effects/Dynamics/Value7=Value7",       "dB", Kind::kLinear, -100, 0, 0,    false},
    ParameterRow{Dynamics::kMakeupGainDb,   "$$$/Effects/Dynamics/MakeupGain=Make-Up Gain",                                "dB", Kind::kLinear, 0,    100,    0},
};
// clang-format on
static_assert(kParameters.size() == Dynamics::kParameterCount);

struct Times {
    float levelAttackMs, levelReleaseMs, gainAttackMs, gainReleaseMs, lookaheadMs;
};
struct Gains {
    float inputDb, outputDb;
};
struct Cutoffs {
    float low, high;  // normalized: their range moves with the sample rate
};
struct Switches {
    float lock, link, rms, envelope, spline, gate, tab;
};
struct CurvePoint {
    float locationDb, valueDb;
};

/// Points that are not listed are (0, 0).
constexpr PresetRow Preset(std::string_view nameKey,
                           Times times,
                           Gains gains,
                           Cutoffs cutoffs,
                           Switches switches,
                           float makeupDb,
                           std::initializer_list<CurvePoint> points) {
    const auto cutoffHz = [](float place) {
        return kLowestCutoffHz + place * (kAssumedRateHz / 2 - kLowestCutoffHz);
    };
    PresetRow row(nameKey, times.levelAttackMs, times.levelReleaseMs, times.gainAttackMs,
                  times.gainReleaseMs, times.lookaheadMs, gains.inputDb, gains.outputDb,
                  cutoffHz(cutoffs.low), cutoffHz(cutoffs.high), switches.lock, points.size(),
                  switches.link, switches.rms, switches.envelope, switches.spline, switches.gate,
                  switches.tab);
    for (const CurvePoint& point : points) {
        row.values[row.count++] = point.locationDb;
        row.values[row.count++] = point.valueDb;
    }
    row.count = Dynamics::kParameterCount;
    row.values[Dynamics::kMakeupGainDb] = makeupDb;
    return row;
}

// clang-format off
constexpr std::array kPresets{
    //                                                                                       level ms    gain ms     look     dB in out   cutoffs, normalized  lock, link, RMS,      make-up, points: in and out dB
    //     name key                                                                          att   rel   att   rel   ahead                                     envelope, spline, gate, tab
    Preset("$$$/AudioComponents/DefaultPresetName=(Default)",                               {   1,  100,   24,  100,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-20, -20}, {0, 0}}),
    Preset("$$$/AudioComponents/DynamicsPresets/31Expander10dB=3:1, Expander < 10dB",       {   1,  300, 0.5f,  500,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-93.9f, -100}, {-38.8f, -96.4f}, {-10, -10}, {0, 0}}),
    Preset("$$$/AudioComponents/DynamicsPresets/BoomyKick=Boomy Kick",                      {   1,  300,   20,  200,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0},  5, {{-100, -95}, {-25, -20}, {0, -15}}),
    Preset("$$$/AudioComponents/DynamicsPresets/BroadcastLimiter=Broadcast Limiter",        {   1,  300,   50,    1,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-30, -30}, {0, -28.5f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/CardboardKickDrum=Cardboard Kick Drum",     {   1,  300,    0,  500,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0}, 15, {{-100, -85}, {-30, -15}, {0, -12}}),
    Preset("$$$/AudioComponents/DynamicsPresets/CardboardSnare=Cardboard Snare",            {   1,  300,   40,  500,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1}, 10, {{-100, -90}, {-45, -35}, {0, -26}}),
    Preset("$$$/AudioComponents/DynamicsPresets/ClassicSoftKnee=Classic Soft Knee",         {   1,  300,   10,  250,    3}, { 0,  0}, {      0,       1}, {0, 1, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-40, -28.3f}, {-24, -17.6f}, {-10, -12}, {0, -10}}),
    Preset("$$$/AudioComponents/DynamicsPresets/Compander=Compander",                       {   1,  300,    0,   40,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-71.6f, -100}, {-40, -36.9f}, {-9, -8.7f}, {0, -6.3f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/DeEsserHard=DeEsser Hard",                  {   1,  300,    1,  400,    2}, { 0,  0}, {0.1807f, 0.5438f}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-35, -35}, {0, -26.3f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/DeEsserLight=DeEsser Light",                {   1,  300,    1,  400,    2}, { 0,  0}, {0.1807f, 0.5438f}, {0, 0, 1, 0, 0, 0, 0},  0, {{-100, -100}, {-24, -24}, {0, -8}}),
    Preset("$$$/AudioComponents/DynamicsPresets/DeEsserMedium=DeEsser Medium",              {   1,  300,    1,  400,    2}, { 0,  0}, {0.1807f, 0.5438f}, {0, 0, 1, 0, 0, 0, 0},  0, {{-100, -100}, {-30, -30}, {0, -15}}),
    Preset("$$$/AudioComponents/DynamicsPresets/DrumMachineLimiter=Drum Machine Limiter",   {   1,  300,   10,  250,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1}, 14, {{-100, -86}, {-18, -4}, {0, -0.7f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/EGuitarGate=E. Guitar Gate",                {   1,  300,    1,  250,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0}, 12, {{-100, -100}, {-49.3f, -100}, {-45.7f, -46.7f}, {-24, -12}, {0, -7.6f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/FastDrums=Fast Drums",                      {   1,  300,   20,   50,    3}, { 0,  2}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  6, {{-100, -94}, {-20, -14}, {0, -6}}),
    Preset("$$$/AudioComponents/DynamicsPresets/FatBass=Fat Bass",                          {   1,  300,   50,   40,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1}, 12, {{-100, -88}, {-30, -18}, {0, -13}}),
    Preset("$$$/AudioComponents/DynamicsPresets/FatSnare=Fat Snare",                        {   1,  300,  100,  200,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0},  0, {{-100, -100}, {-25, -25}, {0, -18.8f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/MaximumPumping=Maximum Pumping",            {   1,  100,   24,  100,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1}, 20, {{-100, -100}, {-75.97f, -27.67f}, {-27.6f, -7.55f}, {0, -6.29f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/NastyGuitar=Nasty Guitar",                  {   1,  300,    2,  750,    7}, { 0, -2}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0}, 14, {{-100, -100}, {-34.7f, -100}, {-29, -20.4f}, {-20, -6}, {0, -2.3f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/NoiseGate10dB=Noise Gate @ 10dB",           {   1,  300,    1,  500,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0},  0, {{-100, -99.7f}, {-19.6f, -95.4f}, {-10, -10}, {0, 0}}),
    Preset("$$$/AudioComponents/DynamicsPresets/NoiseGate20dB=Noise Gate @ 20dB",           {   1,  300,    1,  500,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-93.7f, -100}, {-30.8f, -96.7f}, {-20, -20}, {0, 0}}),
    Preset("$$$/AudioComponents/DynamicsPresets/PickBass=Pick Bass",                        {   1,  300,   15,   54,    3}, { 0,  2}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -46.3f}, {-18, -19}, {0, -1}}),
    Preset("$$$/AudioComponents/DynamicsPresets/RapPresence=Rap Presence",                  {   1,  300,    0,  100,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-73.3f, -100}, {-20, -20}, {0, -13.3f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/RockVocal=Rock Vocal",                      {   1,  300,    0,  100,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0},  2, {{-100, -98}, {-24, -22}, {0, -15.1f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/SlapBass=Slap Bass",                        {   1,  300,   24,  100,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-14, -14}, {0, -7}}),
    Preset("$$$/AudioComponents/DynamicsPresets/SlowDrums=Slow Drums",                      {   1,  300,    0,  120,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-22, -22}, {0, -13.2f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/SmoothVocal=Smooth Vocal",                  {   1,  300,    1,  150,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-20, -20}, {0, -10}}),
    Preset("$$$/AudioComponents/DynamicsPresets/SnareShellRing=Snare Shell Ring",           {   1,  300,    5,   40,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 0}, 20, {{-100, -80}, {-40, -20}, {0, -10}}),
    Preset("$$$/AudioComponents/DynamicsPresets/SoftLimit12dB=Soft Limit -12dB",            {   1,  300,    5,   15,    3}, { 0,  8}, {      0,       1}, {0, 1, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-12, -12}, {0, -11.9f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/SoftLimit24dB=Soft Limit -24dB",            {   1,  300,    5,   15,    3}, { 0, 16}, {      0,       1}, {0, 1, 1, 0, 1, 0, 0},  0, {{-100, -100}, {-24, -24}, {0, -23.8f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/StereoRockMix=Stereo Rock Mix",             {   1,  300,   10,    0,    3}, { 0,  0}, {      0,       1}, {0, 1, 1, 0, 0, 0, 0},  2, {{-100, -98}, {-10, -8}, {0, -3}}),
    Preset("$$$/AudioComponents/DynamicsPresets/ThunderDrums=Thunder Drums",                {   1,  300,   30,   15,    3}, { 0, 12}, {      0,       1}, {0, 1, 1, 0, 0, 0, 0}, 20, {{-100, -100}, {-39.94f, -20.13f}, {0, -17.8f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/VocalLimiter=Vocal Limiter",                {   1,  300,    0,  200,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -100}, {-8, -8}, {0, -6.7f}}),
    Preset("$$$/AudioComponents/DynamicsPresets/VoiceOver=Voice Over",                      {   1,  300,    0,  150,    3}, { 0,  0}, {      0,       1}, {0, 0, 1, 0, 0, 0, 1},  0, {{-100, -57.5f}, {-15, -15}, {0, -9}}),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/DynamicsProcessingTitle=Dynamics Processing",
                               kParameters, kPresets};
static_assert(IsWellFormed(kTables));

/// Weight of the new value in each frame of an envelope that does 99 % of a step in `ms`.
double EnvelopeWeight(float ms, double rateHz) {
    return 1.0 - std::pow(kEnvelopeRest, 1000.0 / (static_cast<double>(ms) * rateHz));
}

}  // namespace

/// What the detector hears: edges in Hz, and the half-length of the filter that cuts them.
struct Dynamics::Band {
    double lowHz;
    double highHz;
    int halfTaps;
    bool isLimited;
};

/// What the audio thread works from; a pure function of the parameter values.
struct Dynamics::Derived : DynamicsDSP::Settings {};

Dynamics::Dynamics()
    : TableDriven(kTables, kDynamicsComponentID, kMaxChannelCount),
      dsp_(std::make_unique<DynamicsDSP>()) {
    SetupParameterInfos();
    OnNumberOfChannelsChanged(GetNumberOfOutputChannels());
}

Dynamics::~Dynamics() = default;

void Dynamics::SetupParameterInfos() {
    RegisterParameterInfos();
    MoveCutoffBounds();
}

float Dynamics::RateHz() const { return GetSampleRate() > 0.0f ? GetSampleRate() : kAssumedRateHz; }

void Dynamics::MoveCutoffBounds() {
    for (const int index : {kLowCutoffHz, kHighCutoffHz})
        static_cast<GenericParameterInfo*>(GetParameterInfo(index).get())
            ->SetHiBound(RateHz() / 2.0f);
    NormalizeValues();
}

// ---- Settings ----

Dynamics::Band Dynamics::DeriveBand() const {
    const double rateHz = RateHz();
    Band band{std::min(Value(kLowCutoffHz), Value(kHighCutoffHz)),
              std::max(Value(kLowCutoffHz), Value(kHighCutoffHz)), kDefaultHalfTaps, true};
    const bool isEmpty = band.highHz < 2.0 || band.lowHz >= rateHz / 2.0;
    if (isEmpty) {
        band.lowHz = 0.0;
        band.highHz = rateHz / 2.0;
    }
    if (band.lowHz >= kLowestEdgeHz)
        band.halfTaps = static_cast<int>(kPeriodsInHalfFilter * rateHz / band.lowHz);
    else if (band.highHz >= kLowestEdgeHz)
        band.halfTaps = static_cast<int>(kPeriodsInHalfFilter * rateHz / band.highHz);
    band.halfTaps = std::min(band.halfTaps, kMaxHalfTaps);
    band.isLimited = !isEmpty && !(band.lowHz < 20.0001 && band.highHz / rateHz > 0.49);
    return band;
}

int Dynamics::GetInitialDelay() const {
    const auto lookahead =
        static_cast<int>(static_cast<double>(Value(kLookaheadMs)) * RateHz() / 1000.0);
    return lookahead + kExtraLatencyFrames + 2 * DeriveBand().halfTaps + 1;
}

Dynamics::Derived Dynamics::DeriveSettings() const {
    const double rateHz = RateHz();
    const Band band = DeriveBand();
    Derived settings;
    settings.levelAttack = EnvelopeWeight(Value(kLevelAttackMs), rateHz);
    settings.levelRelease = EnvelopeWeight(Value(kLevelReleaseMs), rateHz);
    settings.gainAttack = EnvelopeWeight(Value(kGainAttackMs), rateHz);
    settings.gainRelease = EnvelopeWeight(Value(kGainReleaseMs), rateHz);
    settings.inputGain = dsp::DbToGain(Value(kInputGainDb));
    settings.outputGain = dsp::DbToGain(Value(kOutputGainDb)) * dsp::DbToGain(Value(kMakeupGainDb));
    settings.latencyFrames = GetInitialDelay();
    settings.taps = 2 * band.halfTaps + 1;
    settings.bandLow = band.lowHz / rateHz;
    settings.bandHigh = band.highHz / rateHz;
    settings.isBandLimited = band.isLimited;
    settings.usesRms = IsOn(kPeakRms);
    settings.isLinked = IsOn(kLinkChannels);
    settings.envelopeOnly = IsOn(kEnvelopeOnly);
    settings.curve.count = static_cast<std::size_t>(std::lround(Value(kXYCount)));
    settings.curve.isSpline = IsOn(kSplineCurves);
    settings.curve.gates = IsOn(kNoiseGating);
    for (std::size_t i = 0; i < settings.curve.count; ++i) {
        const int index = kFirstPoint + 2 * static_cast<int>(i);
        settings.curve.points[i] = {Value(index), Value(index + 1)};
    }
    return settings;
}

// ---- Preparation ----

void Dynamics::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    MoveCutoffBounds();
    PrepareBuffers();
}

void Dynamics::RequestIOConfiguration(
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) {
    if (inputs.empty() || inputs.size() > 2 || outputs.size() != 1) return;
    const auto& main = inputs.front();
    const auto side = inputs.size() == 2 ? inputs.back() : kramediatypes::AudioChannelLayout{};
    if (main.empty() || main.size() != outputs.front().size()) return;
    const std::size_t mainChannels = main.size() > kMaxChannelCount ? 1 : main.size();
    if (mainChannels + side.size() > DynamicsDSP::kMaxDetectors) return;
    if (main == GetInputBuses().front().GetLayout() && side == sideLayout_ &&
        outputs.front() == GetOutputBuses().front().GetLayout())
        return;
    sideLayout_ = side;
    TableDriven::RequestIOConfiguration({main}, outputs);
}

void Dynamics::OnNumberOfChannelsChanged(std::size_t) {
    AddInputBus({kracore::config::Localizer::Localize("$$$/Effects/SideChainIn=Side-Chain In"),
                 sideLayout_, kraaudiofilterhost::AudioFilterBusDescription::kSideChain});
    PrepareGuard();
    PrepareBuffers();
}

void Dynamics::PrepareBuffers() {
    const auto maxLookahead = static_cast<int>(kLargestLookaheadMs * RateHz() / 1000.0f);
    dsp_->Prepare(GetNumberOfOutputChannels(), sideLayout_.size(),
                  maxLookahead + kExtraLatencyFrames + DynamicsDSP::kMaxTaps,
                  static_cast<int>(kRampSeconds * RateHz() + 0.5f));
    dsp_->Reset(DeriveSettings());
    MarkSettingsDirty();
}

void Dynamics::Resume() {
    TableDriven::Resume();
    TakeSettingsDirty();
    dsp_->Reset(DeriveSettings());
}

// ---- Processing ----

void Dynamics::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (TakeSettingsDirty()) dsp_->SetSettings(DeriveSettings());
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        dsp_->Process(from, to, count);
    });
}

// ---- Display ----

std::size_t Dynamics::GetCurveData(int curve, std::size_t points, std::vector<float>& samples) {
    samples.clear();
    const TransferCurve::Shape shape = DeriveSettings().curve;
    if (curve != 0 || points == 0 || shape.count == 0) return 0;
    TransferCurve transfer;
    transfer.SetShape(shape);
    samples.resize(points);
    const double lastPoint = std::max(1.0, static_cast<double>(points) - 1.0);
    for (std::size_t i = 0; i < points; ++i)
        samples[i] = static_cast<float>(transfer.GetOutputDb(
            static_cast<double>(i) / lastPoint * 100.0 + TransferCurve::kLowestDb));
    return points;
}

}  // namespace zuc::components
