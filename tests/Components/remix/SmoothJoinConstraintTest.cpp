#include "Components/private/remix/SmoothJoinConstraint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace zuc::components {
namespace {

constexpr int kOnsetRateHz = 100;
constexpr int kBeatFrames = 50;  // of the onset curve
constexpr BeatLevel kEvenLevel{0.1, -20, -20};

/// `count` beats at 120 to the minute, all alike, and without onsets.
struct TestSong {
    explicit TestSong(int count) : transition(count), placement(count, 10) {
        for (int i = 0; i < count; ++i) song.beatTimes.push_back(0.5 * i);
        song.beatPeriodSeconds = 0.5;
        song.onsetRateHz = kOnsetRateHz;
        for (BeatRows* rows : {&song.timbre, &song.chroma}) {
            rows->columns = 12;
            rows->values.assign(static_cast<std::size_t>(count) * 12, 0.0f);
        }
        levels.assign(static_cast<std::size_t>(count), kEvenLevel);
    }
    void SetOnsets(const std::function<bool(int frame)>& hasOnset) {
        for (int k = 0; k < kBeatFrames * static_cast<int>(levels.size()); ++k)
            song.onsets.push_back(hasOnset(k) ? 1.0f : -0.5f);
    }
    void Apply(float timbreWeight = 1, float chromaWeight = 1) {
        SearchCosts costs{transition, placement, song, levels};
        SmoothJoinConstraint(timbreWeight, chromaWeight).Apply(costs);
    }
    /// Of beat j in place of beat e.
    double GetCost(std::size_t e, std::size_t j) const { return transition.Row(e - 1)[j]; }

    SongAnalysis song;
    std::vector<BeatLevel> levels;
    TransitionMatrix transition;
    PlacementMatrix placement;
};

TEST(SmoothJoinConstraint, CostsWhatItsFormulasSay) {
    struct Row {
        const char* name;
        std::function<void(TestSong&)> prepare;
        std::size_t e, j;
        double expected;
    };
    // Columns that go from 0 to 9 again and again: a tenth of all pairs is equal, the median is 3 apart.
    const auto climb = [](BeatRows& rows, std::size_t columns) {
        for (std::size_t i = 0; i < rows.GetCount(); ++i)
            for (std::size_t k = 0; k < columns; ++k)
                rows.values[i * 12 + k] = static_cast<float>(i % 10);
    };
    const auto climbInTimbre = [&](TestSong& test) { climb(test.song.timbre, 1); };
    const auto climbInOneClass = [&](TestSong& test) { climb(test.song.chroma, 1); };
    const auto climbInAllClasses = [&](TestSong& test) { climb(test.song.chroma, 12); };
    const auto getLouder = [](TestSong& test) {
        std::fill(test.levels.begin() + 15, test.levels.end(), BeatLevel{0.2, -13, -13});
    };
    const auto slip = [](TestSong& test) {  // by half a beat
        test.SetOnsets([](int k) { return k % 50 == (k < 12 * 50 ? 0 : 25); });
    };
    const auto pulseTwice = [](TestSong& test) {
        test.SetOnsets([](int k) { return k % 25 == 0; });
    };
    const Row rows[] = {
        {"all alike", [](TestSong&) {}, 5, 20, 0},
        {"same timbre", climbInTimbre, 5, 15, 0},
        {"other timbre", climbInTimbre, 5, 21, 4 * 4.0 / 3},
        {"playing on", climbInTimbre, 5, 5, 0},
        {"same harmony", climbInOneClass, 5, 15, 0},
        {"other harmony", climbInOneClass, 5, 21, 2 * 4.0 / 3},
        {"more of the same harmony", climbInAllClasses, 5, 21, 0},
        {"same loudness", getLouder, 18, 25, 0},
        {"7 dB louder on both sides", getLouder, 5, 20, 2},
        {"7 dB louder behind the join", getLouder, 5, 15, 2.5 / 3},
        {"7 dB softer", getLouder, 20, 5, 2},
        {"in time", slip, 5, 8, 0},
        {"half a beat off", slip, 5, 20, 1 + 16 * 1.1},
        {"half a beat off again", slip, 20, 5, 1 + 16 * 1.1},
        {"in time, and half a beat off as well", pulseTwice, 5, 20, 1.6},
    };
    for (const Row& row : rows) {
        TestSong test(30);
        row.prepare(test);
        test.Apply();
        EXPECT_NEAR(test.GetCost(row.e, row.j), row.expected, 1e-5) << row.name;
    }
}

TEST(SmoothJoinConstraint, FollowsTheWeights) {
    for (const auto& [timbre, chroma] : {std::pair{0.0f, 0.0f}, {2.0f, 0.0f}, {0.0f, 3.0f}}) {
        TestSong test(30);
        for (std::size_t i = 0; i < 30; ++i)
            test.song.timbre.values[i * 12] = test.song.chroma.values[i * 12 + 3] =
                static_cast<float>(i % 10);
        test.Apply(timbre, chroma);
        const double one = 4.0 / 3;  // excess of beats that are 4 apart
        EXPECT_NEAR(test.GetCost(5, 21),
                    static_cast<double>(timbre) * 4 * one + static_cast<double>(chroma) * 2 * one,
                    1e-5);
    }
}

TEST(SmoothJoinConstraint, TimesTheCheapestOfWhatMayBePlayed) {
    constexpr std::size_t kBeats = 100, kTimed = 32, kPlayed = 60;
    TestSong test(kBeats);
    test.SetOnsets([](int k) { return k % 50 == 0; });
    for (std::size_t j = 0; j < kBeats; ++j) {
        test.transition.Row(49)[j] = 1000.0 - static_cast<double>(j);
        if (j >= kPlayed) test.placement.AddToRow(j, std::numeric_limits<double>::infinity());
    }
    test.Apply();
    for (std::size_t j = 3; j < kPlayed; ++j) {
        if (j == 50) continue;  // playing on
        const bool isTimed = j >= kPlayed - kTimed - 1;
        EXPECT_NEAR(test.GetCost(50, j), 1000.0 - static_cast<double>(j) + (isTimed ? 0 : 3), 1e-5)
            << j;
    }
}

}  // namespace
}  // namespace zuc::components
