#include "Components/Song.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>

#include "Components/private/remix/BeatTracker.h"
#include "Components/private/remix/OnsetFunction.h"

namespace zuc::components {
namespace {

/// A signal made by a formula of time, at a host rate, read as shells read files.
std::shared_ptr<AnalysisInput> MakeInput(double seconds,
                                         int rateHz,
                                         const std::function<double(double)>& signal) {
    auto input = std::make_shared<AnalysisInput>(rateHz, 2);
    std::vector<float> left, right;
    for (int i = 0; i < static_cast<int>(seconds * rateHz); ++i) {
        const double x = signal(static_cast<double>(i) / rateHz);
        left.push_back(static_cast<float>(x));
        right.push_back(static_cast<float>(0.5 * x));
    }
    const float* channels[] = {left.data(), right.data()};
    input->Append(channels, static_cast<int>(left.size()));
    input->Finish();
    return input;
}

/// Ticks at `first`, `first` + `period`, ...
double Ticks(double t, double first, double period) {
    if (t < first) return 0;
    const double since = std::fmod(t - first, period);
    const double fade = std::max(0.0, 1 - since / 0.03);
    return 0.5 * fade * fade * std::sin(2 * std::numbers::pi * 1000 * since);
}

TEST(Song, FindsTheBeatsOfClickTracksToTheMillisecond) {
    struct Row {
        int rateHz;
        double first, period, beatPeriod;
    };
    for (const Row& row : {Row{44100, 0.37, 0.5, 0.5}, Row{48000, 0.1, 0.6, 0.6},
                           Row{22050, 0.2, 0.41, 0.41}, Row{96000, 0.3, 0.45, 0.45}}) {
        SCOPED_TRACE(testing::Message() << row.rateHz << " Hz, every " << row.period << " s");
        const auto input =
            MakeInput(30, row.rateHz, [&](double t) { return Ticks(t, row.first, row.period); });
        EXPECT_EQ(input->GetSampleRate(), GetAnalysisRate(row.rateHz));
        Song song(input, input->GetSampleRate());
        ASSERT_TRUE(song.Analyse(7, true, nullptr));
        const SongAnalysis& analysis = song.GetAnalysis();
        EXPECT_NEAR(analysis.durationSeconds, 30, 0.001);
        EXPECT_NEAR(analysis.beatPeriodSeconds, row.beatPeriod, 0.002);
        EXPECT_GT(analysis.confidence, 0.5);
        EXPECT_LT(analysis.beatTimes.front(), row.period);
        EXPECT_GT(analysis.beatTimes.back(), 30 - 1.01 * row.period);
        for (const double beat : analysis.beatTimes) {
            const double off = std::remainder(beat - row.first, row.period);
            if (beat < row.first || beat > 28) continue;  // extended, or cut by the end
            EXPECT_LT(std::abs(off), 0.0015) << beat;
        }
        EXPECT_EQ(analysis.timbre.GetCount(), analysis.beatTimes.size());
        EXPECT_EQ(analysis.chroma.GetCount(), analysis.beatTimes.size());
        EXPECT_NEAR(analysis.gridStepSeconds, row.period, 0.05);
    }
}

TEST(Song, AnswersSensiblyToWhatIsNoMusic) {
    std::mt19937 random(1);
    const auto noise = [&](double) { return static_cast<double>(random()) / 4294967296.0 - 0.5; };
    const auto silence = [](double) { return 0.0; };
    const auto tone = [](double t) { return 0.5 * std::sin(2765 * t); };
    const auto broken = [](double t) { return t < 1 ? std::nan("") : 1e30; };
    struct Row {
        const char* name;
        double seconds;
        std::function<double(double)> signal;
        double mostConfidence;
    };
    for (const Row& row :
         {Row{"silence", 12, silence, 0}, Row{"noise", 12, noise, 0.9}, Row{"tone", 12, tone, 1},
          Row{"not finite", 5, broken, 1}, Row{"nothing", 0, silence, 0},
          Row{"a frame", 0.0001, tone, 0}, Row{"short", 0.7, noise, 1}}) {
        const auto input = MakeInput(row.seconds, 44100, row.signal);
        Song song(input, input->GetSampleRate());
        ASSERT_TRUE(song.Analyse(60, true, nullptr)) << row.name;
        const SongAnalysis& analysis = song.GetAnalysis();
        EXPECT_LE(analysis.confidence, row.mostConfidence) << row.name;
        EXPECT_TRUE(std::is_sorted(analysis.beatTimes.begin(), analysis.beatTimes.end()));
        for (const BeatRows* rows : {&analysis.timbre, &analysis.chroma})
            for (const float x : rows->values) ASSERT_TRUE(std::isfinite(x)) << row.name;
        if (row.mostConfidence == 0) {
            EXPECT_TRUE(analysis.beatTimes.empty()) << row.name;
        }
    }
}

TEST(Song, BlocksDoNotShowAndCancelLeavesTheSongAsItWas) {
    const auto input = MakeInput(20, 44100, [](double t) {
        return Ticks(t, 0.3, 0.5) + 0.2 * std::sin(2 * std::numbers::pi * 220 * t);
    });
    Song whole(input, input->GetSampleRate()), pieces(input, input->GetSampleRate());
    std::vector<double> fractions;
    ASSERT_TRUE(whole.Analyse(60, false, [&](double fraction) {
        fractions.push_back(fraction);
        return true;
    }));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.back(), 1);
    ASSERT_TRUE(pieces.Analyse(0.5, false, nullptr));
    EXPECT_EQ(whole.GetAnalysis().beatTimes, pieces.GetAnalysis().beatTimes);
    EXPECT_EQ(whole.GetAnalysis().chroma.values, pieces.GetAnalysis().chroma.values);
    for (const double limit : {0.0, 0.3, 0.6, 0.8}) {
        Song song(input, input->GetSampleRate());
        EXPECT_FALSE(song.Analyse(5, true, [&](double fraction) { return fraction < limit; }))
            << limit;
        EXPECT_TRUE(song.GetAnalysis().beatTimes.empty());
    }
}

TEST(CosinesOfASong, TellTwoAlternatingSoundsApart) {
    // Four beats of one chord, four of another.
    const auto input = MakeInput(32, 44100, [](double t) {
        const double hz = static_cast<int>(t / 2) % 2 == 0 ? 220 : 330;
        return Ticks(t, 0, 0.5) + 0.3 * std::sin(2 * std::numbers::pi * hz * t);
    });
    Song song(input, input->GetSampleRate());
    ASSERT_TRUE(song.Analyse(60, true, nullptr));
    const SongAnalysis& analysis = song.GetAnalysis();
    const auto cosines = CosinesOfBeats(analysis.chroma);
    const std::size_t count = analysis.beatTimes.size();
    const auto chord = [&](std::size_t k) {
        return static_cast<int>((analysis.beatTimes[k] + 0.1) / 2) % 2;
    };
    double same = 0, other = 0;
    int sameCount = 0, otherCount = 0;
    for (std::size_t i = 8; i + 8 < count; ++i)
        for (std::size_t j = 8; j + 8 < i; ++j) {
            (chord(i) == chord(j) ? same : other) += static_cast<double>(cosines[i * count + j]);
            ++(chord(i) == chord(j) ? sameCount : otherCount);
        }
    // Half of the beats have a neighbour of the other chord.
    EXPECT_GT(same / sameCount, 0.4);
    EXPECT_LT(other / otherCount, -0.4);
}

TEST(TrackBeats, FollowsItsPeriodAndReports) {
    std::vector<float> onsets(1601, 0.0f);
    for (std::size_t i = 30; i < onsets.size(); i += 40) onsets[i] = 1;
    const std::vector<double> periods(onsets.size(), 41.0);
    int calls = 0;
    const ProgressCallback progress = [&](double fraction) {
        EXPECT_DOUBLE_EQ(fraction, (500.0 * calls++ + 1) / 1601);
        return true;
    };
    const auto beats = TrackBeats(onsets, periods, 100, ProgressShare(progress));
    EXPECT_EQ(calls, 4);
    ASSERT_EQ(beats.size(), 40u);
    for (std::size_t k = 0; k < beats.size(); ++k) EXPECT_EQ(beats[k], 30 + 40 * k);
    for (const double tightness : {0.0, -1.0, std::nan("")}) {
        try {
            TrackBeats(onsets, periods, tightness, ProgressShare(progress));
            FAIL();
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "ERROR Beat::beatTrackDp: tightness must be > 0");
        }
    }
}

TEST(ConvolveSame, IsCentredAndRefusesTheLongerSecondOperand) {
    EXPECT_EQ(ConvolveSame({1, 2, 3, 4}, {1, 10, 100}), (std::vector<double>{12, 123, 234, 340}));
    try {
        ConvolveSame({1}, {1, 2});
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "ERROR FFT::convolveSame: size of x has to be larger than size of y");
    }
}

TEST(GetAnalysisRate, DividesByWholeNumbers) {
    struct Row {
        int hostHz, wantedHz, analysisHz;
    };
    for (const Row& row : {Row{44100, 22050, 22050},
                           {48000, 22050, 24000},
                           {96000, 22050, 24000},
                           {44100, 11025, 11025},
                           {8000, 22050, 8000},
                           {88200, 22050, 22050}})
        EXPECT_EQ(GetAnalysisRate(row.hostHz, row.wantedHz), row.analysisHz) << row.hostHz;
}

}  // namespace
}  // namespace zuc::components
