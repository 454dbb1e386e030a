#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>

#include <nlohmann/json.hpp>

#include "RunZuc.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::test {
namespace {

using host::Channels;
using nlohmann::json;
using testing::HasSubstr;

class ProcessTest : public testing::Test {
protected:
    Outcome Process(const std::string& in, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"process", in, out_, "-y"});
        return RunZuc(arguments);
    }
    void Write(const std::string& name,
               const Channels& samples,
               host::SampleFormat format = host::SampleFormat::kFloat32,
               const host::AudioMetadata& metadata = {}) const {
        const int channels = static_cast<int>(samples.size());
        WriteAudio(host::MakeOptions(folder_ / name, channels, format), samples, metadata);
    }
    static Channels Constant(float level, std::size_t frames) {
        return {std::vector<float>(frames, level), std::vector<float>(frames, level)};
    }

    TemporaryFolder folder_;
    std::string out_ = folder_ / "out.wav";
};

TEST_F(ProcessTest, SaysWhatHappenedToTheAudio) {
    constexpr std::size_t kFrames = 48000;
    Write("loud.wav", Constant(0.5f, kFrames), host::SampleFormat::kInt16);
    Write("silent.wav", Constant(0.0f, kFrames));
    Channels broken = Constant(0.25f, kFrames);
    broken[1][7] = std::numeric_limits<float>::quiet_NaN();
    Write("broken.wav", broken);
    host::AudioMetadata cues;
    cues.cues = {{100, "here"}};
    Write("cues.wav", Constant(0.25f, kFrames), host::SampleFormat::kInt16, cues);
    const std::string whole = ReadBytes(folder_ / "loud.wav");
    std::ofstream(folder_ / "cut.wav", std::ios::binary) << whole.substr(0, whole.size() / 2);

    const struct {
        const char* in;
        std::vector<std::string> arguments;
        std::vector<const char*> said;
    } rows[] = {
        {"loud.wav",
         {"-e", "amplify:gain=12dB"},
         {"samples exceed full scale", "were cut off", "lower the level by"}},
        {"loud.wav",
         {"-e", "amplify:gain=12dB", "--bits", "float"},
         {"samples exceed full scale, the first"}},
        {"loud.wav", {"-e", "amplify:gain=12dB", "--on-clip", "normalize"}, {"gain -"}},
        {"loud.wav",
         {"-e", "amplify:gain=12dB", "--on-clip", "limit", "-v"},
         {"limited by up to", "latency  0 frames", "peak"}},
        {"loud.wav",
         {"-e", "hard-limiter", "-v", "--tail", "0.5"},
         {"24000 frames", "frames, removed"}},
        {"loud.wav", {"--measure"}, {"LUFS, true peak"}},
        {"silent.wav", {"--measure", "-v"}, {"no loudness", "silence"}},
        {"silent.wav", {"--loudness", "-16"}, {"silent or shorter than 400 ms"}},
        {"broken.wav", {"-e", "amplify"}, {"1 samples are no finite numbers"}},
        {"cut.wav", {"-e", "amplify"}, {"ends before its header says"}},
        {"cues.wav", {"--format", "flac"}, {"cannot hold all", "cue points (1)"}},
        {"loud.wav",
         {"-e", "echo:preset=Infinite Loop", "-e", "echo:preset=Infinite Loop"},
         {"tail is longer than"}},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Process(folder_ / row.in, row.arguments);
        EXPECT_EQ(outcome.exitCode, 0) << row.in << outcome.err;
        for (const char* said : row.said) EXPECT_THAT(outcome.err, HasSubstr(said)) << row.in;
    }
    const auto report = json::parse(Process(folder_ / "broken.wav", {"--json", "--measure"}).out);
    EXPECT_EQ(report["nonFiniteSamplesIn"], 1);
    EXPECT_EQ(report["output"]["frames"], kFrames);
    EXPECT_NEAR(report["peakDb"].get<double>(), 20.0 * std::log10(0.25), 1e-3);
}

/// The first frame that is quieter than it began.
std::size_t FindDrop(const std::string& path) {
    const auto reader = host::AudioReader::Open(path);
    const std::vector<float> samples = ReadAll(*reader).front();
    const float before = samples[samples.size() / 4];
    for (std::size_t i = samples.size() / 4; i < samples.size(); ++i)
        if (samples[i] < 0.999f * before) return i;
    return samples.size();
}

TEST_F(ProcessTest, CurvesKeepTheirTimeInTheFile) {
    Write("in.wav", Constant(0.25f, 192000));
    const struct {
        std::vector<std::string> arguments;
        double dropFrame;
    } rows[] = {
        {{"-e", "amplify"}, 2 * 48000},
        {{"-e", "hard-limiter:look-ahead=20ms", "-e", "amplify"}, 2 * 48000},
        {{"-e", "amplify", "--range", "1.5..3.5"}, 0.5 * 48000},
        {{"-e", "hard-limiter", "-e", "amplify", "--range", "1..3", "--rate", "24000"}, 24000},
        {{"-e", "amplify", "--range", "1..3", "--rate", "96000"}, 96000},
    };
    for (const auto& row : rows) {
        auto arguments = row.arguments;
        arguments.insert(arguments.end(), {"-a", "amplify.gain:0s=0dB hold,2s=-20dB"});
        const Outcome outcome = Process(folder_ / "in.wav", arguments);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        // A ramp of 10 ms begins there.
        EXPECT_NEAR(static_cast<double>(FindDrop(out_)), row.dropFrame, 20.0) << arguments[1];
    }
}

TEST_F(ProcessTest, DithersWhatIsRoundedTo16BitsUnlessToldOtherwise) {
    Write("in.wav", Constant(0.1f, 4800));
    const struct {
        std::vector<std::string> arguments;
        bool isDithered;
    } rows[] = {
        {{"--bits", "16"}, true},
        {{"--bits", "16", "--no-dither"}, false},
        {{"--bits", "24"}, false},
        {{"--bits", "float"}, false},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Process(folder_ / "in.wav", row.arguments);
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        const std::vector<float> samples = ReadAll(*host::AudioReader::Open(out_)).front();
        const auto [least, most] = std::minmax_element(samples.begin(), samples.end());
        EXPECT_EQ(*least < *most, row.isDithered) << row.arguments[1];
    }
}

TEST_F(ProcessTest, EffectsRunInTheOrderOfTheirArguments) {
    Write("in.wav", Constant(0.1f, 480));
    const std::string chain = folder_ / "chain.json";
    std::ofstream(chain)
        << R"({"schema": "zuc.chain/1", "effects": [{"effect": "echo"}, {"effect": "chorus"}]})";
    const struct {
        std::vector<std::string> arguments;
        std::vector<std::string> effects;
    } rows[] = {
        {{"-e", "amplify", "-e", "delay"}, {"amplify", "delay"}},
        {{"-e", "amplify", "-e", "@" + chain, "-e", "delay"},
         {"amplify", "echo", "chorus", "delay"}},
        {{"-e", "amplify", "--chain", chain}, {"echo", "chorus", "amplify"}},
    };
    for (const auto& row : rows) {
        auto arguments = row.arguments;
        arguments.emplace_back("--json");
        const auto report = json::parse(Process(folder_ / "in.wav", arguments).out);
        std::vector<std::string> effects;
        for (const auto& step : report["chain"]) effects.push_back(step["effect"]);
        EXPECT_EQ(effects, row.effects);
    }
}

}  // namespace
}  // namespace zuc::test
