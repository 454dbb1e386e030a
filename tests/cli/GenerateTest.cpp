#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <fstream>

#include <nlohmann/json.hpp>

#include "RunZuc.h"
#include "host/AudioReader.h"

namespace zuc::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class GenerateTest : public testing::Test {
protected:
    TemporaryFolder folder_;
    std::string out_ = folder_ / "out.wav";
};

TEST_F(GenerateTest, MakesFilesAsAsked) {
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        int rateHz;
        int channels;
        std::int64_t frames;
        const char* encoding;
    } rows[] = {
        {"as it comes", {}, 48000, 2, 480000, "32-bit float"},
        {"duration", {"--duration", "0.5s", "duration=3s"}, 48000, 2, 24000, "32-bit float"},
        {"the generator's own duration", {"duration=250ms"}, 48000, 2, 12000, "32-bit float"},
        {"format",
         {"--duration", "0:01", "--rate", "44.1k", "--channels", "6", "--bits", "24"},
         44100,
         6,
         44100,
         "24-bit PCM"},
        {"effects behind it",
         {"--duration", "100ms", "-e", "amplify:gain=-6dB", "-e", "noise", "--tail", "1"},
         48000,
         2,
         52800,
         "32-bit float"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments{"generate", "noise", out_, "-y"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const Outcome outcome = RunZuc(arguments);
        ASSERT_EQ(outcome.exitCode, 0) << row.name << outcome.err;
        const host::AudioFileInfo info = host::AudioReader::Open(out_)->GetInfo();
        EXPECT_EQ(info.rateHz, row.rateHz) << row.name;
        EXPECT_EQ(info.channels, row.channels) << row.name;
        EXPECT_EQ(info.frames, row.frames) << row.name;
        EXPECT_EQ(info.encoding, row.encoding) << row.name;
    }
}

TEST_F(GenerateTest, TheSameSeedGivesTheSameFile) {
    const auto make = [&](const char* seed) {
        EXPECT_EQ(RunZuc({"generate", "noise", out_, "-y", "--duration", "1", seed}).exitCode, 0);
        return ReadBytes(out_);
    };
    EXPECT_EQ(make("seed=5"), make("seed=5"));
    EXPECT_NE(make("seed=5"), make("seed=6"));
    EXPECT_NE(make("seed=0"), make("seed=0"));
}

TEST_F(GenerateTest, FaultsAreExplained) {
    const struct {
        std::vector<std::string> arguments;
        const char* message;
    } rows[] = {
        {{"generate", "nois", out_}, "did you mean 'noise'?"},
        {{"generate", "amplify", out_}, "'zuc process' runs it on a file"},
        {{"generate", "noise", out_, "colour=brown"}, "did you mean 'color'?"},
        {{"generate", "noise", out_, "--duration", "0"}, "more than nothing"},
        {{"generate", "noise", out_, "--duration", "soon"}, "soon"},
        {{"generate", "noise", out_, "--channels", "33"}, "from 1 to 32"},
        {{"generate", "noise"}, "OUT is missing"},
        {{"generate", "noise", out_, "--range", "1..2"}, "no option '--range'"},
        {{"generate", "noise", out_, "-a", "noise.level:0=-6dB"}, "cannot be automated"},
        {{"generate", "noise", out_, "--set", "Remix.AvoidLops=1"}, "'Remix.AvoidLoops'?"},
        {{"generate", "noise", out_, "--set", "Remix.AvoidLoops=maybe"}, "true, false"},
        {{"generate", "noise", out_, "--set", "Remix.AvoidLoops"}, "NAME=VALUE"},
        {{"plot", "response", "-e", "noise", "-o", out_ + ".svg"}, "whole at once"},
        {{"console", "IntraClip.Debgu", "1"}, "did you mean 'IntraClip.Debug'?"},
        {{"console", "set", "Remix.Samplerate", "-1"}, "from 1 up"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = RunZuc(row.arguments);
        EXPECT_EQ(outcome.exitCode, 2) << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(row.message));
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_THAT(folder_.List(), testing::IsEmpty());
}

TEST_F(GenerateTest, AnInterruptedJobEndsAtOnceAndLeavesNothing) {
    std::chrono::steady_clock::time_point before;
    const Outcome outcome =
        RunZuc({"generate", "noise", out_, "--duration", "86400"}, "", "", [&](int process) {
            for (int i = 0; i < 1000 && folder_.List().empty(); ++i) ::usleep(10'000);
            before = std::chrono::steady_clock::now();
            ::kill(process, SIGINT);
        });
    // 100 ms on a machine that has nothing else to do.
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    EXPECT_EQ(outcome.exitCode, 128 + SIGINT);
    EXPECT_THAT(folder_.List(), testing::IsEmpty());
}

TEST_F(GenerateTest, TheConsoleRunsCommands) {
    EXPECT_THAT(RunZuc({"console", "--list"}).out,
                AllOf(HasSubstr("IntraClip.Setup"), HasSubstr("Remix.AvoidLoops")));
    EXPECT_EQ(RunZuc({"console", "SetTimeStretchPreviewQ 12"}).out, "Quality changed.\n");
    EXPECT_EQ(RunZuc({"console", "IntraClip.Debug", "0"}).out, "Normal processing\n");
    const Outcome lines = RunZuc({"console"}, "set remix.avoidloops on\n\nget Remix.AvoidLoops\n");
    EXPECT_EQ(lines.out, "Remix.AvoidLoops = on\nRemix.AvoidLoops = on\n");
    EXPECT_EQ(RunZuc({"console", "--set", "Remix.Samplerate=11025", "get", "Remix.Samplerate"}).out,
              "Remix.Samplerate = 11025\n");
    const auto doctor = json::parse(RunZuc({"doctor", "--json", "--monitor"}).out);
    EXPECT_TRUE(doctor["monitors"].contains("zuc.components.EffectThreadPool"));
    EXPECT_THAT(RunZuc({"doctor", "--monitor"}).out, HasSubstr("Thread Count:"));
}

TEST_F(GenerateTest, UnknownEffectsOfChainFilesAreKept) {
    const std::string chain = R"({
  "schema": "zuc.chain/1",
  "effects": [
    {"effect": "amplfy", "depth": 0.10, "curve": [ 1e0 ]},
    {
      "effect": "amplify",
      "settings": {
        "gain": "-6 dB"
      }
    }
  ]
}
)";
    const std::string in = folder_ / "in.wav";
    WriteNoise(in, 4800);
    std::ofstream(folder_ / "chain.json") << chain;
    ASSERT_EQ(RunZuc({"process", in, folder_ / "plain.wav", "-e", "amplify:gain=-6dB"}).exitCode,
              0);
    const std::vector<std::vector<std::string>> ways{{"--chain", folder_ / "chain.json"},
                                                     {"-e", "@" + folder_ / "chain.json"}};
    for (const auto& way : ways) {
        std::vector<std::string> arguments{
            "process", in, out_, "-y", "--save-chain", folder_ / "saved.json", way[0], way[1]};
        const Outcome outcome = RunZuc(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_THAT(outcome.err, AllOf(HasSubstr("warning"), HasSubstr("did you mean 'amplify'?")));
        EXPECT_EQ(ReadBytes(folder_ / "saved.json"), chain) << "byte for byte";
        EXPECT_TRUE(ReadBytes(out_) == ReadBytes(folder_ / "plain.wav")) << "passes audio";
        EXPECT_EQ(RunZuc({"plot", "response", way[0], way[1], "-o", folder_ / "x.svg"}).exitCode,
                  0);
        arguments.emplace_back("-q");
        EXPECT_EQ(RunZuc(arguments).err, "");
        arguments.back() = "--json";
        const auto report = json::parse(RunZuc(arguments).out);
        EXPECT_EQ(report["chain"][0]["depth"], 0.1);
    }
}

}  // namespace
}  // namespace zuc::test
