#include "Components/private/remix/Retarget.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "Components/private/remix/SegmentSearch.h"

namespace zuc::components {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kPeriod = 0.5;

/// A signal whose level changes from beat to beat, or is the same throughout.
class TestFrames final : public IAudioFramesGetter {
public:
    explicit TestFrames(bool isEven = false) : isEven_(isEven) {}
    std::vector<double> GetFrames(std::int64_t first, std::int64_t last) override {
        std::vector<double> frames;
        for (std::int64_t i = first; i < std::min<std::int64_t>(last, GetFrameCount()); ++i)
            frames.push_back((i % 2 == 0 ? 0.01 : -0.01) *
                             (isEven_ ? 10.0 : static_cast<double>(i / 50)));
        return frames;
    }
    int GetSampleRate() const override { return 100; }
    std::int64_t GetFrameCount() const override { return 100000; }

private:
    bool isEven_;
};

/// `beats` beats at 120 to the minute, in the pattern that `sound` gives (a one-hot row each).
std::shared_ptr<Song> MakeSong(int beats, const std::function<int(int)>& sound) {
    SongAnalysis analysis;
    analysis.durationSeconds = beats * kPeriod;
    analysis.beatPeriodSeconds = kPeriod;
    // As an analysis makes it: the song's own duration is the song itself.
    analysis.gridStepSeconds = (beats - 1) * kPeriod / (beats - 2) * (1 + 1e-9);
    for (BeatRows* rows : {&analysis.timbre, &analysis.chroma}) {
        rows->columns = 20;
        for (int i = 0; i < beats; ++i)
            for (int k = 0; k < 20; ++k) rows->values.push_back(k == sound(i) ? 1.0f : 0.0f);
    }
    for (int i = 0; i < beats; ++i) analysis.beatTimes.push_back(i * kPeriod);
    return std::make_shared<Song>(analysis);
}

struct Matrices {
    Matrices(const Constraint& constraint, int beats, int positions)
        : transition(beats), placement(beats, positions) {
        const auto song = MakeSong(beats, [](int i) { return i % 5; });
        TestFrames frames;
        const auto levels = ReadBeatLevels(song->GetAnalysis().beatTimes, frames);
        SearchCosts costs{transition, placement, song->GetAnalysis(), levels};
        constraint.Apply(costs);
    }
    TransitionMatrix transition;
    PlacementMatrix placement;
};

TEST(Constraints, AddTheirFormulaToTheTransitions) {
    constexpr int kBeats = 40;
    struct Row {
        const char* name;
        std::shared_ptr<Constraint> constraint;
        std::function<double(int i, int j)> expected;
    };
    const auto shifted = [](int i, int j, double cost) {
        return i == kBeats - 1 || j == kBeats ? kInfinity : cost;
    };
    const auto energy = [](int i) { return 0.01 * std::min(i, kBeats - 2); };
    const Row rows[] = {
        {"timbre and chroma", std::make_shared<TimbrePitchConstraint>(0.5f, 2.0f),
         [&](int i, int j) {
             return j == kBeats - 1 ? kInfinity : shifted(i, j, (i + 1) % 5 == j % 5 ? 0 : 2.5);
         }},
        {"no weight", std::make_shared<TimbrePitchConstraint>(0.0f, 0.0f),
         [&](int i, int j) { return j == kBeats - 1 ? kInfinity : shifted(i, j, 0); }},
        {"energy", std::make_shared<EnergyConstraint>(0.5f),
         [&](int i, int j) { return shifted(i, j, 5 * std::abs(energy(i + 1) - energy(j))); }},
        {"quiet ends", std::make_shared<QuietEndsConstraint>(),
         [](int i, int j) { return j != i + 1 && (i < 3 || j < 3) ? kInfinity : 0; }},
        {"long ends", std::make_shared<LongEndsConstraint>(4, 30, 8),
         [](int i, int j) {
             const bool isShort = (i >= 4 && i < 12) || (j > 22 && j <= 30);
             return j != i + 1 && isShort ? 3 : 0;
         }},
        {"free ends", std::make_shared<LongEndsConstraint>(-1, -1, 8), [](int, int) { return 0; }},
        {"minimum loop", std::make_shared<MinimumLoopConstraint>(8),
         [](int i, int j) { return j >= i - 7 && j <= i ? kInfinity : 0; }},
        {"minimum loop of one beat", std::make_shared<MinimumLoopConstraint>(1),
         [](int i, int j) { return j == i ? kInfinity : 0; }},
        {"long edits", std::make_shared<PenalizeLongEditsConstraint>(40.0, 2.0, 16),
         [](int i, int j) {
             const int d = std::abs(i - j) - 16;
             return d < 1 ? 0 : 40 * std::pow(static_cast<double>(d) / kBeats, 2);
         }},
    };
    for (const Row& row : rows) {
        const Matrices matrices(*row.constraint, kBeats, 10);
        for (int i = 0; i < kBeats; ++i)
            for (int j = 0; j < kBeats; ++j) {
                const double expected = row.expected(i, j), actual = matrices.transition.Row(i)[j];
                const bool isEqual = expected == kInfinity ? actual == kInfinity
                                                           : std::abs(actual - expected) < 1e-9;
                ASSERT_TRUE(isEqual) << row.name << " " << i << " " << j << ": " << actual;
            }
    }
}

TEST(Constraints, AllowTheseBeatsAtTheFirstAndTheLastPosition) {
    constexpr int kBeats = 20;
    struct Row {
        const char* name;
        std::shared_ptr<Constraint> constraint;
        int firstLo, firstHi, lastLo, lastHi;  // allowed beats, both ends included
    };
    const Row rows[] = {
        {"start", std::make_shared<StartAtBeatConstraint>(3, 0), 3, 3, 0, 19},
        {"start, slack", std::make_shared<StartAtBeatConstraint>(1, 2), 0, 3, 0, 19},
        {"end", std::make_shared<EndAtBeatConstraint>(10, 0), 0, 19, 11, 11},
        {"end, slack", std::make_shared<EndAtBeatConstraint>(10, 3), 0, 19, 8, 14},
        {"end at the last, slack", std::make_shared<EndAtBeatConstraint>(-1, 4), 0, 19, 16, 19},
        {"end at the last, none left", std::make_shared<EndAtBeatConstraint>(19, 0), 0, 19, 20, 19},
        {"range", std::make_shared<SourceTimeRangeConstraint>(2.0, 5.0), 4, 10, 4, 10},
    };
    for (const Row& row : rows) {
        const Matrices matrices(*row.constraint, kBeats, 9);
        for (const auto& [t, lo, hi] :
             {std::tuple{0, row.firstLo, row.firstHi}, std::tuple{8, row.lastLo, row.lastHi}}) {
            const auto column = matrices.placement.GetColumn(t);
            for (int i = 0; i < kBeats; ++i)
                EXPECT_EQ(column[i], i >= lo && i <= hi ? 0 : kInfinity)
                    << row.name << " " << t << " " << i;
        }
    }
}

TEST(CosinesOfBeats, CompareRowsTogetherWithTheirNeighbours) {
    // Rows: a, b, 0, 0, a + b, a
    BeatRows rows{2, {1, 0, 0, 1, 0, 0, 0, 0, 1, 1, 1, 0}, 0.0f};
    const auto plain = CosinesOfBeats(rows);
    const float r = std::sqrt(0.5f);
    const float expected[] = {1, 0, 0, 0, r, 1, 0, 1, 0, 0, r, 0, 0, 0, 1, 1, 0, 0,
                              0, 0, 1, 1, 0, 0, r, r, 0, 0, 1, r, 1, 0, 0, 0, r, 1};
    for (std::size_t k = 0; k < 36; ++k) EXPECT_FLOAT_EQ(plain[k], expected[k]) << k;

    // With neighbours: as if each row stood between its weighted neighbours' rows.
    std::mt19937 random(3);
    BeatRows song{37, {}, 0.8f}, stacked{111, {}, 0.0f};
    constexpr std::size_t kBeats = 150;
    for (std::size_t i = 0; i < kBeats * song.columns; ++i)
        song.values.push_back(static_cast<float>(random() % 1000) / 500.0f - 1.0f);
    for (std::size_t i = 0; i < kBeats; ++i)
        for (const int neighbour : {-1, 0, 1})
            for (std::size_t k = 0; k < song.columns; ++k) {
                const std::size_t at = i + static_cast<std::size_t>(neighbour);
                const float factor = neighbour == 0 ? 1.0f : 0.8f;
                stacked.values.push_back(at < kBeats ? factor * song.values[at * song.columns + k]
                                                     : 0.0f);
            }
    const auto actual = CosinesOfBeats(song), reference = CosinesOfBeats(stacked);
    const auto distances = DistancesOfBeats(song);
    for (std::size_t k = 0; k < actual.size(); ++k) {
        const std::size_t i = k / kBeats, j = k % kBeats;
        ASSERT_NEAR(actual[k], reference[k], 2e-6) << k;
        ASSERT_NEAR(CosineOfBeats(song, i, j), reference[k], 2e-6) << k;
        double square = 0;
        for (std::size_t c = 0; c < stacked.columns; ++c)
            square += std::pow(
                stacked.values[i * stacked.columns + c] - stacked.values[j * stacked.columns + c],
                2);
        ASSERT_NEAR(distances[k], std::sqrt(square), 5e-3) << k;
    }
}

struct Remix {
    Remix(const std::shared_ptr<Song>& song, double target, const RetargetOptions& options) {
        const Retarget retarget(song);
        TestFrames frames;
        result = retarget.Search(target, retarget.BuildConstraints(options), options, ranges,
                                 nullptr, frames);
    }
    double Duration() const {
        double sum = 0;
        for (const RetargetRange& range : ranges) sum += range.end - range.start;
        return sum;
    }
    RetargetResult result;
    std::vector<RetargetRange> ranges;
};

/// 100 beats in which every 4 beats sound like the 4 before.
std::shared_ptr<Song> LoopingSong() {
    return MakeSong(100, [](int i) { return i % 4; });
}

TEST(Retarget, MakesRangesThatLastAsLongAsWanted) {
    RetargetOptions ends;
    ends.startAtBeginning = ends.endAtEnd = true;
    ends.energyWeight = 0;
    struct Row {
        const char* name;
        double target;
        RetargetOptions options;
        double toleranceSeconds;
    };
    RetargetOptions part = ends;
    part.sourceStart = 10;
    part.sourceEnd = 30;
    RetargetOptions open = ends;
    open.endAtEnd = false;
    // Four beats more or less are free, and the end may be 5 s late.
    for (const Row& row : {Row{"as long", 50, ends, 5.5},
                           {"shorter", 30, ends, 5.5},
                           {"longer", 90, ends, 5.5},
                           {"part", 40, part, 5.5},
                           {"shortest", 8, ends, 5.5},
                           {"open", 33, open, 1}}) {
        const Remix remix(LoopingSong(), row.target, row.options);
        ASSERT_EQ(remix.result, RetargetResult::kDone) << row.name;
        EXPECT_NEAR(remix.Duration(), row.target, row.toleranceSeconds + 1e-9) << row.name;
        EXPECT_EQ(remix.ranges.front().start, std::max(0.0, row.options.sourceStart)) << row.name;
        if (row.options.endAtEnd) {
            EXPECT_EQ(remix.ranges.back().end,
                      row.options.sourceEnd < 0 ? 50 : row.options.sourceEnd);
        }
        for (std::size_t k = 0; k < remix.ranges.size(); ++k) {
            EXPECT_EQ(remix.ranges[k].crossfade, kPeriod);
            if (k == 0) continue;
            const double jump = remix.ranges[k].start - remix.ranges[k - 1].end;
            EXPECT_NEAR(std::remainder(jump, 2), 0, 1e-9) << row.name << ": joins are by bars";
        }
    }
    // Where nothing repeats, a song's own duration is the song itself.
    const Remix itself(MakeSong(20, [](int i) { return i; }), 10, ends);
    ASSERT_EQ(itself.ranges.size(), 1u);
    EXPECT_EQ(itself.Duration(), 10);
}

TEST(Retarget, LeavesNoSlipsBetweenTwoJumps) {
    // All beats differ, but two jumps are free with two beats between them; one jump that costs a little
    // leads to the same length.
    auto analysis = MakeSong(100, [](int) { return 0; })->GetAnalysis();
    for (BeatRows* rows : {&analysis.timbre, &analysis.chroma}) {
        *rows = {100, std::vector<float>(100 * 100, 0.0f), 0.0f};
        for (std::size_t i = 0; i < 100; ++i) rows->values[i * 101] = 1.0f;
        rows->values[40 * 100 + 21] = rows->values[70 * 100 + 42] = 10.0f;
        rows->values[78 * 100 + 31] = 3.0f;
    }
    const Retarget retarget(std::make_shared<Song>(analysis));
    RetargetOptions options;
    options.startAtBeginning = options.endAtEnd = true;
    options.maxSlack = 2;
    struct Row {
        int minBeatLength;
        std::vector<double> starts;  // beats
    };
    for (const Row& row : {Row{8, {0, 78}}, Row{2, {0, 40, 70}}}) {
        options.minBeatLength = row.minBeatLength;
        TestFrames frames(true);
        std::vector<RetargetRange> ranges;
        ASSERT_EQ(retarget.Search(26, retarget.BuildConstraints(options), options, ranges, nullptr,
                                  frames),
                  RetargetResult::kDone);
        std::vector<double> starts;
        for (const RetargetRange& range : ranges) starts.push_back(range.start / kPeriod);
        EXPECT_EQ(starts, row.starts) << row.minBeatLength;
    }
}

TEST(Retarget, FindsTheBestOfAllPathsOfATinySong) {
    std::mt19937 random(17);
    for (int trial = 0; trial < 10; ++trial) {
        const auto song = MakeSong(5, [&](int) { return static_cast<int>(random() % 3); });
        SongAnalysis analysis = song->GetAnalysis();
        analysis.gridStepSeconds = 0.8;  // 5 s make seven positions
        for (float& x : analysis.timbre.values) x += static_cast<float>(random() % 100) / 100.0f;
        const auto noisy = std::make_shared<Song>(analysis);
        RetargetOptions options;
        options.minBeatLength = 2;
        options.editLength = 0.5;
        const Retarget retarget(noisy);
        TransitionMatrix transition(5);
        PlacementMatrix placement(5, retarget.GetPositionCount(0));
        ASSERT_EQ(placement.GetPositionCount(), 7u);
        TestFrames frames;
        const auto levels = ReadBeatLevels(analysis.beatTimes, frames);
        SearchCosts costs{transition, placement, analysis, levels};
        for (const auto& constraint : retarget.BuildConstraints(options)) constraint->Apply(costs);
        double best = kInfinity;
        for (int code = 0; code < 78125; ++code) {
            double cost = 0;
            for (int rest = code, t = 0; t < 6; ++t, rest /= 5)
                cost += transition.Row(rest % 5)[rest / 5 % 5];
            best = std::min(best, cost);
        }
        EXPECT_NEAR(FindCheapestPath(transition, placement, false, nullptr).cost, best, 1e-12)
            << trial;
    }
}

TEST(Retarget, SaysWhyThereIsNoRemix) {
    RetargetOptions noSlack;
    noSlack.endAtEnd = true;
    noSlack.maxSlack = 0;
    RetargetOptions oneBeat = noSlack;
    oneBeat.maxSlack = 1;  // two beats of half a second: enough
    RetargetOptions nowhere;
    nowhere.sourceStart = 20.1;
    nowhere.sourceEnd = 20.2;
    struct Row {
        const char* name;
        std::shared_ptr<Song> song;
        RetargetOptions options;
        RetargetResult result;
    };
    auto broken = LoopingSong()->GetAnalysis();
    broken.timbre.values[5] = std::numeric_limits<float>::quiet_NaN();
    const Row rows[] = {
        {"no slack", LoopingSong(), noSlack, RetargetResult::kInfeasible},
        {"slack of two beats", LoopingSong(), oneBeat, RetargetResult::kDone},
        {"empty range", LoopingSong(), nowhere, RetargetResult::kInfeasible},
        {"no beats", std::make_shared<Song>(SongAnalysis{}), {}, RetargetResult::kNoBeats},
        {"one beat", MakeSong(1, [](int) { return 0; }), {}, RetargetResult::kNoBeats},
        {"not a number", std::make_shared<Song>(broken), {}, RetargetResult::kBadCosts},
    };
    for (const Row& row : rows) {
        const Remix remix(row.song, 30, row.options);
        EXPECT_EQ(remix.result, row.result) << row.name << ": " << DescribeResult(remix.result);
        EXPECT_EQ(remix.ranges.empty(), row.result != RetargetResult::kDone) << row.name;
    }
    const Retarget retarget(LoopingSong());
    TestFrames frames;
    std::vector<RetargetRange> ranges;
    EXPECT_EQ(
        retarget.Search(
            30, retarget.BuildConstraints({}), {}, ranges, [](double) { return false; }, frames),
        RetargetResult::kCancelled);
    EXPECT_TRUE(ranges.empty());
}

TEST(Retarget, OutputGridHoldsEveryMultipleOfTheStepBelowTheLength) {
    struct Row {
        double target, step;
        std::size_t positions;
    };
    // The song lasts 50 s, its last beat is at 49.5 s.
    for (const Row& row : {Row{50, 0.5, 100}, Row{50.1, 0.5, 101}, Row{0, 0.5, 10},
                           Row{25, 0.5, 50}, Row{30, 0.4, 75}}) {
        auto analysis = LoopingSong()->GetAnalysis();
        analysis.gridStepSeconds = row.step;
        EXPECT_EQ(Retarget(std::make_shared<Song>(analysis)).GetPositionCount(row.target),
                  row.positions)
            << row.target << " " << row.step;
    }
}

}  // namespace
}  // namespace zuc::components
