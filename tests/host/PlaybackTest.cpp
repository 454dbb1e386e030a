#include "host/Playback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "host/Error.h"
#include "host/Render.h"
#include "tests/cli/RunZuc.h"
#include "tests/rtguard/RealTimeGuard.h"

namespace zuc::host {
namespace {

using Signal = std::vector<std::vector<float>>;

class PlaybackTest : public testing::Test {
protected:
    PlaybackTest() { test::WriteNoise(path_, kFrames); }

    struct Job {
        Job(const std::string& path, const std::string& step, const Playback::Options& options = {})
            : reader(AudioReader::Open(path)),
              chain({ParseStepText(step)}, EffectCatalogue(), UserPresets(), 48000.0f, 2, 1024),
              playback(*reader, chain, 48000, options) {}
        std::unique_ptr<AudioReader> reader;
        ChainProcessor chain;
        Playback playback;
    };

    /// Frames until the end, at most `most`; waits where the file would be late, as a device does.
    static Signal Play(Playback& playback, int block, std::size_t most) {
        Signal out(2);
        Signal buffer(2, std::vector<float>(static_cast<std::size_t>(block)));
        float* const channels[] = {buffer[0].data(), buffer[1].data()};
        bool goesOn = true;
        while (goesOn && out[0].size() < most) {
            goesOn = playback.Fill(channels, block);
            for (std::size_t c = 0; c < 2; ++c)
                out[c].insert(out[c].end(), buffer[c].begin(), buffer[c].end());
            if (out[0].size() % 12800 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
        return out;
    }

    static constexpr int kFrames = 200000;  // more than what is read ahead
    test::TemporaryFolder folder_;
    std::string path_ = folder_ / "in.wav";
};

TEST_F(PlaybackTest, SoundsLikeTheRenderedFileLatencyAndTailIncluded) {
    const char* const step = "parametric-equalizer:phase=linear,band-4=on,band-4-gain=6dB";
    const auto reader = AudioReader::Open(path_);
    ChainProcessor chain({ParseStepText(step)}, EffectCatalogue(), UserPresets(), 48000.0f, 2, 512);
    RenderOptions render;
    render.output.path = folder_ / "rendered.wav";
    render.output.samples = SampleFormat::kFloat32;
    const RenderReport report = Render(*reader, chain, 48000, render);
    const auto rendered = AudioReader::Open(render.output.path);
    const auto frames = static_cast<std::size_t>(report.framesOut);
    Signal expected(2, std::vector<float>(frames));
    float* const channels[] = {expected[0].data(), expected[1].data()};
    ASSERT_EQ(rendered->Read(channels, static_cast<int>(frames)), report.framesOut);

    Job job(path_, step);
    job.playback.Start();
    const std::uint64_t before = rtguard::CountFindings();
    const Signal played = Play(job.playback, 64, 1000000);
    EXPECT_EQ(rtguard::CountFindings(), before) << rtguard::DescribeLast();
    const Playback::Status status = job.playback.GetStatus();
    EXPECT_EQ(status.lateBlocks, 0);
    EXPECT_TRUE(status.hasEnded);
    constexpr std::ptrdiff_t kLatency = 4096;
    ASSERT_GE(played[0].size(), frames + kLatency);
    EXPECT_LE(played[0].size(), frames + kLatency + 128) << "ends with the tail";
    for (std::size_t c = 0; c < 2; ++c)
        EXPECT_TRUE(
            std::equal(expected[c].begin(), expected[c].end(), played[c].begin() + kLatency));
}

TEST_F(PlaybackTest, LoopsWithoutAGap) {
    Playback::Options options;
    options.loops = true;
    options.range = {0.5, 1.0};
    Job job(path_, "amplify:gain=0dB", options);
    job.playback.Start();
    const Signal played = Play(job.playback, 512, 100000);
    EXPECT_FALSE(job.playback.GetStatus().hasEnded);
    for (std::size_t i = 24000; i < 100000; ++i)
        ASSERT_EQ(played[1][i], played[1][i % 24000]) << "frame " << i;
    EXPECT_NE(played[1][0], played[1][1]);
}

TEST_F(PlaybackTest, CountsBlocksThatComeLate) {
    Job job(path_, "amplify");  // never started: nobody reads
    const Signal played = Play(job.playback, 64, 640);
    EXPECT_EQ(job.playback.GetStatus().lateBlocks, 10);
    EXPECT_FALSE(job.playback.GetStatus().hasEnded);
    EXPECT_EQ(played[0], std::vector<float>(640)) << "silence meanwhile";
}

TEST_F(PlaybackTest, SettingsReachTheEffectsWhileItPlays) {
    Job job(path_, "amplify:gain=0dB");
    job.playback.Start();
    const EffectCatalogue catalogue;
    const UserPresets presets;
    const Signal before = Play(job.playback, 512, 5120);
    const ChainStep set = job.playback.Set(catalogue, presets, " amplify.gain  -96 dB ");
    EXPECT_EQ(FormatStepText(set), "amplify:gain=-96 dB");
    const Signal after = Play(job.playback, 512, 5120);
    EXPECT_NEAR(after[0][5000], 0.0f, 1e-4f);
    EXPECT_EQ(FormatStepText(job.playback.Set(catalogue, presets, "amplify.preset +3dB Boost")),
              "amplify:preset=+3dB Boost");
    EXPECT_EQ(FormatStepText(job.playback.Set(catalogue, presets, "amplify#1.gain.2=6dB")),
              "amplify:gain.2=6 dB");
    const struct {
        const char* command;
        const char* message;
    } rows[] = {{"amplify", "sets nothing"},
                {"amplify.gain", "sets nothing"},
                {".gain 3", "sets nothing"},
                {"echo.decay-left 40%", "the chain has no echo"},
                {"amplify#2.gain 0dB", "which amplify"},
                {"amplify.gian 0dB", "did you mean 'gain"},
                {"amplify.gain 99dB", "-96 … 48 dB"}};
    for (const auto& row : rows) try {
            job.playback.Set(catalogue, presets, row.command);
            ADD_FAILURE() << row.command;
        } catch (const Error& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(row.message)) << row.command;
        }
}

/// For the thread sanitizer above all: settings, presets and questions while the device's thread plays.
TEST_F(PlaybackTest, TakesSettingsWhileAnotherThreadPlays) {
    Job job(path_, "parametric-equalizer:band-4=on");
    job.playback.Start();
    Signal played;
    std::thread device([&] { played = Play(job.playback, 64, 64000); });
    const EffectCatalogue catalogue;
    const UserPresets presets;
    for (int k = 0; k < 60; ++k)
        for (const char* command :
             {"parametric-equalizer.band-4-gain 6 dB", "parametric-equalizer.phase linear",
              "parametric-equalizer.preset Air", "parametric-equalizer.phase minimum"}) {
            job.playback.Set(catalogue, presets, command);
            EXPECT_GE(job.playback.GetStatus().seconds, 0.0);
        }
    device.join();
    for (const float x : played[0]) ASSERT_LT(std::fabs(x), 8.0f);
}

}  // namespace
}  // namespace zuc::host
