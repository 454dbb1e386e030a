#include "Components/ParametricEqualizer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <span>
#include <string_view>

#include "Components/private/MultithreadedComponentBaseImpl.h"
#include "Components/private/filters-eq/PhaseTransition.h"
#include "kraaudiodsp/Parametric.h"
#include "kraaudiodsp/Units.h"

namespace zuc::components {

template class MultithreadedComponentBase<dsp::Parametric>;

namespace {

using PE = ParametricEqualizer;
using dsp::BandType;

constexpr int kMaxChannelCount = 32;
constexpr double kProportionDb = 12.0;  // a gain of this doubles Q
constexpr double kMostAutoGainDb = 12.0;
constexpr std::array<int, 6> kOrders{1, 2, 3, 4, 6, 8};

// clang-format off
constexpr std::array<EnumEntry, 2> kPhases{{
    {"$$$/Effects/ParametricEqualizer/Minimum=Minimum"},
    {"$$$/Effects/ParametricEqualizer/Linear=Linear"},
}};
constexpr std::array<EnumEntry, 2> kBellLaws{{
    {"$$$/Effects/ParametricEqualizer/ConstantQ=Constant Q"},
    {"$$$/Effects/ParametricEqualizer/ProportionalQ=Proportional Q"},
}};
constexpr std::array<EnumEntry, 8> kTypes{{  // in the order of dsp::BandType
    {"$$$/Effects/ParametricEqualizer/Bell=Bell"},
    {"$$$/Effects/ParametricEqualizer/LowShelf=Low Shelf"},
    {"$$$/Effects/ParametricEqualizer/HighShelf=High Shelf"},
    {"$$$/Effects/ParametricEqualizer/HighPass=High-Pass"},
    {"$$$/Effects/ParametricEqualizer/LowPass=Low-Pass"},
    {"$$$/Effects/ParametricEqualizer/Notch=Notch"},
    {"$$$/Effects/ParametricEqualizer/BandPass=Band-Pass"},
    {"$$$/Effects/ParametricEqualizer/Tilt=Tilt"},
}};
constexpr std::array<EnumEntry, kOrders.size()> kSlopes{{
    {"$$$/Effects/ParametricEqualizer/Slope6=6 dB/oct"},
    {"$$$/Effects/ParametricEqualizer/Slope12=12 dB/oct"},
    {"$$$/Effects/ParametricEqualizer/Slope18=18 dB/oct"},
    {"$$$/Effects/ParametricEqualizer/Slope24=24 dB/oct"},
    {"$$$/Effects/ParametricEqualizer/Slope36=36 dB/oct"},
    {"$$$/Effects/ParametricEqualizer/Slope48=48 dB/oct"},
}};
constexpr std::array<ParameterRow, PE::kParameterCount> kParameters{{
    {PE::kOutputGain,           "$$$/Effects/ParametricEqualizer/OutputGain=Output Gain",                       "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::kPhase,                "$$$/Effects/ParametricEqualizer/Phase=Phase",                                  "",   Kind::kEnum,        0,    1,     0,     false, Role::kControl, kPhases},
    {PE::kBellLaw,              "$$$/Effects/ParametricEqualizer/BellLaw=Bell Law",                             "",   Kind::kEnum,        0,    1,     0,     false, Role::kControl, kBellLaws},
    {PE::kAutoGain,             "$$$/Effects/ParametricEqualizer/AutoGain=Auto Gain",                           "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(0, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band1On=Band 1",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(0, PE::kType),      "$$$/Effects/ParametricEqualizer/Band1Type=Band 1 Type",                        "",   Kind::kEnum,        0,    7,     3,     false, Role::kControl, kTypes},
    {PE::At(0, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band1Frequency=Band 1 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 30,    true},
    {PE::At(0, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band1Gain=Band 1 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(0, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band1Q=Band 1 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    0.71f, true},
    {PE::At(0, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band1Slope=Band 1 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(1, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band2On=Band 2",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(1, PE::kType),      "$$$/Effects/ParametricEqualizer/Band2Type=Band 2 Type",                        "",   Kind::kEnum,        0,    7,     1,     false, Role::kControl, kTypes},
    {PE::At(1, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band2Frequency=Band 2 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 100,   true},
    {PE::At(1, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band2Gain=Band 2 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(1, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band2Q=Band 2 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    0.71f, true},
    {PE::At(1, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band2Slope=Band 2 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(2, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band3On=Band 3",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(2, PE::kType),      "$$$/Effects/ParametricEqualizer/Band3Type=Band 3 Type",                        "",   Kind::kEnum,        0,    7,     0,     false, Role::kControl, kTypes},
    {PE::At(2, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band3Frequency=Band 3 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 250,   true},
    {PE::At(2, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band3Gain=Band 3 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(2, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band3Q=Band 3 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    1,     true},
    {PE::At(2, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band3Slope=Band 3 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(3, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band4On=Band 4",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(3, PE::kType),      "$$$/Effects/ParametricEqualizer/Band4Type=Band 4 Type",                        "",   Kind::kEnum,        0,    7,     0,     false, Role::kControl, kTypes},
    {PE::At(3, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band4Frequency=Band 4 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 600,   true},
    {PE::At(3, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band4Gain=Band 4 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(3, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band4Q=Band 4 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    1,     true},
    {PE::At(3, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band4Slope=Band 4 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(4, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band5On=Band 5",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(4, PE::kType),      "$$$/Effects/ParametricEqualizer/Band5Type=Band 5 Type",                        "",   Kind::kEnum,        0,    7,     0,     false, Role::kControl, kTypes},
    {PE::At(4, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band5Frequency=Band 5 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 1500,  true},
    {PE::At(4, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band5Gain=Band 5 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(4, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band5Q=Band 5 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    1,     true},
    {PE::At(4, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band5Slope=Band 5 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(5, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band6On=Band 6",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(5, PE::kType),      "$$$/Effects/ParametricEqualizer/Band6Type=Band 6 Type",                        "",   Kind::kEnum,        0,    7,     0,     false, Role::kControl, kTypes},
    {PE::At(5, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band6Frequency=Band 6 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 4000,  true},
    {PE::At(5, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band6Gain=Band 6 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(5, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band6Q=Band 6 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    1,     true},
    {PE::At(5, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band6Slope=Band 6 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(6, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band7On=Band 7",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(6, PE::kType),      "$$$/Effects/ParametricEqualizer/Band7Type=Band 7 Type",                        "",   Kind::kEnum,        0,    7,     2,     false, Role::kControl, kTypes},
    {PE::At(6, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band7Frequency=Band 7 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 10000, true},
    {PE::At(6, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band7Gain=Band 7 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(6, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band7Q=Band 7 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    0.71f, true},
    {PE::At(6, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band7Slope=Band 7 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
    {PE::At(7, PE::kOn),        "$$$/Effects/ParametricEqualizer/Band8On=Band 8",                               "",   Kind::kBool,        0,    1,     0,     true},
    {PE::At(7, PE::kType),      "$$$/Effects/ParametricEqualizer/Band8Type=Band 8 Type",                        "",   Kind::kEnum,        0,    7,     4,     false, Role::kControl, kTypes},
    {PE::At(7, PE::kFrequency), "$$$/Effects/ParametricEqualizer/Band8Frequency=Band 8 Frequency",              "Hz", Kind::kLogarithmic, 10,   24000, 18000, true},
    {PE::At(7, PE::kGain),      "$$$/Effects/ParametricEqualizer/Band8Gain=Band 8 Gain",                        "dB", Kind::kLinear,      -24,  24,    0,     true},
    {PE::At(7, PE::kQ),         "$$$/Effects/ParametricEqualizer/Band8Q=Band 8 Q",                              "",   Kind::kLogarithmic, 0.1f, 40,    0.71f, true},
    {PE::At(7, PE::kSlope),     "$$$/Effects/ParametricEqualizer/Band8Slope=Band 8 Slope",                      "",   Kind::kEnum,        0,    5,     1,     false, Role::kControl, kSlopes},
}};

/// A band of a preset, switched on; Q counts for all types but the passes, the slope for these alone.
struct PresetBand {
    int band;
    BandType type;
    float frequencyHz;
    float gainDb;
    float q;
    int slope;  // place in kSlopes
};
/// The initial values with some bands in their places.
constexpr PresetRow MakePreset(std::string_view nameKey, std::initializer_list<PresetBand> bands) {
    PresetRow row(nameKey);
    row.count = kParameters.size();
    for (std::size_t i = 0; i < kParameters.size(); ++i) row.values[i] = kParameters[i].initial;
    for (const PresetBand& band : bands) {
        float* values = &row.values[static_cast<std::size_t>(PE::At(band.band, PE::kOn))];
        values[PE::kOn] = 1.0f;
        values[PE::kType] = static_cast<float>(band.type);
        values[PE::kFrequency] = band.frequencyHz;
        values[PE::kGain] = band.gainDb;
        values[PE::kQ] = band.q;
        values[PE::kSlope] = static_cast<float>(band.slope);
    }
    return row;
}

constexpr std::array kPresets{
    //                                                                                        band type                  Hz     dB     Q      slope
    MakePreset("$$$/AudioComponents/DefaultPresetName=(Default)", {}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/VocalPresence=Vocal Presence", {{0, BandType::kHighPass,  80,    0,     0.71f, 1},
                                                                                               {2, BandType::kBell,      250,   -2.5f, 1,     1},
                                                                                               {3, BandType::kBell,      3000,  3,     0.9f,  1},
                                                                                               {6, BandType::kHighShelf, 10000, 2,     0.71f, 1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/KickTighten=Kick Tighten",     {{2, BandType::kBell,      60,    4,     1.2f,  1},
                                                                                               {3, BandType::kBell,      350,   -5,    1,     1},
                                                                                               {4, BandType::kBell,      4000,  3,     1.4f,  1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/DeMudMix=De-Mud Mix",          {{0, BandType::kHighPass,  30,    0,     0.71f, 1},
                                                                                               {2, BandType::kBell,      280,   -2,    0.8f,  1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/Air=Air",                      {{6, BandType::kHighShelf, 12000, 4,     0.71f, 1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/Telephone=Telephone",          {{0, BandType::kHighPass,  300,   0,     0.71f, 5},
                                                                                               {4, BandType::kBell,      1500,  4,     0.7f,  1},
                                                                                               {7, BandType::kLowPass,   3400,  0,     0.71f, 5}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/LoudnessCurve=Loudness Curve", {{1, BandType::kLowShelf,  90,    6,     0.71f, 1},
                                                                                               {6, BandType::kHighShelf, 9000,  3,     0.71f, 1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/AcousticGuitar=Acoustic Guitar", {{0, BandType::kHighPass,  90,    0,     0.71f, 1},
                                                                                               {2, BandType::kBell,      180,   -3,    1.4f,  1},
                                                                                               {5, BandType::kBell,      5000,  2,     0.8f,  1},
                                                                                               {6, BandType::kHighShelf, 11000, 2,     0.71f, 1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/DialogueClean=Dialogue Clean", {{0, BandType::kHighPass,  100,   0,     0.71f, 4},
                                                                                               {3, BandType::kBell,      400,   -2,    1,     1},
                                                                                               {5, BandType::kBell,      3500,  2.5f,  1,     1}}),
    MakePreset("$$$/AudioComponents/ParametricEqualizerPresets/BrighterTilt=Brighter Tilt",   {{3, BandType::kTilt,      900,   3,     0.71f, 1}}),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/ParametricEqualizerTitle=Parametric Equalizer",
                               kParameters, kPresets};
static_assert(IsWellFormed(kTables));

}  // namespace

/// What the audio thread works from; a pure function of the parameter values.
struct ParametricEqualizer::Settings : PhaseTransition::Settings {};

ParametricEqualizer::ParametricEqualizer()
    : TableDriven(kTables, kParametricEqualizerComponentID, kMaxChannelCount),
      wanted_(std::make_unique<Settings>()),
      transition_(std::make_unique<PhaseTransition>()) {
    SetupParameterInfos();
    transition_->Prepare(RateHz());
    OnNumberOfChannelsChanged(GetNumberOfOutputChannels());
}

ParametricEqualizer::~ParametricEqualizer() = default;

void ParametricEqualizer::SetupParameterInfos() { RegisterParameterInfos(); }

double ParametricEqualizer::RateHz() const {
    return std::max(1.0, static_cast<double>(GetSampleRate()));
}

ParametricEqualizer::Settings ParametricEqualizer::DeriveSettings() const {
    Settings settings;
    for (int k = 0; k < kBandCount; ++k) {
        dsp::ParametricBand& band = settings.bands[static_cast<std::size_t>(k)];
        band.on = IsOn(At(k, kOn));
        band.type = static_cast<BandType>(Choice(At(k, kType)));
        band.frequencyHz = Value(At(k, kFrequency));
        band.gainDb = Value(At(k, kGain));
        band.q = Value(At(k, kQ));
        if (Choice(kBellLaw) == 1 && band.type == BandType::kBell)
            band.q *= 1.0 + std::fabs(band.gainDb) / kProportionDb;
        band.order = kOrders[static_cast<std::size_t>(Choice(At(k, kSlope)))];
    }
    double gainDb = Value(kOutputGain);
    if (IsOn(kAutoGain))
        gainDb -=
            std::clamp(dsp::GetLoudnessChangeDb(settings.bands), -kMostAutoGainDb, kMostAutoGainDb);
    settings.gain = std::pow(10.0, gainDb / 20.0);
    settings.isLinear = Choice(kPhase) == 1;
    return settings;
}

int ParametricEqualizer::GetInitialDelay() const {
    return Choice(kPhase) == 1 ? dsp::LinearPhaseDesign::GetLatency(RateHz()) : 0;
}

int ParametricEqualizer::GetTail() const {
    const Settings settings = DeriveSettings();
    const int tail = dsp::ParametricCurve(settings.bands, settings.gain, RateHz()).GetTail();
    return settings.isLinear && tail > 0 ? dsp::LinearPhaseDesign::GetLatency(RateHz()) : tail;
}

// ---- Preparation ----

void ParametricEqualizer::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    transition_->Prepare(RateHz());
    isFirstBlock_ = true;
}

void ParametricEqualizer::OnNumberOfChannelsChanged(std::size_t channels) {
    TableDriven::OnNumberOfChannelsChanged(channels);
    isFirstBlock_ = true;
}

void ParametricEqualizer::Resume() {
    TableDriven::Resume();
    isFirstBlock_ = true;
}

// ---- Processing ----

void ParametricEqualizer::Process(
    float** in, float** out, int frames, Flags inFlags, Flags& outFlags) {
    const std::span<dsp::Parametric> channels(GetProcessors(), GetProcessorCount());
    if (const bool changed = TakeSettingsDirty(); changed || isFirstBlock_) {
        *wanted_ = DeriveSettings();
        if (isFirstBlock_) transition_->Start(*wanted_, channels);
        isFirstBlock_ = false;
    }
    std::array<float*, kMaxChannelCount> from{};
    std::array<float*, kMaxChannelCount> to{};
    for (int done = 0; done < frames;) {
        const int run = transition_->Advance(*wanted_, channels, frames - done);
        for (std::size_t c = 0; c < channels.size(); ++c) {
            from[c] = in[c] + done;
            to[c] = out[c] + done;
        }
        TableDriven::Process(from.data(), to.data(), run, inFlags, outFlags);
        done += run;
    }
}

// ---- Display ----

std::size_t ParametricEqualizer::GetCurveData(int curve,
                                              std::size_t points,
                                              std::vector<float>& samples) {
    samples.clear();
    if (curve != kMagnitudeCurve || points < 2) return 0;
    const Settings settings = DeriveSettings();
    const double octaves = std::log2(RateHz() / 2.0 / kLowestCurveHz);
    for (std::size_t i = 0; i < points; ++i) {
        const double hz = kLowestCurveHz * std::exp2(octaves * static_cast<double>(i) /
                                                     static_cast<double>(points - 1));
        double magnitude = settings.gain;
        for (const dsp::ParametricBand& band : settings.bands)
            magnitude *= dsp::GetAnalogMagnitude(band, hz, RateHz());
        samples.push_back(static_cast<float>(20.0 * std::log10(std::max(magnitude, 1e-10))));
    }
    return points;
}

}  // namespace zuc::components
