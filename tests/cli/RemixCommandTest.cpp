#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include <nlohmann/json.hpp>

#include "RunZuc.h"
#include "tests/host/AudioFileTools.h"
#include "tests/host/RemixSong.h"

namespace zuc::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class RemixCommandTest : public testing::Test {
protected:
    RemixCommandTest() { host::WriteSong(in_, 40); }

    Outcome Remix(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"remix", in_, "--no-cache"});
        return RunZuc(arguments);
    }

    TemporaryFolder folder_;
    std::string in_ = folder_ / "song.wav";
    std::string out_ = folder_ / "out.wav";
    std::string plan_ = folder_ / "plan.json";
};

TEST_F(RemixCommandTest, ExitCodesSayWhatWentWrong) {
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    } rows[] = {
        {"no target", {out_}, 2, "--to is missing"},
        {"no output", {"--to", "30"}, 2, "OUT is missing"},
        {"bad target", {out_, "--to", "soon"}, 2, "soon"},
        {"several targets, one name", {out_, "--to", "20,30"}, 2, "%T"},
        {"bad edits", {out_, "--to", "30", "--edits", "many"}, 2, "--edits"},
        {"bad slack", {out_, "--to", "30", "--slack", "31"}, 2, "0 … 30"},
        {"two limits", {out_, "--to", "30", "--at-least", "--at-most"}, 2, "exclude"},
        {"plan and target", {out_, "--to", "30", "--plan", in_}, 2, "exclude"},
        {"stems without output", {"--to", "30", "--json", "--stems", "x"}, 2, "OUT"},
        {"no such plan", {out_, "--plan", folder_ / "none.json"}, 3, "none.json"},
        {"too short", {out_, "--to", "1"}, 7, "too short"},
        {"empty range", {out_, "--to", "30", "--source", "20.1..20.2"}, 7, "--source"},
        {"no folder", {folder_ / "none/out.wav", "--to", "30"}, 4, "none"},
        {"output exists", {in_, "--to", "30"}, 4, "-y replaces it"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Remix(row.arguments);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.name << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(row.message)) << row.name;
    }
    EXPECT_THAT(folder_.List(), testing::ElementsAre("song.wav"));
    EXPECT_EQ(RunZuc({"remix", folder_ / "none.wav", out_, "--to", "30"}).exitCode, 3);
}

TEST_F(RemixCommandTest, AvoidsLoopsUnlessToldOtherwise) {
    const auto joins = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {"--percent", "400", "--min-loop", "4", "--json"});
        return json::parse(Remix(options).out)["remixes"][0]["joins"].dump();
    };
    const std::string avoided = joins({"--avoid-loops"}), allowed = joins({"--allow-loops"});
    EXPECT_NE(avoided, allowed);
    EXPECT_EQ(joins({}), avoided);
    EXPECT_EQ(joins({"--set", "Remix.AvoidLoops=off"}), allowed);
    EXPECT_EQ(joins({"--set", "Remix.AvoidLoops=off", "--avoid-loops"}), avoided);
}

TEST_F(RemixCommandTest, MakesEverythingFromOneAnalysis) {
    std::ofstream(folder_ / "lyrics.srt") << "1\n00:00:01,000 --> 00:00:02,000\nla\n\n";
    const Outcome made =
        Remix({folder_ / "song-%T.wav", "--to", "0:25,60", "--plan-out", folder_ / "plan-%T.json",
               "--labels", folder_ / "%T.txt", "--remap", folder_ / "lyrics.srt", "--report",
               folder_ / "%T.html", "--preview-joins", folder_ / "joins-%T", "--json"});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const auto remixes = json::parse(made.out)["remixes"];
    ASSERT_EQ(remixes.size(), 2u);
    for (const char* name : {"0m25s", "1m00s"}) {
        const std::string target = name;
        for (const std::string& file :
             {"song-" + target + ".wav", "plan-" + target + ".json", target + ".txt",
              "song-" + target + ".srt", target + ".html"})
            EXPECT_FALSE(ReadBytes(folder_ / file).empty()) << file;
    }
    EXPECT_EQ(remixes[1]["target"], 60.0);
    EXPECT_LT(std::abs(remixes[1]["error"].get<double>()), 5);
    EXPECT_GT(remixes[1]["joins"].size(), 0u);

    // The plan gives the same bytes without a search, also to a pipe.
    const Outcome again = Remix({out_, "--plan", folder_ / "plan-1m00s.json"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(ReadBytes(out_), ReadBytes(folder_ / "song-1m00s.wav"));
    EXPECT_EQ(Remix({"-", "--plan", folder_ / "plan-1m00s.json", "--bits", "24", "-q"}).out.size(),
              ReadBytes(out_).size());
    const Outcome drawn =
        RunZuc({"plot", "remix", in_, folder_ / "plan-1m00s.json", "-o", folder_ / "p.svg"});
    EXPECT_EQ(drawn.exitCode, 0) << drawn.err;
    EXPECT_THAT(ReadBytes(folder_ / "p.svg"), HasSubstr("<svg"));
}

TEST_F(RemixCommandTest, CuePointsMoveWithTheMusic) {
    const std::string song = folder_ / "cued.wav";
    host::AudioMetadata metadata;
    metadata.cues = {{4800, "first"}, {48000, "cut"}, {96000, "twice"}};
    WriteAudio(host::MakeOptions(song, 1, host::SampleFormat::kInt16),
               {std::vector<float>(192000, 0.25f)}, metadata);
    std::ofstream(plan_) << R"({"schema": "zuc.remix/1", "segments": [
        {"offset": "3/2", "duration": 1}, {"offset": 0, "duration": 0.5}, {"offset": 2, "duration": 1}]})";
    const Outcome outcome = RunZuc({"remix", song, out_, "--no-cache", "--plan", plan_});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const auto reader = host::AudioReader::Open(out_);
    std::vector<std::pair<std::int64_t, std::string>> cues;
    for (const host::CuePoint& cue : reader->GetMetadata().cues)
        cues.emplace_back(cue.frame, cue.name);
    EXPECT_THAT(cues, testing::ElementsAre(std::pair{24000, "twice"}, std::pair{52800, "first"},
                                           std::pair{72000, "twice"}));
}

}  // namespace
}  // namespace zuc::test
