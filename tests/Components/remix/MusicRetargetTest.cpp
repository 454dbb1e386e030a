#include "Components/MusicRetarget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>
#include <thread>

#include "Components/Library.h"
#include "Components/private/OfflineJob.h"
#include "Components/private/remix/MusicRetargetAudioFramesGetter.h"
#include "kraaudiodsp/LogFade.h"
#include "kracore/DebugDatabase.h"

namespace zuc::components {
namespace {

using kracore::debug::DebugDatabase;
using Audio = std::vector<std::vector<float>>;  // channels x frames

/// Reads from memory; fails from a frame on.
class MemoryReader final : public OfflineIInterface {
public:
    explicit MemoryReader(Audio source)
        : source_(std::move(source)), failsFrom_(static_cast<std::int64_t>(source_[0].size())) {}
    long GetChannelCount() const override { return static_cast<long>(source_.size()); }
    bool GetAudio(float** destination, long channels, std::int64_t position, long frames) override {
        if (position < 0 || position + frames > failsFrom_) return false;
        for (long c = 0; c < channels; ++c)
            std::copy_n(source_[static_cast<std::size_t>(c)].begin() + position, frames,
                        destination[c]);
        return true;
    }
    void FailFrom(std::int64_t frame) { failsFrom_ = frame; }

private:
    Audio source_;
    std::int64_t failsFrom_;
};

/// Keeps what it takes, at most `most` frames at a time.
class MemoryWriter final : public OfflineOInterface {
public:
    MemoryWriter(std::size_t channels, long most) : taken(channels), most_(most) {}
    long GetChannelCount() const override { return static_cast<long>(taken.size()); }
    void SetOpenToWrite(bool open) override { isOpen.store(open); }
    void Flush() override {}
    long PutAudio(const float* const* source, long, std::int64_t offset, long frames) override {
        ++calls;
        if (progressPercent && firstProgress < 0) firstProgress = *progressPercent;
        const long count = std::min(frames, most_);
        for (std::size_t c = 0; c < taken.size(); ++c)
            taken[c].insert(taken[c].end(), source[c] + offset, source[c] + offset + count);
        return count;
    }
    Audio taken;
    std::atomic<bool> isOpen{false};
    int calls = 0;
    float volatile* progressPercent = nullptr;
    float firstProgress = -1;

private:
    long most_;
};

/// An effect with everything around it.
struct Rig {
    Rig(Audio source, float rateHz, long mostTaken = 1L << 20)
        : frames(static_cast<std::int64_t>(source[0].size())),
          writer(new MemoryWriter(source.size(), mostTaken)),
          reader(new MemoryReader(std::move(source))),
          effect(new MusicRetarget) {
        if (rateHz > 0) effect->SetSampleRate(rateHz);
        Connect();
    }
    void Connect() {
        effect->SetOfflineReader(reader);
        effect->SetOfflineWriter(writer);
        effect->SetProgressHandler(&progress);
        writer->progressPercent = &progress;
    }
    void Set(MusicRetarget::Parameter index, float value) const {
        effect->SetParameter(index, effect->GetParameterInfo(index)->ToNormalized(value));
    }
    /// What a person would ask for.
    void SetRemix(double seconds) const {
        effect->SetFactoryPreset(0);
        Set(MusicRetarget::kTargetDuration, static_cast<float>(seconds));
    }
    bool Run() const { return effect->OfflineRun(0, frames); }
    void Wait() const {
        while (writer->isOpen.load()) std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    std::string RunAndWait() const {
        if (!Run()) return "did not start";
        Wait();
        WStr text;
        effect->GetCompletionText(text);
        return kracore::utility::ToUtf8(text);
    }
    std::int64_t frames;
    boost::intrusive_ptr<MemoryWriter> writer;
    boost::intrusive_ptr<MemoryReader> reader;
    boost::intrusive_ptr<MusicRetarget> effect;
    float volatile progress = -1;
};

class MusicRetargetTest : public testing::Test {
protected:
    void SetUp() override { Initialize(); }
    void TearDown() override {
        for (const auto& [name, value] : DebugDatabase::GetAll()) DebugDatabase::Remove(name);
        Terminate();
    }
};

/// Every frame is its own number, and other numbers in every channel.
Audio MakeRamp(std::size_t channels, std::int64_t frames) {
    Audio audio(channels);
    for (std::size_t c = 0; c < channels; ++c)
        for (std::int64_t i = 0; i < frames; ++i)
            audio[c].push_back(static_cast<float>(i) + 0.25f * static_cast<float>(c));
    return audio;
}

/// A tick every 0.5 s whose pitch says which beat of eight it is.
Audio MakeTicks(double seconds, int rateHz) {
    Audio audio(1);
    for (int i = 0; i < static_cast<int>(seconds * rateHz); ++i) {
        const double t = static_cast<double>(i) / rateHz;
        const double since = std::fmod(t, 0.5);
        const double hz = 400 + 150 * (static_cast<int>(t / 0.5) % 8);
        audio[0].push_back(
            static_cast<float>(0.5 * std::exp(-15 * since) * std::sin(6.2832 * hz * since)));
    }
    return audio;
}

/// 120 beats a minute, in a pattern of eight beats that sound apart.
std::shared_ptr<Song> MakeSong(int beats, double seconds) {
    SongAnalysis analysis;
    analysis.durationSeconds = seconds;
    analysis.beatPeriodSeconds = 0.5;
    for (int i = 0; i < beats; ++i) analysis.beatTimes.push_back(0.5 * i);
    analysis.gridStepSeconds = analysis.beatTimes.back() / (beats - 2) * (1 + 1e-9);
    for (BeatRows* rows : {&analysis.timbre, &analysis.chroma}) {
        rows->columns = 8;
        for (int i = 0; i < beats; ++i)
            for (int k = 0; k < 8; ++k) rows->values.push_back(k == i % 8 ? 1.0f : 0.0f);
    }
    return std::make_shared<Song>(analysis);
}

// ---- Rendering ----

struct Piece {
    std::int64_t first;  // in the output
    std::int64_t frames;
    std::int64_t source;    // of the range that is heard, or fades in
    std::int64_t previous;  // of the range that fades out; -1: no fade
};
struct RenderCase {
    const char* name;
    std::vector<std::array<int, 3>>
        segments;  // offset, duration, crossfade in ms, which are frames
    std::vector<Piece> pieces;
};
// clang-format off
const RenderCase kRenderCases[] = {
    {"nothing", {}, {}},
    {"one range, whose fade does not count", {{5, 100, 50}}, {{0, 100, 5, -1}}},
    {"without fades", {{0, 10000, 0}, {10000, 5000, 0}}, {{0, 15000, 0, -1}}},
    {"even fade", {{0, 20000, 500}, {30000, 10000, 400}},
     {{0, 19800, 0, -1}, {19800, 400, 29800, 19800}, {20200, 9800, 30200, -1}}},
    {"odd fade: one frame more", {{0, 20000, 0}, {30000, 10000, 401}},
     {{0, 19800, 0, -1}, {19800, 401, 29800, 19800}, {20201, 9800, 30201, -1}}},
    {"fade of several blocks", {{0, 30000, 0}, {25000, 30000, 20001}},
     {{0, 20000, 0, -1}, {20000, 20001, 15000, 20000}, {40001, 20000, 35001, -1}}},
    {"fade before the source begins, then another",
     {{0, 20000, 0}, {50, 10000, 400}, {40000, 5000, 200}},
     {{0, 19800, 0, -1}, {19800, 400, 0, 19800}, {20200, 9700, 400, -1}, {29900, 200, 39900, 9950},
      {30100, 4900, 40100, -1}}},
    {"range shorter than its fades", {{0, 10000, 0}, {20000, 100, 400}, {30000, 5000, 400}},
     {{0, 9800, 0, -1}, {9800, 400, 19800, 9800}, {10200, 400, 29800, 19900}, {10600, 4800, 30200, -1}}},
    {"the source itself, with a fade into what follows anyway", {{0, 10000, 0}, {10000, 5000, 100}},
     {{0, 9950, 0, -1}, {9950, 100, 9950, 9950}, {10050, 4950, 10050, -1}}},
};
// clang-format on

TEST_F(MusicRetargetTest, PlaysStoredResultsToTheFrame) {
    const double bend = dsp::GetLogVerticalModifier(dsp::kDefaultFadeShapeValue);
    for (const RenderCase& c : kRenderCases)
        for (const std::size_t channels : {1u, 6u}) {
            SCOPED_TRACE(c.name);
            const Audio source = MakeRamp(channels, 60000);
            Rig rig(source, 1000, 3000);
            MusicRetargetResults results;
            for (const auto& [offset, duration, fade] : c.segments)
                results.push_back({Ratio(offset, 1000), Ratio(duration, 1000), Ratio(fade, 1000)});
            rig.effect->SetRetargetResults(results);
            rig.Set(MusicRetarget::kPrecomputedResults, 1);
            EXPECT_EQ(rig.RunAndWait(), "");
            EXPECT_TRUE(rig.effect->GetRenderGate().IsOpen());
            const Audio& out = rig.writer->taken;
            const Piece end = c.pieces.empty() ? Piece{0, 0, 0, 0} : c.pieces.back();
            ASSERT_EQ(out[0].size(), end.first + end.frames);
            for (const Piece& piece : c.pieces)
                for (std::size_t ch = 0; ch < channels; ++ch)
                    for (std::int64_t i = 0; i < piece.frames; ++i) {
                        double expected = source[ch][piece.source + i];
                        if (piece.previous >= 0) {
                            const double p =
                                static_cast<double>(i) / static_cast<double>(piece.frames);
                            expected = dsp::CalculateLogFadeValue(p, bend) * expected +
                                       dsp::CalculateLogFadeValue(1 - p, bend) *
                                           source[ch][piece.previous + i];
                        }
                        ASSERT_NEAR(out[ch][piece.first + i], expected, 0.02)
                            << "frame " << piece.first + i;
                    }
        }
}

TEST_F(MusicRetargetTest, RatiosBecomeFramesWithoutLosingOne) {
    Rig rig(MakeRamp(1, 60000), 44100);
    // 0.29 s x 44100 is 12788.999… in floating point.
    rig.effect->SetRetargetResults({{Ratio(29, 100), Ratio(1, 7), Ratio(0)}});
    rig.Set(MusicRetarget::kPrecomputedResults, 1);
    EXPECT_EQ(rig.RunAndWait(), "");
    EXPECT_EQ(rig.writer->taken[0].size(), 6300u);
    EXPECT_EQ(rig.writer->taken[0][0], 12789.0f);
}

TEST_F(MusicRetargetTest, EndsWhenReaderOrWriterFail) {
    for (const std::int64_t failsFrom : {0, 1, 8191, 8193, 19900, 20300, 39000}) {
        Rig rig(MakeRamp(2, 60000), 1000);
        rig.reader->FailFrom(failsFrom);
        rig.effect->SetRetargetResults(
            {{Ratio(0), Ratio(20), Ratio(0)}, {Ratio(30), Ratio(10), Ratio(2, 5)}});
        rig.Set(MusicRetarget::kPrecomputedResults, 1);
        EXPECT_NE(rig.RunAndWait(), "") << failsFrom;
        EXPECT_LE(rig.writer->taken[0].size(), static_cast<std::size_t>(failsFrom));
        EXPECT_TRUE(rig.effect->GetRenderGate().IsOpen());
        EXPECT_TRUE(rig.effect->OfflineProcessFinished());
    }
    Rig rig(MakeRamp(2, 60000), 1000, 0);
    rig.effect->SetRetargetResults({{Ratio(0), Ratio(20), Ratio(0)}});
    rig.Set(MusicRetarget::kPrecomputedResults, 1);
    EXPECT_NE(rig.RunAndWait(), "");
    EXPECT_EQ(rig.writer->calls, 100);
}

// ---- Results ----

TEST(MusicRetargetResults, SurviveAPropertyListAsText) {
    const MusicRetargetResults results{{Ratio(0), Ratio(1, 3), Ratio(22050, 44100)},
                                       {Ratio(123456789, 44100), Ratio(86400), Ratio(0)}};
    kracore::proplist::PropList list;
    list.Set("Other", true);
    WriteToPropertyList(MusicRetargetResults(5), list);
    WriteToPropertyList(results, list);
    EXPECT_EQ(list.GetCount(), 3u);
    MusicRetargetResults read;
    const auto back = kracore::proplist::FromJson(kracore::proplist::ToJson(list));
    EXPECT_TRUE(ReadFromPropertyList(back, read));
    EXPECT_EQ(read, results);
    EXPECT_NE(back.FindList("Segment_1"), nullptr);
    for (
        const char* broken :
        {R"({"Segment_0": {"Offset": {"$ratio": "1/2"}, "Duration": {"$ratio": "1/2"}}})",
         R"({"Segment_0": {"Offset": {"$ratio": "1/0"}, "Duration": {"$ratio": "1/2"}, "Crossfade": {"$ratio": "1/2"}}})"}) {
        EXPECT_FALSE(ReadFromPropertyList(kracore::proplist::FromJson(broken), read));
        EXPECT_EQ(read, results);
    }
    EXPECT_TRUE(ReadFromPropertyList({}, read));
    EXPECT_TRUE(read.empty());
}

TEST(MusicRetargetResults, TellWhereAMomentIsHeard) {
    const MusicRetargetResults results{{Ratio(2), Ratio(3), Ratio(0)},
                                       {Ratio(5), Ratio(1), Ratio(0)},
                                       {Ratio(3), Ratio(1, 2), Ratio(0)}};
    const std::vector<std::pair<Ratio, std::vector<Ratio>>> rows{{Ratio(0), {}},
                                                                 {Ratio(2), {Ratio(0)}},
                                                                 {Ratio(3), {Ratio(1), Ratio(4)}},
                                                                 {Ratio(7, 2), {Ratio(3, 2)}},
                                                                 {Ratio(5), {Ratio(3)}},
                                                                 {Ratio(6), {}}};
    for (const auto& [moment, expected] : rows) {
        std::vector<Ratio> heard;
        results.RemapTime(moment, heard);
        EXPECT_EQ(heard, expected) << moment.numerator();
    }
}

// ---- Search ----

TEST_F(MusicRetargetTest, SearchesAndPlaysWhatItFound) {
    for (const double seconds : {30.0, 70.0}) {
        Rig rig(MakeTicks(50, 8000), 8000);
        rig.effect->GetRetargetData()->SetSong(MakeSong(100, 50));
        rig.SetRemix(seconds);
        EXPECT_EQ(rig.RunAndWait(), "");
        const MusicRetargetResults results = rig.effect->GetRetargetResults();
        ASSERT_GT(results.size(), 1u);
        EXPECT_EQ(rig.effect->GetJoinCosts().size(), results.size() - 1);
        EXPECT_EQ(results.front().offset, 0);
        EXPECT_EQ(results.back().offset + results.back().duration, 50);
        Ratio total(0);
        for (const RetargetSegment& segment : results) total += segment.duration;
        EXPECT_NEAR(boost::rational_cast<double>(total), seconds, 5);
        EXPECT_EQ(rig.writer->taken[0].size(), kracore::utility::MultiplyAndTruncate(total, 8000));
        EXPECT_GE(rig.writer->firstProgress, 89.9f) << "the search's share";
        EXPECT_EQ(rig.progress, 100.0f);

        // The stored results, played once more by another object.
        Rig again(MakeTicks(50, 8000), 8000);
        again.Set(MusicRetarget::kPrecomputedResults, 1);
        again.effect->SetRetargetResults(results);
        EXPECT_EQ(again.RunAndWait(), "");
        EXPECT_EQ(again.writer->taken, rig.writer->taken);
    }
}

TEST_F(MusicRetargetTest, TheSongsOwnDurationIsTheSong) {
    // Odd lengths: the analysis counts pairs of frames.
    for (const std::int64_t frames : {2205000, 2205001, 2204999}) {
        Audio source = MakeRamp(2, frames);
        Rig rig(source, 44100);
        rig.effect->GetRetargetData()->SetSong(
            MakeSong(100, static_cast<double>((frames + 1) / 2) / 22050));
        rig.SetRemix(static_cast<double>(frames) / 44100);
        EXPECT_EQ(rig.RunAndWait(), "");
        EXPECT_EQ(rig.writer->taken, source);
    }
}

TEST_F(MusicRetargetTest, SaysWhyNothingCame) {
    struct Row {
        const char* name;
        float rateHz;
        int beats;
        float slack, sourceOffset, sourceDuration;
        RetargetResult result;
    };
    for (const Row& row :
         {Row{"no rate", 0, 100, 5, 0, -1, RetargetResult::kNoSampleRate},
          Row{"no beats", 8000, 0, 5, 0, -1, RetargetResult::kNoBeats},
          Row{"no slack", 8000, 100, 0, 0, -1, RetargetResult::kInfeasible},
          Row{"empty range", 8000, 100, 5, 20.2f, 0.1f, RetargetResult::kInfeasible}}) {
        Rig rig(MakeTicks(50, 8000), row.rateHz);
        rig.effect->GetRetargetData()->SetSong(
            row.beats > 0 ? MakeSong(row.beats, 50) : std::make_shared<Song>(SongAnalysis{}));
        rig.effect->SetRetargetResults({{Ratio(0), Ratio(1), Ratio(0)}});
        rig.SetRemix(30);
        rig.Set(MusicRetarget::kMaxSlack, row.slack);
        rig.Set(MusicRetarget::kSourceOffset, row.sourceOffset);
        rig.Set(MusicRetarget::kSourceDuration, row.sourceDuration);
        EXPECT_EQ(rig.RunAndWait(), DescribeResult(row.result)) << row.name;
        EXPECT_EQ(rig.effect->GetSearchResult(), row.result) << row.name;
        EXPECT_TRUE(rig.writer->taken[0].empty()) << row.name;
    }
}

TEST_F(MusicRetargetTest, AnalysesOnceAndSharesWithItsClones) {
    struct Row {
        int rateHz;
        const char16_t* setting;
        int analysisRateHz;
    };
    for (const Row& row :
         {Row{44100, u"", 22050}, Row{48000, u"", 24000}, Row{44100, u"11025", 11025}}) {
        if (*row.setting) DebugDatabase::Set(u"Remix.Samplerate", row.setting);
        Rig rig(MakeTicks(20, row.rateHz), static_cast<float>(row.rateHz));
        rig.SetRemix(14);
        rig.Set(MusicRetarget::kDoAnalysis, 1);
        EXPECT_EQ(rig.RunAndWait(), "");
        EXPECT_TRUE(rig.writer->taken[0].empty());
        const auto song = rig.effect->GetRetargetData()->GetSong();
        ASSERT_NE(song, nullptr);
        EXPECT_EQ(song->GetAnalysis().analysisRateHz, row.analysisRateHz);
        EXPECT_NEAR(song->GetAnalysis().beatPeriodSeconds, 0.5, 0.002);
        EXPECT_NEAR(song->GetAnalysis().durationSeconds, 20, 1e-4);

        rig.effect->SetRetargetResults({{Ratio(1), Ratio(2), Ratio(0)}});
        rig.effect->Cancel();
        EXPECT_FALSE(rig.Run()) << "a cancelled effect stays cancelled";
        const auto results = rig.effect->GetRetargetResults();
        rig.effect = boost::dynamic_pointer_cast<MusicRetarget>(rig.effect->Clone());
        ASSERT_NE(rig.effect, nullptr);
        EXPECT_EQ(rig.effect->GetRetargetResults(), results);
        rig.Connect();
        rig.Set(MusicRetarget::kDoAnalysis, 0);
        EXPECT_EQ(rig.RunAndWait(), "");
        EXPECT_EQ(rig.effect->GetRetargetData()->GetSong(), song);
        EXPECT_NEAR(static_cast<double>(rig.writer->taken[0].size()) / row.rateHz, 14, 5);
    }
}

TEST_F(MusicRetargetTest, EndsSoonWheneverItIsCancelled) {
    std::minstd_rand random(11);
    const int runs = std::getenv("ZUC_LONG_TESTS") ? 1000 : 100;
    const Audio source = MakeTicks(20, 22050);
    for (int i = 0; i < runs; ++i) {
        Rig rig(source, 22050, i % 3 == 0 ? 700 : 1L << 20);
        if (i % 2 == 0) rig.effect->GetRetargetData()->SetSong(MakeSong(40, 20));
        rig.SetRemix(i % 5 == 0 ? 600 : 14);
        ASSERT_TRUE(rig.Run());
        std::this_thread::sleep_for(
            std::chrono::microseconds(random() % (i % 2 == 0 ? 6000 : 60000)));
        const auto before = std::chrono::steady_clock::now();
        rig.effect->Cancel();
        EXPECT_TRUE(rig.effect->OfflineProcessFinished());
        rig.Wait();
        // The limit is 100 ms; the rest is for sanitizers and busy machines.
        EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2)) << i;
    }
}

// ---- Contract ----

TEST_F(MusicRetargetTest, AnswersTheContract) {
    const boost::intrusive_ptr<MusicRetarget> effect(new MusicRetarget);
    EXPECT_TRUE(effect->IsOfflineProcess());
    EXPECT_TRUE(effect->CanChangeDuration());
    EXPECT_TRUE(effect->WantsToHandleProgress());
    EXPECT_EQ(effect->GetParameterCount(), 13);
    EXPECT_EQ(effect->GetMaxOutputBlockSize(512), 0);
    effect->SetCurrentDuration(7);
    EXPECT_EQ(effect->GetProcessedDuration() + effect->GetProcessedPosition(3) +
                  effect->GetOriginalPosition(3) + effect->GetProcessedScale(),
              0.0);
    EXPECT_TRUE(effect->OfflineProcessFinished());
    EXPECT_FALSE(effect->OfflineRun(0, 100)) << "no writer";
    effect->SetBounds(MusicRetarget::kMaxSlack, 3, 6);
    effect->SetBounds(99, 3, 6);
    for (const auto& [set, got] :
         {std::pair{0.0f, 0.1f}, std::pair{1.0f, 0.2f}, std::pair{0.15f, 0.15f}}) {
        effect->SetParameter(MusicRetarget::kMaxSlack, set);
        EXPECT_NEAR(effect->GetParameter(MusicRetarget::kMaxSlack), got, 1e-6);
    }
    for (const int count : {11, 12, 13, 14}) {
        kracore::proplist::PropList list;
        kraaudiofilterhost::PresetData preset(list);
        preset.SetParams(std::list<float>(static_cast<std::size_t>(count), 0.5f));
        EXPECT_EQ(effect->LoadSettings(preset), count == 12 || count == 13) << count;
    }
}

TEST_F(MusicRetargetTest, ReadsTheSameAnalysisInputInAnyPieces) {
    for (const int rateHz : {22050, 44100, 96000}) {
        std::minstd_rand random(3);
        Audio source(2);
        for (int i = 0; i < 40001; ++i)
            for (auto& channel : source)
                channel.push_back(static_cast<float>(random() % 2001) / 1000 - 1);
        AnalysisInput model(rateHz, 2);
        const float* at[] = {source[0].data(), source[1].data()};
        model.Append(at, 40001);
        model.Finish();
        const boost::intrusive_ptr<MemoryWriter> writer(new MemoryWriter(2, 1000));
        OfflineJob job;
        job.SetReader(new MemoryReader(source));
        job.SetWriter(writer);
        ASSERT_TRUE(job.Start([&](OfflineJob::Run& run) {
            MusicRetargetAudioFramesGetter frames(run, rateHz, GetAnalysisRate(rateHz), 40001);
            EXPECT_EQ(frames.GetFrameCount(), model.GetFrameCount());
            for (std::int64_t first = 0; first < frames.GetFrameCount() + 100;) {
                const std::int64_t last = first + 1 + static_cast<std::int64_t>(random() % 9000);
                const auto got = frames.GetFrames(first, last),
                           expected = model.GetFrames(first, last);
                EXPECT_EQ(got.size(), expected.size());
                for (std::size_t i = 0; i < got.size() && i < expected.size(); ++i)
                    if (std::abs(got[i] - expected[i]) > 1e-6) {
                        ADD_FAILURE() << rateHz << " Hz, frame " << first << " + " << i;
                        return false;
                    }
                first = last;
            }
            return true;
        }));
        job.Wait();
        EXPECT_EQ(job.GetOutcome(), OfflineJob::Outcome::kDone);
    }
}

}  // namespace
}  // namespace zuc::components
