#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "Components/Library.h"
#include "host/RemixLabels.h"
#include "host/RemixPicture.h"
#include "host/RemixRender.h"
#include "host/RemixReport.h"
#include "host/RemixSearch.h"
#include "kracore/DebugDatabase.h"
#include "tests/host/RemixSong.h"

namespace zuc::host {
namespace {

using testing::HasSubstr;

std::string WhatOf(const std::function<void()>& call) {
    try {
        call();
        return "nothing thrown";
    } catch (const Error& error) {
        return error.what();
    }
}

/// Three ranges of a source of 60 s at 1000 Hz.
RemixPlan MakePlan() {
    RemixPlan plan;
    plan.sourcePath = "song.wav";
    plan.sourceRateHz = 1000;
    plan.sourceFrames = 60000;
    plan.targetSeconds = 20.5;
    plan.segments = {{Ratio(0), Ratio(10), Ratio(1, 2)},
                     {Ratio(30), Ratio(20, 3), Ratio(1, 2)},
                     {Ratio(5), Ratio(4), Ratio(401, 1000)}};
    plan.joinCosts = {0.25, 0.5};
    return plan;
}

// ---- Plans ----

TEST(RemixPlan, SurvivesItsText) {
    for (const bool hasFade : {false, true}) {
        RemixPlan plan = MakePlan();
        if (hasFade) plan.fadeOut = Ratio(7, 3);
        const std::string text = PlanToJson(plan);
        const RemixPlan read = PlanFromJson(text, "plan.json");
        EXPECT_EQ(read.segments, plan.segments);
        EXPECT_EQ(read.joinCosts, plan.joinCosts);
        EXPECT_EQ(read.fadeOut, plan.fadeOut);
        EXPECT_EQ(read.sourcePath, plan.sourcePath);
        EXPECT_EQ(PlanToJson(read), text);
    }
}

TEST(RemixPlan, SaysWhereAPlanIsWrong) {
    struct Row {
        const char* segments;
        const char* message;  // empty: it is right
    };
    const Row rows[] = {
        {R"([{"offset": "0", "duration": "1/2"}])", ""},
        {R"([{"offset": 0.25, "duration": " 2.125 ", "crossfade": 1}])", ""},
        {R"([])", "segments: has 0 ranges"},
        {R"([{"offset": "0"}])", "segments[0]: 'duration' is missing"},
        {R"([{"offset": "0", "duration": "1/0"}])", "segments[0].duration: is no time"},
        {R"([{"offset": "0", "duration": "1/-2"}])", "is no time"},
        {R"([{"offset": "0", "duration": "1e9"}])", "is no time"},
        {R"([{"offset": "0", "duration": "nan"}])", "is no time"},
        {R"([{"offset": null, "duration": "1"}])", "segments[0].offset: is no time"},
        {R"([{"offset": "-1/2", "duration": "1"}])", "segments[0].offset: is negative"},
        {R"([{"offset": "0", "duration": 0}])", "segments[0]: the duration is 0"},
        {R"([{"offset": "0", "duration": "9999999"}])", "is too long"},
        {R"([{"offset": "0", "duration": "1/99999999999"}])", "the denominator is too large"},
        {R"([{"offset": "0", "duration": "1/999999937"}, {"offset": "1/999999929", "duration": 1}])",
         "the denominators do not go together"},
        {R"([{"offset": "0", "duration": 1, "lenght": 2}])", "unknown key 'lenght'"},
    };
    for (const Row& row : rows) {
        const std::string text =
            std::string(R"({"schema": "zuc.remix/1", "segments": )") + row.segments + "}";
        if (*row.message == 0)
            EXPECT_EQ(PlanFromJson(text, "p").segments.size(), 1u) << row.segments;
        else
            EXPECT_THAT(WhatOf([&] { PlanFromJson(text, "p.json"); }), HasSubstr(row.message))
                << row.segments;
    }
    EXPECT_THAT(WhatOf([] { PlanFromJson(R"({"schema": "zuc.chain/1", "segments": []})", "p"); }),
                HasSubstr("zuc.remix/1"));
}

TEST(RemixPlan, HasToLieWithinTheSource) {
    struct Row {
        const char* name;
        std::function<void(RemixPlan&)> change;
        const char* message;
    };
    const Row rows[] = {
        {"as it is", [](RemixPlan&) {}, "nothing thrown"},
        {"range", [](RemixPlan& p) { p.segments[2].offset = Ratio(57); },
         "segments[2]: ends at 1:01"},
        {"to the end", [](RemixPlan& p) { p.segments[1].offset = Ratio(60) - Ratio(20, 3); },
         "segments[2]: the crossfade"},
        {"fade out of the first range", [](RemixPlan& p) { p.segments[0].duration = Ratio(1, 5); },
         "segments[1]: the crossfade"},
        {"last range to the end, even fade",
         [](RemixPlan& p) {
             p.segments[2] = {Ratio(56), Ratio(4), Ratio(2, 5)};
         },
         "nothing thrown"},
        {"last range to the end, odd fade", [](RemixPlan& p) { p.segments[2].offset = Ratio(56); },
         "beyond the source's end"},
        {"fade at the end", [](RemixPlan& p) { p.fadeOut = Ratio(21); }, "longer than the remix"},
    };
    for (const Row& row : rows) {
        RemixPlan plan = MakePlan();
        row.change(plan);
        EXPECT_THAT(WhatOf([&] { CheckPlan(plan, 1000, 60000, "p.json"); }), HasSubstr(row.message))
            << row.name;
    }
}

// ---- Labels ----

TEST(RemixLabels, MoveWithTheMusic) {
    // Heard: 0 to 10, 30 to 36.667, 5 to 9.
    struct Row {
        const char* path;
        const char* text;
        const char* moved;
    };
    const Row rows[] = {
        {"l.txt", "1\t2\tverse\n\\\t100\t200\n", "1.000000\t2.000000\tverse\n"},
        {"l.txt", "20\t22\tnever\n", ""},
        {"l.txt", "6\t6\tpoint\r\n", "6.000000\t6.000000\tpoint\n17.666667\t17.666667\tpoint\n"},
        {"l.txt", "8\t31\tcut\n", "8.000000\t11.000000\tcut\n19.666667\t20.666667\tcut\n"},
        {"l.srt",
         "\xEF\xBB\xBF"
         "7\n00:00:31,500 --> 00:00:32,250\ntwo\nlines\n\n",
         "1\n00:00:11,500 --> 00:00:12,250\ntwo\nlines\n\n"},
        {"l.vtt", "WEBVTT - title\n\nid\n00:31.500 --> 00:32.250 align:left\ntext\n",
         "WEBVTT - title\n\n00:00:11.500 --> 00:00:12.250 align:left\ntext\n\n"},
    };
    for (const Row& row : rows) EXPECT_EQ(RemapLabels(row.text, row.path, MakePlan()), row.moved);
    EXPECT_THAT(WhatOf([] { RemapLabels("1\tx\n", "l.txt", MakePlan()); }), HasSubstr("line 1"));
    EXPECT_THAT(WhatOf([] { RemapLabels("", "l.docx", MakePlan()); }), HasSubstr(".srt"));
    EXPECT_THAT(PlanToLabels(MakePlan()), HasSubstr("10.000000\t16.666667\t0:30.00 - 0:36.67\n"));
}

// ---- Search and audio ----

class RemixTest : public testing::Test {
protected:
    RemixTest() {
        Initialize();
        WriteSong(path_, 50);
    }
    ~RemixTest() override { Terminate(); }

    TestFolder folder_;
    std::string path_ = folder_ / "song.wav";
};

TEST_F(RemixTest, KeepsWhatIsAsked) {
    RemixSource source(path_);
    const auto& song = source.Analyse(SongCache(""), nullptr);
    using Limit = RemixRequest::Limit;
    struct Row {
        const char* name;
        RemixRequest request;
        double lo, hi;  // error in seconds
        bool fades, startsAtStart, endsAtEnd;
    };
    RemixRequest free;
    free.endsAtEnd = false;
    RemixRequest least, most, exact, exactFree;
    least.limit = Limit::kAtLeast;
    most.limit = Limit::kAtMost;
    exact.isExact = true;
    exactFree = exact;
    exactFree.endsAtEnd = exactFree.startsAtStart = false;
    for (const Row& row : {Row{"as a rule", {}, -5, 5, false, true, true},
                           Row{"free end", free, -0.5, 0.5, false, true, false},
                           Row{"at least", least, 0, 5, false, true, true},
                           Row{"at most", most, -6, 0, false, true, true},
                           Row{"exact", exact, 0, 0, true, true, false},
                           Row{"exact, free", exactFree, 0, 0, true, false, false}})
        for (const double target : {31.3, 77.7}) {
            SCOPED_TRACE(row.name);
            RemixSearch search(source, song, row.request, nullptr);
            const RemixPlan plan = search.Find(target);
            const double error = ToSeconds(plan.GetDuration()) - target;
            EXPECT_GE(error, row.lo - 1.0 / kSongRateHz);
            EXPECT_LE(error, row.hi + 1.0 / kSongRateHz);
            EXPECT_EQ(!(plan.fadeOut == 0), row.fades);
            EXPECT_TRUE(!row.startsAtStart || plan.segments.front().offset == 0);
            const auto& last = plan.segments.back();
            EXPECT_TRUE(!row.endsAtEnd || last.offset + last.duration == 50);
            CheckPlan(plan, kSongRateHz, source.GetInfo().frames, row.name);
        }
}

TEST_F(RemixTest, SaysWhyThereIsNone) {
    RemixSource source(path_);
    const auto& song = source.Analyse(SongCache(""), nullptr);
    struct Row {
        const char* name;
        double target;
        TimeRange range;
        int minLoop;
        const char* message;
    };
    for (const Row& row : {Row{"too short", 3, {}, 8, "too short"},
                           Row{"range without beats", 20, {20.1, 20.3}, 8, "--source"},
                           Row{"loop longer than the range", 40, {10, 20}, 128, "--min-loop"}}) {
        RemixRequest request;
        request.source = row.range;
        request.minLoopBeats = row.minLoop;
        RemixSearch search(source, song, request, nullptr);
        try {
            search.Find(row.target);
            ADD_FAILURE() << row.name;
        } catch (const Error& error) {
            EXPECT_EQ(error.GetCode(), ExitCode::kRemixInfeasible) << row.name;
            EXPECT_THAT(error.what(), HasSubstr(row.message));
        }
    }
    components::SongAnalysis still = song;
    still.beatTimes.clear();
    RemixRequest anywhere;
    anywhere.endsAtEnd = false;
    anywhere.minLoopBeats = 1;
    EXPECT_THAT(WhatOf([&] { RemixSearch(source, still, {}, nullptr).Find(30); }),
                testing::AllOf(HasSubstr("has no beats"), HasSubstr("--min-loop may help")));
    EXPECT_THAT(WhatOf([&] { RemixSearch(source, still, anywhere, nullptr).Find(30); }),
                testing::Not(HasSubstr("hint")));
    AudioFileInfo wide;
    wide.rateHz = kSongRateHz;
    wide.channels = components::MusicRetarget::kMaxChannelCount + 1;
    EXPECT_THAT(WhatOf([&] { MakeRemixEffect(wide); }), HasSubstr("does not take"));
    RemixRequest request;
    request.slackSeconds = 0;
    RemixSearch search(source, song, request, nullptr);
    EXPECT_THAT(search.GetNotes(), testing::ElementsAre(HasSubstr("slack of 0 s")));
    EXPECT_FALSE(search.Find(30).segments.empty());
    std::atomic<int> interrupted{2};
    RemixSearch stopped(source, song, {}, &interrupted);
    EXPECT_THROW(stopped.Find(30), Interrupted);
}

TEST_F(RemixTest, ASearchLeavesTheSettingOfLoopsAsItWas) {
    using kracore::debug::DebugDatabase;
    RemixSource source(path_);
    const auto& song = source.Analyse(SongCache(""), nullptr);
    for (const bool isSet : {false, true}) {
        if (isSet) DebugDatabase::Set(u"Remix.AvoidLoops", u"as it was");
        { const RemixSearch search(source, song, {}, nullptr); }
        const auto after = DebugDatabase::Get(u"Remix.AvoidLoops");
        EXPECT_EQ(after.has_value(), isSet);
        if (isSet) {
            EXPECT_EQ(*after, kracore::WStr(u"as it was"));
        }
    }
    DebugDatabase::Remove(u"Remix.AvoidLoops");
}

TEST(RemixLikeness, FallsFromOneWithTheCostOfAJoin) {
    EXPECT_EQ(GetLikeness(0), 1);
    EXPECT_EQ(GetLikeness(-1), 1) << "no better than the same";
    EXPECT_NEAR(GetLikeness(std::pow(0.25, 0.75)), 0.75, 1e-12) << "a cosine of 0.75";
    EXPECT_EQ(GetLikeness(5), 0);
}

TEST_F(RemixTest, WritesTheSongItselfAndAlignedStems) {
    RemixSource source(path_);
    const auto& song = source.Analyse(SongCache(""), nullptr);
    RemixSearch search(source, song, {}, nullptr);
    RemixOutput output;
    output.path = folder_ / "same.wav";
    WriteRemix(search.Find(50), source, output);
    EXPECT_EQ(ReadAudio(output.path), ReadAudio(path_));

    std::filesystem::create_directory(folder_ / "stems");
    WriteSong(folder_ / "stems/drums.wav", 50, 0.125f);
    WriteSong(folder_ / "stems/voice.flac", 50, 0.375f);
    const RemixPlan plan = search.Find(70);
    output.path = folder_ / "long.wav";
    const RemixReport report = WriteRemix(plan, source, output);
    EXPECT_EQ(report.overs.count, 0);
    const auto stems = WriteStems(plan, folder_ / "stems", folder_ / "out", nullptr);
    ASSERT_EQ(stems.size(), 2u);
    const Channels all = ReadAudio(output.path), drums = ReadAudio(stems[0]),
                   voice = ReadAudio(stems[1]);
    ASSERT_EQ(all[0].size(), drums[0].size());
    ASSERT_EQ(all[0].size(), voice[0].size());
    for (std::size_t i = 0; i < all[0].size(); ++i)  // an eighth and three eighths are a half
        ASSERT_NEAR(all[1][i], drums[1][i] + voice[1][i], 1e-6f) << i;

    // The cue at one second moves with the music.
    std::vector<Ratio> heard;
    plan.segments.RemapTime(Ratio(1), heard);
    EXPECT_EQ(AudioReader::Open(output.path)->GetMetadata().cues.size(), heard.size());

    std::atomic<int> interrupted{2};
    output.interrupted = &interrupted;
    output.path = folder_ / "stopped.wav";
    EXPECT_THROW(WriteRemix(plan, source, output), Interrupted);
    EXPECT_FALSE(std::filesystem::exists(output.path));
}

TEST_F(RemixTest, LooksAtAllStemsBeforeItWritesOne) {
    RemixPlan plan = MakePlan();
    plan.sourceRateHz = kSongRateHz;
    plan.sourceFrames = 50 * kSongRateHz;
    const struct {
        const char* name;  // of a file among the stems; empty: there is none
        std::function<void(const std::string&)> make;
        const char* output;
        const char* message;
    } rows[] = {
        {"", [](const std::string&) {}, "out", "there are no files"},
        {".hidden.wav", [](const std::string& path) { WriteSong(path, 50); }, "out",
         "there are no files"},
        {"short.wav", [](const std::string& path) { WriteSong(path, 10); }, "out",
         "short.wav: segments["},
        {"fast.wav",
         [](const std::string& path) {
             WriteAudio(MakeOptions(path, 2, SampleFormat::kInt16), MakeNoise(2, 100, 16));
         },
         "out", "fast.wav: the sample rate is 48000 Hz"},
        {"notes.txt", [](const std::string& path) { WriteBytes(path, "quiet"); }, "out",
         "not an audio file"},
        {"good.wav", [](const std::string& path) { WriteSong(path, 50); }, "stems",
         "replace the stems"},
        {"good.wav", [](const std::string& path) { WriteSong(path, 50); }, "song.wav",
         "cannot be made"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(folder_ / "stems");
        EXPECT_THAT(WhatOf([&] { WriteStems(plan, folder_ / "stems", folder_ / "out", nullptr); }),
                    HasSubstr("No such file"));
        std::filesystem::create_directory(folder_ / "stems");
        if (*row.name != 0) row.make(folder_ / "stems/" + row.name);
        EXPECT_THAT(
            WhatOf([&] { WriteStems(plan, folder_ / "stems", folder_ / row.output, nullptr); }),
            HasSubstr(row.message));
        EXPECT_FALSE(std::filesystem::exists(folder_ / "out")) << row.message;
    }
    std::filesystem::rename(folder_ / "stems/good.wav", folder_ / "stems/good.caf");
    EXPECT_THAT(WriteStems(plan, folder_ / "stems", folder_ / "out", nullptr),
                testing::ElementsAre(folder_ / "out/good.wav"));
}

TEST_F(RemixTest, DrawsAndReportsWithoutANetwork) {
    RemixSource source(path_);
    const auto& song = source.Analyse(SongCache(""), nullptr);
    const RemixPlan plan = RemixSearch(source, song, {}, nullptr).Find(80);
    SpooledAudio remix(kSongRateHz, 2);
    PlayPlan(
        plan, source.GetAudio(), source.GetInfo(),
        [&](float* const* audio, int frames) { remix.Append(audio, frames); }, nullptr);
    const std::string page = MakeRemixReport(plan, source, remix, &song);
    const auto count = [&](const std::string& what) {
        std::size_t found = 0;
        for (auto at = page.find(what); at != std::string::npos; at = page.find(what, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(count("<audio "), plan.GetJoinCount());
    EXPECT_EQ(count("class=\"join\""), plan.GetJoinCount());
    EXPECT_EQ(count("src=\"data:audio/wav;base64,UklGR"), plan.GetJoinCount());
    EXPECT_EQ(count("http"), 2u) << "the policy and the name of SVG's namespace";
    const RemixPicture picture(plan, source.GetAudio(), remix, {}, "a title");
    for (const auto& [name, begin] : {std::pair{"a.svg", "<svg"}, std::pair{"a.png", "\x89PNG"}}) {
        picture.Save(folder_ / name);
        EXPECT_EQ(ReadBytes(folder_ / name).compare(0, 4, begin), 0) << name;
    }
    EXPECT_THAT(WhatOf([&] { picture.Save(folder_ / "a.gif"); }), HasSubstr("kind of picture"));
    const auto previews = WritePreviews(plan, remix, folder_ / "joins");
    ASSERT_EQ(previews.size(), plan.GetJoinCount());
    EXPECT_NEAR(static_cast<double>(ReadAudio(previews[0])[0].size()) / kSongRateHz, 8, 4.001);
}

}  // namespace
}  // namespace zuc::host
