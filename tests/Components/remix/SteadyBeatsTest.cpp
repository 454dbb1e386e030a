#include "Components/private/remix/SteadyBeats.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "Components/private/remix/BeatTracker.h"

namespace zuc::components {
namespace {

constexpr std::size_t kValues = 8000;
constexpr double kRateHz = 86;

/// Onsets of the given strengths at these fractions of beats whose times `beatTime` tells.
struct Pattern {
    std::vector<std::pair<double, float>> onsets;
    float harmony = 0;  // at the beats
};

OnsetFunction MakeOnsets(const std::function<double(double)>& beatTime,
                         const std::function<Pattern(int)>& patternOfBeat) {
    OnsetFunction onsets;
    onsets.rateHz = kRateHz;
    onsets.strength.assign(kValues, -0.4f);
    onsets.low = onsets.harmony = std::vector<float>(kValues, 0.0f);
    for (int k = 0; beatTime(k + 1) < static_cast<double>(kValues - 3); ++k) {
        const Pattern pattern = patternOfBeat(k);
        for (const auto& [fraction, strength] : pattern.onsets)
            onsets.strength[static_cast<std::size_t>(beatTime(k + fraction) + 0.5)] = strength;
        onsets.harmony[static_cast<std::size_t>(beatTime(k) + 0.5)] = pattern.harmony;
    }
    return onsets;
}

/// Fraction of a beat that `place` is behind a beat, -0.5 to 0.5.
double PhaseOf(double place, const std::function<double(double)>& beatTime) {
    double beat = 0;
    while (beatTime(beat + 1) <= place) ++beat;
    const double fraction = (place - beatTime(beat)) / (beatTime(beat + 1) - beatTime(beat));
    return std::remainder(fraction, 1.0);
}

TEST(FindBeats, KeepsToTheBeatInSyncopatedAndSwungMusic) {
    const auto steady = [](double beat) { return 30 + 40.3 * beat; };
    const auto drifting = [](double beat) {
        return 30 + 40.3 * beat + 30 * std::sin(2 * std::numbers::pi * beat / 70);
    };
    const auto plain = [](int) { return Pattern{{{0, 3}, {0.5, 1}}}; };
    // Every third stretch of 25 beats has its accents between the beats.
    const auto syncopated = [](int k) {
        const bool isOff = k / 25 % 3 == 1;
        return Pattern{{{0, isOff ? 1.2f : 3.0f}, {0.5, isOff ? 3.2f : 0.8f}}};
    };
    const auto swung = [](int) { return Pattern{{{0, 2.5}, {2.0 / 3, 3}}}; };
    const auto triplets = [](int) { return Pattern{{{0, 4}, {1.0 / 3, 1.5}, {2.0 / 3, 1.5}}}; };
    const auto harmonic = [](int k) {
        return Pattern{{{0, 2.2f}, {0.5, 2.4f}}, k % 4 == 0 ? 20.0f : 0.0f};
    };
    struct Row {
        const char* name;
        std::function<double(double)> beatTime;
        std::function<Pattern(int)> pattern;
        double mostPhase;  // of any beat
    };
    for (const Row& row :
         {Row{"plain", steady, plain, 0.05}, Row{"syncopated", steady, syncopated, 0.05},
          Row{"swung", steady, swung, 0.05}, Row{"triplets", steady, triplets, 0.05},
          Row{"changes of harmony", steady, harmonic, 0.05},
          Row{"drifting, which is no metronome", drifting, plain, 0.06},
          Row{"drifting and swung", drifting, swung, 0.06}}) {
        const ProgressCallback none;
        const OnsetFunction onsets = MakeOnsets(row.beatTime, row.pattern);
        const BeatTrack track = FindBeats(onsets, ProgressShare(none));
        const double seconds = (track.beats.back() - track.beats.front()) / kRateHz;
        EXPECT_NEAR(static_cast<double>(track.beats.size() - 1) / seconds, kRateHz / 40.3, 0.03)
            << row.name;
        int offCount = 0;
        for (const double beat : track.beats)
            if (beat > 30 && beat + 60 < static_cast<double>(kValues))
                offCount += std::abs(PhaseOf(beat, row.beatTime)) > row.mostPhase ? 1 : 0;
        EXPECT_LE(offCount, 2) << row.name;
    }
}

TEST(SteadyBeats, TakesAMetronomeOnlyWhereTheMusicFollowsOne) {
    const auto time = [](double beat) { return 25 + 38.7 * beat; };
    const auto onsets = MakeOnsets(time, [](int) { return Pattern{{{0, 3}}}; });
    std::vector<double> astray;  // half a beat off in the middle
    for (int k = 0; k < 150; ++k) astray.push_back(time(k > 60 && k < 90 ? k + 0.5 : k));
    for (const double beat : SteadyBeats(onsets, astray))
        EXPECT_LT(std::abs(PhaseOf(beat, time)), 0.05);
    // Slower from the middle on: no single period is near.
    const auto change = [](double beat) {
        return beat < 90 ? 25 + 38.7 * beat : 25 + 38.7 * 90 + 50 * (beat - 90);
    };
    const auto changing = MakeOnsets(change, [](int) { return Pattern{{{0, 3}}}; });
    std::vector<double> beats;
    for (int k = 0; change(k) < 7900; ++k) beats.push_back(change(k));
    EXPECT_EQ(SteadyBeats(changing, beats), beats);
    const std::vector<double> few{10, 50, 90};
    EXPECT_EQ(SteadyBeats(onsets, few), few);
}

}  // namespace
}  // namespace zuc::components
