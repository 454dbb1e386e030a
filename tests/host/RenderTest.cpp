#include "host/Render.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>

#include "Components/Library.h"
#include "TestEffects.h"
#include "host/Error.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;
using Audio = std::vector<std::vector<float>>;

constexpr int kRateHz = 48000;
constexpr int kFrames = 4800;

Audio Silence(std::size_t channels, std::size_t frames = kFrames) {
    return Audio(channels, std::vector<float>(frames));
}
Audio Noise(std::size_t channels, float level) {
    std::mt19937 random(7);
    Audio audio = Silence(channels);
    for (auto& channel : audio)
        for (float& x : channel)
            x = level * static_cast<float>(static_cast<double>(random()) / 2147483648.0 - 1.0);
    return audio;
}
float GetPeak(const Audio& audio) {
    float peak = 0.0f;
    for (const auto& channel : audio)
        for (const float x : channel) peak = std::max(peak, std::abs(x));
    return peak;
}

class RenderTest : public testing::Test {
public:
    ~RenderTest() override { fs::remove_all(folder_); }

protected:
    RenderTest() : folder_(testing::TempDir() + "zuc-render-" + std::to_string(::getpid())) {
        fs::create_directories(folder_);
        options_.output.path = Path("out.wav");
    }
    std::string Path(const char* name) const { return (folder_ / name).string(); }

    void WriteInput(const Audio& audio,
                    SampleFormat samples = SampleFormat::kFloat32,
                    const AudioMetadata& metadata = {}) const {
        AudioWriterOptions options;
        options.path = Path("in.wav");
        options.samples = samples;
        options.rateHz = kRateHz;
        options.channels = static_cast<int>(audio.size());
        AudioWriter writer(options, metadata);
        std::vector<const float*> channels;
        for (const auto& channel : audio) channels.push_back(channel.data());
        writer.Write(channels.data(), static_cast<int>(audio.front().size()));
        writer.Commit();
    }

    RenderReport Render(const Chain& chain, int blockFrames = 512, int rateHz = kRateHz) {
        const auto reader = AudioReader::Open(Path("in.wav"));
        ChainProcessor processor(chain, catalogue_, UserPresets(Path("presets")),
                                 static_cast<float>(rateHz),
                                 static_cast<std::size_t>(reader->GetInfo().channels), blockFrames);
        return host::Render(*reader, processor, rateHz, options_);
    }

    Audio ReadOutput() const {
        const auto reader = AudioReader::Open(Path("out.wav"));
        Audio audio = Silence(static_cast<std::size_t>(reader->GetInfo().channels),
                              static_cast<std::size_t>(reader->GetInfo().frames));
        std::vector<float*> channels;
        for (auto& channel : audio) channels.push_back(channel.data());
        EXPECT_EQ(reader->Read(channels.data(), static_cast<int>(audio.front().size())),
                  reader->GetInfo().frames);
        return audio;
    }

    std::string ReadBytes(const char* name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::vector<std::string> ListFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            names.push_back(entry.path().filename());
        return names;
    }

    fs::path folder_;
    RenderOptions options_;
    EffectCatalogue catalogue_{test::GetTestEffects()};
};

TEST_F(RenderTest, AlignsTheOutputWithTheInputAndAddsTheTail) {
    const struct {
        const char* name = "";
        int effects = 0;
        TimeRange range;
        Tail tail;
        int frames = 0;
        int impulse = 0;  // where the one of input frame 1000 comes out
    } rows[] = {
        {"reported tail", 1, {}, {}, kFrames + test::kDelayTailFrames, 1000},
        {"two effects", 2, {}, {}, kFrames + 2 * test::kDelayTailFrames, 1000},
        {"no tail", 1, {}, {Tail::Kind::kNone, 0}, kFrames, 1000},
        {"a second of tail", 1, {}, {Tail::Kind::kSeconds, 1.0}, kFrames + kRateHz, 1000},
        {"no effects", 0, {}, {}, kFrames, 1000},
        {"range", 1, {0.01, 0.05}, {}, 1920 + test::kDelayTailFrames, 520},
        {"open range", 1, {0.02}, {Tail::Kind::kNone, 0}, kFrames - 960, 40},
        {"range past the end", 1, {0.02, 9.0}, {Tail::Kind::kNone, 0}, kFrames - 960, 40},
    };
    Audio impulse = Silence(2);
    impulse[1][1000] = 0.5f;
    WriteInput(impulse);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        options_.range = row.range;
        options_.tail = row.tail;
        const RenderReport report =
            Render(Chain(static_cast<std::size_t>(row.effects), {"test-delay", "", {}}));
        const Audio output = ReadOutput();
        ASSERT_EQ(output[0].size(), static_cast<std::size_t>(row.frames));
        EXPECT_EQ(report.framesOut, row.frames);
        EXPECT_EQ(report.latencyFrames, row.effects * test::kDelayLatencyFrames);
        EXPECT_EQ(GetPeak({output[0]}), 0.0f);
        EXPECT_EQ(output[1][static_cast<std::size_t>(row.impulse)], 0.5f);
        const float later =
            output[1][static_cast<std::size_t>(row.impulse) + test::kDelayTailFrames];
        EXPECT_EQ(later, static_cast<float>(row.effects) * 0.25f);
    }
    options_.range = {1.0, 2.0};
    EXPECT_THROW(Render({}), Error) << "a range behind the end";
}

TEST_F(RenderTest, ChangesTheRateBeforeTheChain) {
    Audio impulse = Silence(1);
    impulse[0][1000] = 0.5f;
    WriteInput(impulse);
    for (const int rateHz : {96000, 44100}) {
        const RenderReport report = Render({{"test-delay", "", {}}}, 512, rateHz);
        const Audio output = ReadOutput();
        EXPECT_EQ(report.output.rateHz, rateHz);
        EXPECT_EQ(static_cast<long>(output[0].size()),
                  std::lround(kFrames * (rateHz / 48000.0)) + test::kDelayTailFrames);
        const auto peak = std::max_element(output[0].begin(), output[0].end()) - output[0].begin();
        EXPECT_EQ(peak, std::lround(1000 * (rateHz / 48000.0)));
    }
}

TEST_F(RenderTest, DoesNotDependOnTheBlockLength) {
    WriteInput(Noise(3, 0.9f), SampleFormat::kInt24);
    for (const OnClip onClip : {OnClip::kWarn, OnClip::kLimit, OnClip::kNormalize}) {
        options_.onClip = onClip;
        options_.output.samples = SampleFormat::kInt16;
        Render({{"test-delay", "", {}}}, 4096);
        const std::string expected = ReadBytes("out.wav");
        for (const int blockFrames : {1, 7, 64, 1000}) {
            Render({{"test-delay", "", {}}}, blockFrames);
            EXPECT_TRUE(ReadBytes("out.wav") == expected) << blockFrames;
        }
    }
}

TEST_F(RenderTest, AnEmptyChainKeepsEveryBit) {
    for (const SampleFormat samples : {SampleFormat::kInt16, SampleFormat::kInt24,
                                       SampleFormat::kInt32, SampleFormat::kFloat32}) {
        WriteInput(Noise(2, 1.0f), samples);
        const RenderReport report = Render({});
        EXPECT_TRUE(ReadBytes("out.wav") == ReadBytes("in.wav")) << report.output.encoding;
    }
}

TEST_F(RenderTest, TreatsSamplesBeyondFullScaleAsAsked) {
    Audio audio = Noise(2, 0.25f);
    audio[1][2000] = -0.8f;
    WriteInput(audio);
    options_.output.samples = SampleFormat::kInt24;
    const Chain louder{{"test-delay", "", {{"level", "+12dB"}}}};  // 3.98 times

    const RenderReport warned = Render(louder);
    EXPECT_GT(warned.overs.count, 0);
    EXPECT_NEAR(warned.overs.peak, 0.8f * 3.98f, 0.6f);

    fs::remove(Path("out.wav"));
    options_.onClip = OnClip::kError;
    try {
        Render(louder);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.GetCode(), ExitCode::kClippedOrFaulty);
    }
    EXPECT_THAT(ListFolder(), testing::ElementsAre("in.wav"));
    EXPECT_NO_THROW(Render({}));

    options_.onClip = OnClip::kLimit;
    const RenderReport limited = Render(louder);
    EXPECT_EQ(limited.overs.count, 0);
    EXPECT_EQ(limited.framesOut, warned.framesOut);
    EXPECT_LT(limited.limiterLowestGainDb, -9.0f);

    options_.onClip = OnClip::kNormalize;
    options_.output.samples = SampleFormat::kFloat32;
    const RenderReport normalized = Render(louder);
    EXPECT_EQ(normalized.overs.count, 0);
    EXPECT_NEAR(GetPeak(ReadOutput()), 1.0f, 1e-6f);
    EXPECT_NEAR(normalized.normalizeGainDb, -20.0f * std::log10(warned.overs.peak), 1e-3f);
    EXPECT_EQ(Render({}).normalizeGainDb, 0.0f) << "what does not clip stays as it is";
}

TEST_F(RenderTest, BringsTheOutputToALoudness) {
    constexpr std::size_t kSeconds = 2;
    Audio quiet = Silence(2, kSeconds * kRateHz);
    std::mt19937 random(5);
    for (auto& channel : quiet)
        for (float& x : channel)
            x = 0.1f * static_cast<float>(static_cast<double>(random()) / 2147483648.0 - 1.0);
    Audio peaky = quiet;
    for (std::size_t i = 4800; i < peaky[0].size(); i += 24000) peaky[0][i] = 0.9f;
    const struct {
        const char* name;
        const Audio& audio;
        double lufs;
        bool isLimited;
    } rows[] = {
        {"down", quiet, -30.0, false},
        {"up", quiet, -16.0, false},
        {"up, with peaks in the way", peaky, -12.0, true},
        {"silence stays", Silence(2, kSeconds * kRateHz), -16.0, false},
    };
    options_.output.samples = SampleFormat::kFloat32;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WriteInput(row.audio);
        options_.loudnessLufs = row.lufs;
        const RenderReport report = Render({{"test-delay", "", {}}});
        ASSERT_TRUE(report.loudness.has_value());
        EXPECT_EQ(report.limiterLowestGainDb < 0.0f, row.isLimited);
        EXPECT_EQ(report.framesOut, kSeconds * kRateHz + test::kDelayTailFrames);
        if (GetPeak(row.audio) == 0.0f) {
            EXPECT_EQ(report.normalizeGainDb, 0.0f);
            EXPECT_FALSE(std::isfinite(report.loudness->integratedLufs));
            continue;
        }
        EXPECT_NEAR(report.loudness->integratedLufs, row.lufs, 0.05);
        EXPECT_LE(report.loudness->truePeak, std::pow(10.0, -0.99 / 20.0));
        EXPECT_GE(report.loudness->truePeak, GetPeak(ReadOutput()));
    }
    options_.loudnessLufs.reset();
    EXPECT_FALSE(Render({}).loudness.has_value()) << "it takes time";
    options_.measuresLoudness = true;
    EXPECT_TRUE(Render({}).loudness.has_value());
    EXPECT_TRUE(ReadBytes("out.wav") == ReadBytes("in.wav")) << "measuring changes nothing";
}

TEST_F(RenderTest, LeavesNothingBehindWhenInterrupted) {
    WriteInput(Noise(2, 0.5f));
    std::atomic<int> interrupted{0};
    options_.interrupted = &interrupted;
    options_.progress = [&](const RenderProgress& progress) {
        EXPECT_EQ(progress.framesTotal, kFrames + test::kDelayTailFrames);
        if (progress.framesDone > 2000) interrupted = 2;
    };
    EXPECT_THROW(Render({{"test-delay", "", {}}}), Interrupted);
    EXPECT_THAT(ListFolder(), testing::ElementsAre("in.wav"));
}

TEST_F(RenderTest, ReportsWhatAPersonShouldKnow) {
    Audio audio = Noise(2, 0.5f);
    audio[0][10] = std::numeric_limits<float>::infinity();
    audio[1][11] = std::numeric_limits<float>::quiet_NaN();
    AudioMetadata metadata;
    metadata.cues = {{100, "early"}, {960, "kept"}, {4000, "late"}};
    metadata.instrument.emplace().loops = {{{}, 100, 900}, {{}, 960, 1440}, {{}, 1000, 4000}};
    WriteInput(audio, SampleFormat::kFloat32, metadata);

    RenderReport report = Render({{"endless", "", {}}});
    EXPECT_EQ(report.nonFiniteSamplesIn, 2);
    EXPECT_TRUE(report.isTailCut);
    EXPECT_EQ(report.tailFrames, std::lround(kMaximumAutoTailSeconds * kRateHz));

    options_.range = {0.01, 0.05};
    report = Render({}, 512, 24000);
    EXPECT_EQ(report.framesIn, 1920);
    const AudioMetadata moved = AudioReader::Open(Path("out.wav"))->GetMetadata();
    const auto& cues = moved.cues;
    ASSERT_EQ(cues.size(), 1u) << "marks outside of the range are gone";
    EXPECT_EQ(cues[0].frame, 240) << "the others count from its start, at the new rate";
    ASSERT_TRUE(moved.instrument);
    ASSERT_EQ(moved.instrument->loops.size(), 1u) << "so are loops that do not lie within it";
    EXPECT_EQ(moved.instrument->loops[0].startFrame, 240);
    EXPECT_EQ(moved.instrument->loops[0].endFrame, 480);
}

class OfflineRenderTest : public RenderTest {
protected:
    OfflineRenderTest() { Initialize(); }
    ~OfflineRenderTest() override { Terminate(); }
};

TEST_F(OfflineRenderTest, MixesOfflineEffectsWithOthers) {
    Audio impulse = Silence(2);
    impulse[1][1000] = 0.5f;
    WriteInput(impulse);
    constexpr int kTail = test::kDelayTailFrames;
    const struct {
        const char* name;
        std::vector<std::string> steps;
        int frames;
        std::vector<std::pair<int, float>> peaks;
    } rows[] = {
        {"alone", {"test-offline"}, kFrames, {{3799, 0.5f}}},
        {"behind", {"test-delay", "test-offline"}, kFrames + kTail, {{3849, 0.5f}, {3799, 0.25f}}},
        {"before", {"test-offline", "test-delay"}, kFrames + kTail, {{3799, 0.5f}, {3849, 0.25f}}},
        {"between",
         {"test-delay", "test-offline", "test-delay"},
         kFrames + 2 * kTail,
         {{3799, 0.25f}, {3849, 0.625f}, {3899, 0.25f}}},
        {"two", {"test-offline", "test-offline"}, kFrames, {{1000, 0.5f}}},
        {"longer",
         {"test-offline:way=double", "test-delay"},
         2 * kFrames + kTail,
         {{3799, 0.5f}, {3849, 0.25f}, {kFrames + 3799, 0.5f}, {kFrames + 3849, 0.25f}}},
    };
    for (const auto& row : rows)
        for (const OnClip onClip : {OnClip::kWarn, OnClip::kLimit, OnClip::kNormalize})
            for (const int blockFrames : {64, 5000}) {
                SCOPED_TRACE(row.name);
                options_.onClip = onClip;
                Chain chain;
                for (const std::string& step : row.steps) chain.push_back(ParseStepText(step));
                const RenderReport report = Render(chain, blockFrames);
                Audio output = ReadOutput();
                ASSERT_EQ(output[0].size(), static_cast<std::size_t>(row.frames));
                EXPECT_EQ(report.framesIn, kFrames);
                EXPECT_EQ(report.completionTexts.empty() ? "" : report.completionTexts.front(),
                          "turned round");
                for (const auto& [frame, value] : row.peaks) {
                    EXPECT_EQ(output[1][static_cast<std::size_t>(frame)], value) << frame;
                    output[1][static_cast<std::size_t>(frame)] = 0.0f;
                }
                EXPECT_EQ(GetPeak(output), 0.0f) << "nothing else";
            }
}

TEST_F(OfflineRenderTest, StopsAtOnceAndTellsOfTheWork) {
    WriteInput(Noise(2, 0.5f));
    std::atomic<int> interrupted{0};
    double lastWork = 0.0;
    std::chrono::steady_clock::time_point stopped;
    options_.interrupted = &interrupted;
    options_.progress = [&](const RenderProgress& progress) {
        if (progress.workDone < 0.0) return;
        EXPECT_GE(progress.workDone, lastWork);
        lastWork = progress.workDone;
        if (lastWork < 0.0025 || interrupted != 0) return;
        interrupted = 2;
        stopped = std::chrono::steady_clock::now();
    };
    EXPECT_THROW(Render({ParseStepText("test-offline:analysis=60000ms")}), Interrupted);
    EXPECT_LT(std::chrono::steady_clock::now() - stopped, std::chrono::milliseconds(100));
    EXPECT_THAT(ListFolder(), testing::ElementsAre("in.wav"));
}

TEST_F(OfflineRenderTest, RefusesWhatCannotBe) {
    WriteInput(Noise(2, 0.5f));
    try {
        Render({ParseStepText("test-offline:way=give-up")});
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.GetCode(), ExitCode::kProcessing);
        EXPECT_EQ(error.GetHint(), "gave up");
    }
    EXPECT_THAT(ListFolder(), testing::ElementsAre("in.wav"));
    ChainStep automated = ParseStepText("test-offline");
    automated.automation = {{"analysis", {{0.0, "1 ms"}}}};
    EXPECT_THROW(Render({automated}), Error);
    const ChainProcessor chain({ParseStepText("test-offline")}, catalogue_, UserPresets(), 48000.0f,
                               2, 64);
    EXPECT_THROW(chain.RequireBlockwise(), Error);
    WriteInput(Silence(2, 0));
    EXPECT_EQ(Render({ParseStepText("test-offline")}).framesOut, 0) << "nothing of nothing";
}

TEST(Tail, ReadsWordsAndTimes) {
    EXPECT_EQ(ParseTail("Auto"), (Tail{Tail::Kind::kAuto, 0}));
    EXPECT_EQ(ParseTail("none"), (Tail{Tail::Kind::kNone, 0}));
    EXPECT_EQ(ParseTail("1:00.5"), (Tail{Tail::Kind::kSeconds, 60.5}));
    for (const char* text : {"", "never", "-1", "inf"})
        EXPECT_THROW(ParseTail(text), Error) << text;
}

/// Noise that cannot be read any further from a frame on.
class FailingSource final : public AudioSource {
public:
    explicit FailingSource(int failsFrom) : failsFrom_(failsFrom) {
        info_.rateHz = kRateHz;
        info_.channels = 2;
        info_.frames = kFrames;
    }
    int Read(float* const* out, int frames) override {
        const int count = std::min(frames, kFrames - position_);
        if (position_ + count > failsFrom_) throw Error(ExitCode::kInput, "the disc is broken");
        for (int c = 0; c < 2; ++c) std::fill_n(out[c], count, 0.25f);
        position_ += count;
        return count;
    }
    void Seek(std::int64_t frame) override { position_ = static_cast<int>(frame); }

private:
    int failsFrom_;
    int position_ = 0;
};

TEST_F(RenderTest, AFaultAtAnyFrameKeepsTheOldFile) {
    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    const Chain chains[] = {{}, {{"test-delay", "", {}}}, {{"test-offline", "", {}}}};
    const struct {
        int failsFrom;
        rlim_t mostBytes;  // that the device takes
        ExitCode code;
    } rows[] = {{0, RLIM_INFINITY, ExitCode::kInput},
                {1, RLIM_INFINITY, ExitCode::kInput},
                {511, RLIM_INFINITY, ExitCode::kInput},
                {513, RLIM_INFINITY, ExitCode::kInput},
                {4799, RLIM_INFINITY, ExitCode::kInput},
                {4800, 0, ExitCode::kOutput},
                {4800, 1, ExitCode::kOutput},
                {4800, 45, ExitCode::kOutput},
                {4800, 9000, ExitCode::kOutput},
                {4800, 19000, ExitCode::kOutput}};
    options_.output.samples = SampleFormat::kInt16;
    for (const Chain& chain : chains)
        for (const auto& row : rows) {
            std::ofstream(Path("out.wav")) << "old";
            FailingSource source(row.failsFrom);
            ChainProcessor processor(chain, catalogue_, UserPresets(""), kRateHz, 2, 512);
            const rlimit limit{row.mostBytes, unlimited.rlim_max};
            setrlimit(RLIMIT_FSIZE, &limit);
            try {
                host::Render(source, processor, kRateHz, options_);
                ADD_FAILURE() << row.failsFrom << ' ' << row.mostBytes;
            } catch (const Error& error) {
                EXPECT_EQ(error.GetCode(), row.code) << error.what();
            }
            setrlimit(RLIMIT_FSIZE, &unlimited);
            EXPECT_EQ(ReadBytes("out.wav"), "old");
            EXPECT_THAT(ListFolder(), testing::ElementsAre("out.wav"));
        }
}

}  // namespace
}  // namespace zuc::host
