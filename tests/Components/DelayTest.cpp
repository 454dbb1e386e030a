#include "Components/Delay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kracore/WStr.h"
#include "tests/Components/EffectPlayer.h"

namespace zuc::components {
namespace {

using kracore::utility::ToUtf8;
using Player = EffectPlayer<Delay>;

/// Frames before the first are silence.
float At(const std::vector<float>& signal, std::ptrdiff_t frame) {
    return frame < 0 ? 0.0f : signal[static_cast<std::size_t>(frame)];
}

TEST(Delay, IsExactToTheFrameFromBeforeTheSoundToAfterIt) {
    const struct {
        float rateHz;
        float ms;
        int delayFrames;
        int latencyFrames;
    } rows[] = {{44100, -500, -22049, 22150}, {44100, 500, 22050, 22150},
                {44100, 0, 0, 22150},         {48000, -500, -23999, 24100},
                {48000, 120, 5760, 24100},    {48000, -0.5f, -23, 24100},
                {8000, 333, 2664, 4100},      {96000, -200, -19199, 48100}};
    for (const auto& row : rows)
        for (const bool invert : {false, true})
            for (const float mix : {0.0f, 65.0f, 100.0f}) {
                SCOPED_TRACE(testing::Message() << row.ms << " ms at " << row.rateHz << " Hz, mix "
                                                << mix << (invert ? ", inverted" : ""));
                Player player(2, row.rateHz);
                player.Set(Delay::kDelayLeft, row.ms);
                player.Set(Delay::kInvertLeft, invert ? 1.0f : 0.0f);
                player.Set(Delay::kMixLeft, mix);
                player.Set(Delay::kMixRight, 0.0f);
                EXPECT_EQ(player->GetInitialDelay(), row.latencyFrames);
                EXPECT_EQ(player->GetTail(), mix == 0.0f ? 0 : std::max(0, row.delayFrames));
                const auto latency = static_cast<std::ptrdiff_t>(row.latencyFrames);
                const Signal noise = MakeNoise(2, static_cast<std::size_t>(3 * latency));
                const Signal out = player.Play(noise, 500);
                const float wet = player.Get(Delay::kMixLeft) / 100.0f;
                for (std::ptrdiff_t i = 0; i < 3 * latency; ++i) {
                    const float dry = At(noise[0], i - latency);
                    const float late = At(noise[0], i - latency - row.delayFrames);
                    ASSERT_EQ(At(out[0], i), dry * (1.0f - wet) + late * (invert ? -wet : wet))
                        << i;
                    ASSERT_EQ(At(out[1], i), At(noise[1], i - latency)) << i;
                }
            }
}

TEST(Delay, CrossfadesOverATenthOfASecondWhileAnotherChangeWaits) {
    constexpr std::size_t kFade = 800;
    for (const std::size_t blockFrames : {1u, 64u, 2048u}) {
        Player player(1, 8000.0f);
        const auto latency = static_cast<std::size_t>(player->GetInitialDelay());
        player.Set(Delay::kDelayLeft, 10.0f);
        player.Set(Delay::kMixLeft, 100.0f);
        const Signal noise = MakeNoise(1, 20000);
        Signal out = player.Play(noise, 0, 9000, blockFrames);
        player.Set(Delay::kDelayLeft, -20.0f);
        Append(out, player.Play(noise, 9000, 9300, blockFrames));
        player.Set(Delay::kDelayLeft, 5.0f);
        player.Set(Delay::kMixLeft, 50.0f);
        Append(out, player.Play(noise, 9300, 20000, blockFrames));
        const auto late = [&](std::size_t i, int ms) {
            return noise[0][i - latency - static_cast<std::size_t>(ms * 8)];
        };
        for (std::size_t i = 9000; i < 20000; ++i) {
            // -20 ms are 159 frames, not 160.
            const float early = noise[0][i - latency + 159];
            const float half = 0.5f * (late(i, 5) + noise[0][i - latency]);
            const float first = std::min(1.0f, static_cast<float>(i - 9000) / kFade);
            const float second = i < 9000 + kFade
                                     ? 0.0f
                                     : std::min(1.0f, static_cast<float>(i - 9000 - kFade) / kFade);
            const float expected =
                (1.0f - first) * late(i, 10) + first * (1.0f - second) * early + second * half;
            ASSERT_NEAR(out[0][i], expected, 1e-6f) << i << ", blocks of " << blockFrames;
        }
    }
}

TEST(Delay, SettingsOfTheFirstBlockAfterResumeAreNotFadedIn) {
    const Signal noise = MakeNoise(2, 50000);
    Player used;
    used.Play(noise);
    used.Set(Delay::kDelayLeft, 30.0f);
    used.Play(noise, 0, 1000, 500);
    used.Set(Delay::kDelayLeft, 50.0f);
    used.Play(noise, 0, 1000, 500);
    used->Suspend();
    used->Resume();
    used.Set(Delay::kMixLeft, 20.0f);
    Player fresh;
    fresh.Set(Delay::kDelayLeft, 50.0f);
    fresh.Set(Delay::kMixLeft, 20.0f);
    EXPECT_EQ(used.Play(noise), fresh.Play(noise));
}

TEST(Delay, PresetsAreTheirTable) {
    const struct {
        const char* name;
        float values[6];
    } rows[] = {{"(Default)", {120, 0, 75, 180, 0, 65}},
                {"100ms Delay on Left", {100, 0, 50, 0, 0, 50}},
                {"Bounce", {120, 0, 75, 180, 0, 65}},
                {"Dueling Drunk Drummers", {-482, 1, 43, 284, 0, 57}},
                {"Mono Repeater", {120, 0, 65, 0, 0, 100}},
                {"Out of Time", {-500, 0, 75, 333, 0, 65}},
                {"Rich Double", {60, 0, 75, 65, 0, 65}},
                {"Rockabilly", {150, 0, 50, 150, 0, 50}},
                {"Room Ambience", {110, 0, 24, 126.7f, 0, 23}},
                {"Slap Back", {120, 0, 75, 180, 0, 65}},
                {"Spatial Echo", {-200, 0, 60, 200, 0, 60}},
                {"Stutter", {75, 0, 75, 75, 0, 65}},
                {"Tape Slap", {-200, 0, 80, 200, 0, 80}},
                {"Wide Max Delay", {-500, 1, 50, 500, 0, 50}}};
    Player player;
    ASSERT_EQ(player->GetNumFactoryPresets(), static_cast<int>(std::size(rows)));
    for (int p = 0; p < static_cast<int>(std::size(rows)); ++p) {
        EXPECT_EQ(ToUtf8(player->GetFactoryPresetName(p)), rows[p].name);
        player->SetFactoryPreset(p);
        for (int i = 0; i < 6; ++i) {
            const float value = rows[p].values[i];
            const bool isSwitch = i % 3 == 1;
            EXPECT_NEAR(player.Get(i), isSwitch ? (value > 0.0f ? 150.0f : 50.0f) / 199.0f : value,
                        1e-4f)
                << rows[p].name << ' ' << i;
        }
        EXPECT_EQ(player->GetParameter(Delay::kChannelCount), 0.0625f);
    }
}

TEST(Delay, WiderLayoutsTakeTheLeftSettingsUnderOtherNames) {
    Player player;
    player.Set(Delay::kDelayLeft, 50.0f);
    player.SetChannels(6);
    const auto name = [&](int index) { return ToUtf8(player->GetParameterInfo(index)->GetName()); };
    const Signal noise = MakeNoise(6, 60000);
    const Signal out = player.Play(noise);
    for (std::size_t c = 0; c < 6; ++c)
        EXPECT_EQ(out[c][50000],
                  noise[c][50000 - 24100] * 0.25f + noise[c][50000 - 24100 - 2400] * 0.75f)
            << c;
    player.SetChannels(2);
    EXPECT_EQ(name(Delay::kDelayLeft), "Delay Time");
    EXPECT_EQ(name(Delay::kInvertLeft), "Invert All Channels");
    EXPECT_EQ(name(Delay::kMixLeft), "Mix");
    EXPECT_EQ(name(Delay::kDelayRight), "Right Channel Delay Time");
    for (const int right : {Delay::kDelayRight, Delay::kInvertRight, Delay::kMixRight})
        EXPECT_FALSE(player->GetParameterInfo(right)->CanBeAutomated());
    player.Set(Delay::kTimeUnit, 1.0f);
    EXPECT_EQ(ToUtf8(player->GetParameterString(Delay::kDelayLeft)), "2400");
}

}  // namespace
}  // namespace zuc::components
