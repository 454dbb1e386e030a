#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "RunZuc.h"
#include "host/AudioReader.h"

namespace zuc::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class CommandTest : public testing::Test {
protected:
    CommandTest() { WriteNoise(in_, 4800); }

    TemporaryFolder folder_;
    std::string in_ = folder_ / "in.wav";
    std::string out_ = folder_ / "out.wav";
};

TEST_F(CommandTest, TellsOfEffectsAndOfItself) {
    EXPECT_THAT(RunZuc({"--version"}).out, testing::MatchesRegex("zuc [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    const Outcome help = RunZuc({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr("process")));
    for (const char* command : {"process", "play", "replay", "preset"})
        EXPECT_THAT(RunZuc({command, "--help"}).out, HasSubstr("xample")) << command;
    EXPECT_THAT(RunZuc({"list"}).out, HasSubstr("amplify"));
    EXPECT_THAT(RunZuc({"describe", "Amplify"}).out,
                AllOf(HasSubstr("gain.2"), HasSubstr("-96 … 48 dB"), HasSubstr("+3dB Boost")));

    const auto list = json::parse(RunZuc({"list", "--json"}).out);
    for (const auto& effect : list["effects"]) {
        const std::string slug = effect["effect"];
        const Outcome outcome = RunZuc({"describe", slug, "--json"});
        ASSERT_EQ(outcome.exitCode, 0) << slug << outcome.err;
        const auto described = json::parse(outcome.out);
        EXPECT_EQ(described["effect"], slug);
        EXPECT_FALSE(described["channels"].empty()) << slug;
        for (const auto& parameter : described["parameters"])
            EXPECT_TRUE(parameter.contains("default"));
    }
    const Outcome doctor = RunZuc({"doctor", "--json"});
    EXPECT_EQ(doctor.exitCode, 0);
    EXPECT_EQ(json::parse(doctor.out)["ok"], true);
    const auto sandbox = json::parse(doctor.out)["sandbox"];
    EXPECT_EQ(sandbox["active"], sandbox["landlock"] > 0);
    const Outcome open = RunZuc({"doctor", "--json", "--no-sandbox"});
    EXPECT_EQ(json::parse(open.out)["sandbox"]["active"], false);

    const std::string junit = folder_ / "report.xml";
    const Outcome validation =
        RunZuc({"validate", "amplify", "--check", "sound", "--json", "--junit", junit});
    EXPECT_EQ(validation.exitCode, 0) << validation.err;
    const auto validated = json::parse(validation.out);
    EXPECT_EQ(validated["broken"], 0);
    EXPECT_EQ(validated["effects"][0]["checks"][0]["status"], "kept");
    std::ifstream report(junit);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(report), {}),
                HasSubstr("<testsuite name=\"amplify\""));
}

TEST_F(CommandTest, ExitCodesSayWhatWentWrong) {
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    } rows[] = {
        {"nothing", {}, 2, "Usage"},
        {"unknown command", {"proces"}, 2, "did you mean 'process'?"},
        {"unknown option", {"process", in_, out_, "--chian", "x"}, 2, "did you mean '--chain'?"},
        {"no output", {"process", in_}, 2, "OUT is missing"},
        {"no verb", {"preset"}, 2, "Usage"},
        {"unknown verb", {"preset", "lits"}, 2, "did you mean 'list'?"},
        {"option without value", {"process", in_, out_, "-e"}, 2, "--effect"},
        {"unknown effect", {"process", in_, out_, "-e", "amplfy"}, 2, "did you mean 'amplify'?"},
        {"bad value", {"process", in_, out_, "-e", "amplify:gain=99dB"}, 2, "-96 … 48 dB"},
        {"bad bits", {"process", in_, out_, "--bits", "17"}, 2, "17"},
        {"bad rate", {"process", in_, out_, "--rate", "12"}, 2, "--rate"},
        {"bad block", {"process", in_, out_, "--block", "0"}, 2, "--block"},
        {"no loudness", {"process", in_, out_, "--loudness", "16LU"}, 2, "-60 … 0 LUFS"},
        {"two normalizers",
         {"process", in_, out_, "--loudness", "-16LUFS", "--on-clip", "normalize"},
         2,
         "exclude each other"},
        {"a meter",
         {"process", in_, out_, "-e", "hard-limiter:gain-reduction=-3"},
         2,
         "is a meter"},
        {"bad policy", {"process", in_, out_, "--on-clip", "limt"}, 2, "did you mean 'limit'?"},
        {"bad progress", {"process", in_, out_, "--progress", "on"}, 2, "--progress"},
        {"bad format", {"process", in_, out_, "--format", "xyz"}, 2, "xyz"},
        {"range behind the end", {"process", in_, out_, "--range", "5..6"}, 2, "behind the end"},
        {"-y and -n", {"process", in_, out_, "-y", "-n"}, 2, "exclude"},
        {"nothing to play", {"play"}, 2, "IN is missing"},
        {"bad block of a device", {"play", in_, "--block", "0.5"}, 2, "--block"},
        {"play what is missing", {"play", in_ + "x", "--device", "none such"}, 3, "in.wavx"},
        {"missing input", {"process", in_ + "x", out_}, 3, "in.wavx"},
        {"missing chain", {"process", in_, out_, "--chain", in_ + ".json"}, 3, "in.wav.json"},
        {"existing output", {"process", in_, in_}, 4, "-y"},
        {"existing output, never", {"process", in_, in_, "-n"}, 4, "exists"},
        {"no folder", {"process", in_, folder_ / "none/out.wav"}, 4, "none"},
        {"clipped",
         {"process", in_, out_, "-e", "amplify:gain=20dB", "--on-clip", "error"},
         6,
         "full scale"},
        {"clipped, warned",
         {"process", in_, folder_ / "w.wav", "-e", "amplify:gain=20dB"},
         0,
         "cut off"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = RunZuc(row.arguments);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.name << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(row.message)) << row.name;
        EXPECT_THAT(outcome.err, Not(HasSubstr("\033"))) << row.name;
        EXPECT_EQ(outcome.out, "") << row.name;
    }
    EXPECT_THAT(folder_.List(), testing::ElementsAre("in.wav", "w.wav"))
        << "failures leave nothing";
}

/// With a sound device and without; nothing is heard.
TEST_F(CommandTest, PlayNamesTheDevicesThereAre) {
    const Outcome list = RunZuc({"play", "--list-devices"});
    EXPECT_EQ(list.exitCode, 0);
    const bool hasDevice = !list.out.empty();
    EXPECT_EQ(list.err, hasDevice ? "" : "this machine has no sound device\n");
    const Outcome unknown = RunZuc({"play", in_, "--device", "none such"});
    EXPECT_EQ(unknown.exitCode, hasDevice ? 2 : 4);
    EXPECT_THAT(unknown.err, HasSubstr(hasDevice ? "there is no sound device 'none such'"
                                                 : "this machine has no sound device"));
    EXPECT_EQ(unknown.out, "");
}

TEST_F(CommandTest, SeveralFaultsComeTogether) {
    const std::vector<std::string> arguments{
        "process", in_ + "x", out_,     "-e",   "amplfy", "-e", "amplify:gain=99dB,gian=1",
        "--bits",  "17",      "--tail", "later"};
    const Outcome outcome = RunZuc(arguments);
    EXPECT_EQ(outcome.exitCode, 2);
    for (const char* part : {"in.wavx", "amplfy", "99dB", "gian", "17", "later"})
        EXPECT_THAT(outcome.err, HasSubstr(part));

    std::vector<std::string> asJson = arguments;
    asJson.emplace_back("--json");
    const auto errors = json::parse(RunZuc(asJson).out);
    EXPECT_EQ(errors["errors"].size(), 6u);
    EXPECT_EQ(errors["exitCode"], 2);
}

TEST_F(CommandTest, ProcessesAndReports) {
    const Outcome outcome =
        RunZuc({"process", in_, out_, "-e", "amplify:preset=+6dB Boost,gain.2=-inf dB", "--json"});
    EXPECT_EQ(outcome.exitCode, 2) << "no gain reaches minus infinity";
    const Outcome good =
        RunZuc({"process", in_, out_, "-e", "amplify:preset=-6dB Cut,gain.2=-96", "--bits", "float",
                "--json", "--save-chain", folder_ / "chain.json"});
    ASSERT_EQ(good.exitCode, 0) << good.err;
    const auto report = json::parse(good.out);
    EXPECT_EQ(report["output"]["frames"], 4800);
    EXPECT_NEAR(report["peakDb"], -12.0206, 0.001);
    EXPECT_EQ(report["chain"][0]["settings"]["gain.2"], "-96 dB");

    const Outcome again = RunZuc({"process", in_, folder_ / "again.wav", "--chain",
                                  folder_ / "chain.json", "--bits", "float"});
    ASSERT_EQ(again.exitCode, 0) << again.err;
    EXPECT_TRUE(ReadBytes(out_) == ReadBytes(folder_ / "again.wav"));
    const Outcome at = RunZuc({"process", in_, folder_ / "at.wav", "-e",
                               "@" + (folder_ / "chain.json"), "--bits", "float", "-q"});
    EXPECT_EQ(at.err, "");
    EXPECT_TRUE(ReadBytes(out_) == ReadBytes(folder_ / "at.wav"));
}

TEST_F(CommandTest, TheOutputMayBeTheInput) {
    ASSERT_EQ(RunZuc({"process", in_, folder_ / "direct.wav", "-e", "amplify:gain=-6"}).exitCode,
              0);
    ASSERT_EQ(RunZuc({"process", in_, in_, "-y", "-e", "amplify:gain=-6"}).exitCode, 0);
    EXPECT_TRUE(ReadBytes(in_) == ReadBytes(folder_ / "direct.wav"));
}

TEST_F(CommandTest, PipesWorkInBothDirections) {
    for (const std::string format : {"wav", "flac", "caf", "ogg", "aiff"}) {
        SCOPED_TRACE(format);
        const Outcome there = RunZuc({"process", in_, "-", "--format", format, "-q"});
        ASSERT_EQ(there.exitCode, 0) << there.err;
        const std::string back = folder_ / ("back-" + format + ".wav");
        const Outcome home = RunZuc({"process", "-", back, "--json"}, there.out);
        ASSERT_EQ(home.exitCode, 0) << home.err;
        EXPECT_EQ(json::parse(home.out)["input"]["format"], format);
        EXPECT_EQ(host::AudioReader::Open(back)->GetInfo().frames, 4800);
        const Outcome both = RunZuc({"process", "-", "-", "--format", format, "--json"}, there.out);
        ASSERT_EQ(both.exitCode, 0);
        EXPECT_EQ(json::parse(both.err)["output"]["frames"], 4800)
            << "audio goes to the other stream";
    }
    EXPECT_TRUE(ReadBytes(folder_ / "back-flac.wav") == ReadBytes(in_)) << "FLAC loses nothing";
}

TEST_F(CommandTest, ProgressIsForThoseWhoAskForIt) {
    const auto run = [&](const char* mode) {
        return RunZuc({"process", in_, out_, "-y", "-q", "--tail", "200", "--progress", mode}).err;
    };
    EXPECT_EQ(run("auto"), "") << "standard error is no terminal";
    EXPECT_EQ(run("never"), "");
    std::istringstream lines(run("json"));
    double last = 0.0;
    for (std::string line; std::getline(lines, line);) {
        const auto progress = json::parse(line);
        EXPECT_GE(progress["progress"], last);
        EXPECT_EQ(progress["framesTotal"], 4800 + 200 * 48000);
        last = progress["progress"];
    }
}

TEST_F(CommandTest, PresetsAreSavedAndUsed) {
    const std::string home = folder_ / "config";
    const auto zuc = [&](const std::vector<std::string>& arguments) {
        return RunZuc(arguments, "", home);
    };
    ASSERT_EQ(zuc({"preset", "save", "amplify", "My Cut", "gain=-6dB"}).exitCode, 0);
    ASSERT_EQ(zuc({"preset", "save", "amplify", "My Other", "-e", "amplify:preset=My Cut,gain.1=0"})
                  .exitCode,
              0);
    EXPECT_EQ(zuc({"preset", "save", "amplify", "My Cut", "gain=-5dB"}).exitCode, 4) << "it exists";
    EXPECT_EQ(zuc({"preset", "save", "amplify", "+3db boost", "gain=1"}).exitCode, 2)
        << "one of the effect";
    EXPECT_EQ(zuc({"preset", "save", "amplify", "Bad", "gain=999"}).exitCode, 2);
    EXPECT_THAT(zuc({"preset", "list", "amplify"}).out,
                AllOf(HasSubstr("My Cut"), HasSubstr("+3dB Boost")));
    EXPECT_THAT(zuc({"preset", "show", "amplify", "my other"}).out,
                AllOf(HasSubstr("gain.1        0 dB"), HasSubstr("gain.2        -6 dB")));
    EXPECT_EQ(json::parse(zuc({"preset", "show", "amplify", "+3dB Boost", "--json"}).out)["schema"],
              "zuc.chain/1");
    EXPECT_THAT(zuc({"preset", "show", "amplify", "my ctu"}).err,
                HasSubstr("did you mean 'My Cut'?"));
    const Outcome used = zuc({"process", in_, out_, "-e", "amplify:preset=my cut", "--json"});
    EXPECT_NEAR(json::parse(used.out)["peakDb"], -12.0206, 0.001);
}

TEST_F(CommandTest, ReplaysScripts) {
    std::ofstream(folder_ / "script.json")
        << R"({"effect": "Amplify", "rate": 48000, "channels": 2, "events": [
               {"op": "param", "index": 3, "n": 0.5}, {"op": "resume"}, {"op": "get", "index": 3},
               {"op": "process", "frames": 6000, "block": 256}]})";
    const Outcome outcome = RunZuc({"replay", folder_ / "script.json", in_, out_, "--log", "-"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(json::parse(outcome.out), json::parse("[0.5]"));
    const auto reader = host::AudioReader::Open(out_);
    EXPECT_EQ(reader->GetInfo().frames, 6000);
    EXPECT_TRUE(reader->GetInfo().isFloat);
    EXPECT_EQ(RunZuc({"replay", in_ + "x", in_ + "y", out_}).exitCode, 3);
}

TEST_F(CommandTest, AnInterruptedJobLeavesNothing) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const Outcome outcome =
            RunZuc({"process", in_, out_, "--tail", "100000"}, "", "", [&](int process) {
                // The job is under way when something else than the input stands in the folder.
                for (int i = 0; i < 1000 && folder_.List().size() < 2; ++i) ::usleep(10'000);
                ::kill(process, signal);
            });
        EXPECT_EQ(outcome.exitCode, 128 + signal);
        EXPECT_THAT(folder_.List(), testing::ElementsAre("in.wav"));
    }
}

TEST_F(CommandTest, TheDemoIsTheSameEveryTime) {
    for (const char* name : {"a", "b"}) ASSERT_EQ(RunZuc({"demo", folder_ / name}).exitCode, 0);
    EXPECT_TRUE(ReadBytes(folder_ / "a/dry.wav") == ReadBytes(folder_ / "b/dry.wav"));
    const auto reader = host::AudioReader::Open(folder_ / "a/demo.wav");
    EXPECT_GE(reader->GetInfo().frames, 20 * 48000);
    EXPECT_EQ(reader->GetInfo().channels, 2);
    EXPECT_THAT(ReadBytes(folder_ / "a/summary.txt"), HasSubstr("-e '"));
}

TEST_F(CommandTest, TakesUpTo32Channels) {
    for (const int channels : {1, 32, 33}) {
        // A canonical header and one frame of 16-bit silence.
        const auto number = [](int value, int bytes) {
            std::string text;
            for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xff);
            return text;
        };
        const int frameBytes = 2 * channels;
        const std::string wav = "RIFF" + number(36 + frameBytes, 4) + "WAVEfmt " + number(16, 4) +
                                number(1, 2) + number(channels, 2) + number(48000, 4) +
                                number(48000 * frameBytes, 4) + number(frameBytes, 2) +
                                number(16, 2) + "data" + number(frameBytes, 4) +
                                std::string(frameBytes, '\0');
        const Outcome outcome = RunZuc({"process", "-", out_, "-y", "-e", "amplify"}, wav);
        EXPECT_EQ(outcome.exitCode, channels <= 32 ? 0 : 3) << channels << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(channels <= 32 ? "out.wav" : "33")) << outcome.err;
    }
}

}  // namespace
}  // namespace zuc::test
