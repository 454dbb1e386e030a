#include "Components/Noise.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "Components/private/OfflineJob.h"
#include "Components/private/generators/NoiseDSP.h"
#include "kraaudiodsp/Units.h"

namespace zuc::components {
namespace {

constexpr double kFadeSeconds = 0.05;
constexpr double kAssumedRateHz = 48000.0;  // until the host says
constexpr std::uint64_t kDrawnSeedBit = std::uint64_t{1}
                                        << 63;  // keeps drawn seeds from those one can set

constexpr std::array kColors{
    EnumEntry{"$$$/Effects/Noise/White=White"},   EnumEntry{"$$$/Effects/Noise/Pink=Pink"},
    EnumEntry{"$$$/Effects/Noise/Brown=Brown"},   EnumEntry{"$$$/Effects/Noise/Blue=Blue"},
    EnumEntry{"$$$/Effects/Noise/Violet=Violet"}, EnumEntry{"$$$/Effects/Noise/Grey=Grey"},
    EnumEntry{"$$$/Effects/Noise/Custom=Custom"}};
constexpr std::array kRelations{EnumEntry{"$$$/Effects/Noise/Same=Same"},
                                EnumEntry{"$$$/Effects/Noise/Independent=Independent"},
                                EnumEntry{"$$$/Effects/Noise/Diffuse=Diffuse"},
                                EnumEntry{"$$$/Effects/Noise/ByCorrelation=By Correlation"}};
constexpr std::array kDistributions{EnumEntry{"$$$/Effects/Noise/Gaussian=Gaussian"},
                                    EnumEntry{"$$$/Effects/Noise/Uniform=Uniform"},
                                    EnumEntry{"$$$/Effects/Noise/Triangular=Triangular"}};

// clang-format off
constexpr std::array<ParameterRow, Noise::kParameterCount> kParameters{{
    // index                    name key                                              unit      kind            lo      hi     initial auto  role            choices
    {Noise::kColor,             "$$$/Effects/Noise/Color=Color",                      "",       Kind::kEnum,    0,      6,     1,      true, Role::kControl, kColors},
    {Noise::kSlopeDbPerOctave,  "$$$/Effects/Noise/Slope=Slope",                      "dB/oct", Kind::kLinear,  -12,    12,    -3},
    {Noise::kLevelDb,           "$$$/Effects/Noise/Level=Level",                      "dB",     Kind::kLinear,  -120,   0,     -20},
    {Noise::kChannels,          "$$$/Effects/Noise/Channels=Channels",                "",       Kind::kEnum,    0,      3,     1,      true, Role::kControl, kRelations},
    {Noise::kCorrelation,       "$$$/Effects/Noise/Correlation=Correlation",          "",       Kind::kLinear,  -1,     1,     0},
    {Noise::kDistribution,      "$$$/Effects/Noise/Distribution=Distribution",        "",       Kind::kEnum,    0,      2,     0,      true, Role::kControl, kDistributions},
    {Noise::kOffsetPercent,     "$$$/Effects/Noise/DC=DC",                            "%",      Kind::kLinear,  -100,   100,   0},
    {Noise::kSeed,              "$$$/Effects/Noise/Seed=Seed",                        "",       Kind::kLinear,  0,      65535, 0},
    {Noise::kLowLimitHz,        "$$$/Effects/Noise/LowLimit=Low Limit",               "Hz",     Kind::kLinear,  0,      20000, 0},
    {Noise::kHighLimitHz,       "$$$/Effects/Noise/HighLimit=High Limit",             "Hz",     Kind::kLinear,  20,     96000, 96000},
    {Noise::kDurationSeconds,   "$$$/Effects/Noise/Duration=Duration",                "s",      Kind::kLinear,  0.001f, 86400, 10},
    {Noise::kPeakLimitDb,       "$$$/Effects/Noise/PeakLimit=Peak Limit",             "dB",     Kind::kLinear,  -24,    0,     0},
}};
constexpr std::array kPresets{
    //        name key                                                                    color slope level chan corr dist dc seed low   high   seconds peak
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                           1,   -3,   -20,  1,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/White=White -20 dB",                       0,   -3,   -20,  1,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/PinkSpeakerTest=Pink Speaker Test",        1,   -3,   -20,  0,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/BrownSleep=Brown Sleep",                   2,   -3,   -24,  1,   0,   0,   0, 0,   20,   96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/BlueDither=Blue Dither",                   3,   -3,   -90,  1,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/Violet=Violet",                            4,   -3,   -20,  1,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/Grey=Grey",                                5,   -3,   -20,  1,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/Rumble=Rumble 20-80 Hz",                   1,   -3,   -20,  1,   0,   0,   0, 0,   20,   80,    10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/Hiss=Hiss 4k-20k",                         0,   -3,   -40,  1,   0,   0,   0, 0,   4000, 20000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/RoomTone=Room Tone",                       6,   -4.5, -58,  2,   0,   0,   0, 0,   0,    96000, 10,     0),
    PresetRow("$$$/AudioComponents/NoisePresets/SpeechWeighted=Speech-Weighted",           6,   -6,   -20,  1,   0,   0,   0, 0,   100,  8000,  10,     0),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/NoiseTitle=Generate Noise", kParameters,
                               kPresets};
static_assert(IsWellFormed(kTables));

/// What new noise starts from: drawn once for the process, counted on from there. [host]
std::atomic<std::uint64_t>& GetSeedCounter() {
    static std::atomic<std::uint64_t> counter{[] {
        std::random_device device;
        return (static_cast<std::uint64_t>(device()) << 32) | device();
    }()};
    return counter;
}

}  // namespace

/// What plays: two voices, of which the second is the noise before the last change, and the offline job.
struct Noise::Player {
    NoiseSettings settings;
    std::size_t channelCount = 2;
    double rateHz = kAssumedRateHz;
    NoiseDSP prepared;  // for rate and channels; what others start as
    NoiseDSP voice;
    NoiseDSP oldVoice;
    std::vector<float> oldSamples;  // kMaxPieceFrames a channel
    std::vector<float*> oldChannels;
    int fadeFrames = 1;
    int fadeFramesLeft = 0;
    std::atomic<std::uint64_t>* seedCounter = &GetSeedCounter();
    OfflineJob job;  // last: what it uses must outlive it

    void Prepare();
    std::uint64_t DrawSeed(const NoiseSettings& of) const;
    void Restart(const NoiseSettings& newSettings);
    void FadeTo(const NoiseSettings& newSettings);
    void Play(float* const* out, int frames);
};

namespace {

/// Writes `total` frames; looks often whether it was cancelled, since 32 diffuse channels take their time.
bool Write(NoiseDSP& noise, std::size_t channels, std::int64_t total, OfflineJob::Run& run) {
    constexpr long kPieceFrames = 512;
    std::vector<float> block(channels * OfflineJob::kBlockFrames);
    std::vector<float*> starts(channels);
    std::vector<float*> piece(channels);
    for (std::size_t c = 0; c < channels; ++c)
        starts[c] = block.data() + c * OfflineJob::kBlockFrames;
    for (std::int64_t done = 0; done < total;) {
        const auto frames =
            static_cast<long>(std::min<std::int64_t>(total - done, OfflineJob::kBlockFrames));
        for (long made = 0; made < frames; made += kPieceFrames) {
            if (run.IsCancelled()) return false;
            for (std::size_t c = 0; c < channels; ++c) piece[c] = starts[c] + made;
            noise.Process(piece.data(), static_cast<int>(std::min(frames - made, kPieceFrames)));
        }
        if (!run.Write(starts.data(), frames)) return false;
        done += frames;
        run.ReportProgress(static_cast<double>(done) / static_cast<double>(total));
    }
    return true;
}

}  // namespace

Noise::Noise() : TableDriven(kTables, kNoiseComponentID, kMaxChannelCount), player_(new Player) {
    SetupParameterInfos();
    player_->Prepare();
}

Noise::~Noise() = default;

void Noise::SetupParameterInfos() { RegisterParameterInfos(); }

NoiseSettings Noise::DeriveSettings() const {
    NoiseSettings settings;
    settings.coloring.color = static_cast<dsp::NoiseColor>(Choice(kColor));
    settings.coloring.slopeDbPerOctave = Value(kSlopeDbPerOctave);
    settings.coloring.lowHz = Value(kLowLimitHz);
    settings.coloring.highHz = Value(kHighLimitHz);
    settings.distribution = static_cast<dsp::NoiseDistribution>(Choice(kDistribution));
    settings.relation = static_cast<NoiseRelation>(Choice(kChannels));
    settings.correlation = Value(kCorrelation);
    settings.level = dsp::DbToGain(Value(kLevelDb));
    settings.offset = Value(kOffsetPercent) / 100.0f;
    settings.limit = dsp::DbToGain(Value(kPeakLimitDb));
    settings.seed = Choice(kSeed);
    return settings;
}

// ---- Preparation ----

void Noise::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    if (rateHz <= 0.0f || player_->rateHz == static_cast<double>(rateHz)) return;
    player_->rateHz = rateHz;
    player_->Prepare();
}

void Noise::OnNumberOfChannelsChanged(std::size_t channels) {
    player_->channelCount = channels;
    player_->Prepare();
}

void Noise::Player::Prepare() {
    prepared.Prepare(channelCount, rateHz);
    voice = prepared;
    voice.Start(settings, DrawSeed(settings), false);
    oldVoice = voice;
    fadeFramesLeft = 0;
    oldSamples.resize(channelCount * kMaxPieceFrames);
    oldChannels.resize(channelCount);
    for (std::size_t c = 0; c < channelCount; ++c)
        oldChannels[c] = oldSamples.data() + c * kMaxPieceFrames;
    fadeFrames = std::max(1, static_cast<int>(kFadeSeconds * rateHz + 0.5));
}

void Noise::Resume() {
    TableDriven::Resume();
    TakeSettingsDirty();
    player_->Restart(DeriveSettings());
}

// ---- Block by block ----

std::uint64_t Noise::Player::DrawSeed(const NoiseSettings& of) const {
    return of.seed > 0 ? static_cast<std::uint64_t>(of.seed)
                       : seedCounter->fetch_add(1) | kDrawnSeedBit;
}

void Noise::Player::Restart(const NoiseSettings& newSettings) {
    settings = newSettings;
    voice.Start(settings, DrawSeed(settings), true);
    fadeFramesLeft = 0;
}

/// The noise with new settings fades in over what was heard so far.
void Noise::Player::FadeTo(const NoiseSettings& newSettings) {
    if (newSettings == settings) return;
    settings = newSettings;
    std::swap(voice, oldVoice);
    voice.Start(settings, DrawSeed(settings), false);
    fadeFramesLeft = fadeFrames;
}

void Noise::Process(float** in, float** out, int frames, Flags, Flags&) {
    // A change during a fade waits for its end.
    if (player_->fadeFramesLeft == 0 && TakeSettingsDirty()) player_->FadeTo(DeriveSettings());
    ProcessGuarded(in, out, frames, [this](const float* const*, float* const* to, int count) {
        player_->Play(to, count);
    });
}

void Noise::Player::Play(float* const* out, int frames) {
    voice.Process(out, frames);
    const int fading = std::min(frames, fadeFramesLeft);
    if (fading == 0) return;
    oldVoice.Process(oldChannels.data(), fading);
    const double step = 0.5 * std::numbers::pi / fadeFrames;
    for (int i = 0; i < fading; ++i) {
        const double angle = step * (fadeFramesLeft - i);
        const auto oldGain = static_cast<float>(std::sin(angle));
        const auto newGain = static_cast<float>(std::cos(angle));
        for (std::size_t c = 0; c < channelCount; ++c)
            out[c][i] = newGain * out[c][i] + oldGain * oldChannels[c][i];
    }
    fadeFramesLeft -= fading;
}

// ---- Offline ----

void Noise::SetOfflineReader(boost::intrusive_ptr<OfflineIInterface> reader) {
    player_->job.SetReader(std::move(reader));
}

void Noise::SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface> writer) {
    player_->job.SetWriter(std::move(writer));
}

void Noise::SetProgressHandler(float volatile* progressPercent) {
    player_->job.SetProgressHandler(progressPercent);
}

void Noise::Cancel() { player_->job.Cancel(); }

bool Noise::OfflineProcessFinished() { return player_->job.IsFinished(); }

int Noise::OfflineProcess(float**, float** out, int, int outFrames, int) {
    return player_->job.Drain(out, outFrames);
}

bool Noise::OfflineRun(std::int64_t start, std::int64_t end) {
    const double rateHz = player_->rateHz;
    const std::int64_t total =
        end > start ? end - start
                    : std::llround(static_cast<double>(Value(kDurationSeconds)) * rateHz);
    const NoiseSettings settings = DeriveSettings();
    const std::uint64_t seed = player_->DrawSeed(settings);
    const std::size_t channels = player_->channelCount;
    // The run has noise of its own: Process may go on meanwhile.
    const auto noise = std::make_shared<NoiseDSP>(player_->prepared);
    return player_->job.Start([=](OfflineJob::Run& run) {
        noise->Start(settings, seed, true);
        return Write(*noise, channels, total, run);
    });
}

}  // namespace zuc::components
