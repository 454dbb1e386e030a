#include "Components/Echo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "kracore/WStr.h"
#include "tests/Components/EchoReference.h"
#include "tests/Components/EffectPlayer.h"

namespace zuc::components {
namespace {

using kracore::utility::ToUtf8;
using Player = EffectPlayer<Echo>;

void SetFlat(Player& player) {
    for (int b = 0; b < 8; ++b) player.Set(Echo::kFirstBand + b, 0.0f);
}

struct Change {
    std::size_t frame;
    int index;
    float value;
};
struct Scene {
    const char* name;
    std::size_t channels;
    int rateHz;
    std::vector<Change> changes;  // those at frame 0 are in force from the start
};

const Scene kScenes[] = {
    {"defaults", 2, 8000, {}},
    {"mono, flat, short",
     1,
     8000,
     {{0, Echo::kDelayLeft, 0.3f},
      {0, Echo::kFirstBand + 7, 1.5f},
      {3001, Echo::kFirstBand + 7, 0.0f}}},
    {"one frame", 2, 8000, {{0, Echo::kDelayLeft, 0.2f}, {0, Echo::kDelayRight, 0.13f}}},
    {"delays crossfade, one change waits",
     2,
     8000,
     {{0, Echo::kDelayLeft, 90.0f},
      {0, Echo::kDelayRight, 41.0f},
      {2000, Echo::kDelayLeft, 7.0f},
      {2300, Echo::kDelayRight, 250.0f},
      {2500, Echo::kFeedbackLeft, 100.0f},
      {2600, Echo::kLevelLeft, 20.0f}}},
    {"to the whole line and back",
     2,
     8000,
     {{0, Echo::kDelayLeft, 0.0f},
      {9000, Echo::kDelayLeft, 60.0f},
      {20000, Echo::kDelayLeft, 0.0f}}},
    {"bounce",
     2,
     11025,
     {{0, Echo::kBounce, 1.0f},
      {0, Echo::kDelayLeft, 50.0f},
      {0, Echo::kDelayRight, 80.0f},
      {0, Echo::kLevelRight, 40.0f}}},
    {"bounce on and off",
     2,
     8000,
     {{0, Echo::kDelayLeft, 30.0f}, {1500, Echo::kBounce, 1.0f}, {4000, Echo::kBounce, 0.0f}}},
    {"six channels, bounce, loud",
     6,
     8000,
     {{0, Echo::kDelayLeft, 20.0f},
      {0, Echo::kBounce, 1.0f},
      {0, Echo::kLevelRight, 10.0f},
      {0, Echo::kFeedbackLeft, 100.0f},
      {0, Echo::kFirstBand, 15.0f},
      {4003, Echo::kFirstBand, -3.0f}}},
};

/// The scene's changes at one frame, made on the effect.
bool MakeChanges(const Scene& scene, std::size_t frame, Player& player) {
    bool changed = false;
    for (const Change& change : scene.changes)
        if (change.frame == frame) {
            player.Set(change.index, change.value);
            changed = true;
        }
    return changed;
}

TEST(Echo, EqualsItsDefinitionFrameByFrameForAnyBlocks) {
    constexpr std::size_t kFrames = 24000;
    for (const Scene& scene : kScenes) {
        const Signal noise = MakeNoise(scene.channels, kFrames);
        Player player(scene.channels, static_cast<float>(scene.rateHz));
        EchoReference reference(scene.channels, scene.rateHz);
        Signal expected = noise;
        std::vector<float> in(scene.channels);
        std::vector<float> out(scene.channels);
        for (std::size_t i = 0; i < kFrames; ++i) {
            if (MakeChanges(scene, i, player) || i == 0)
                reference.TakeSettings([&](int index) { return player.Get(index); });
            for (std::size_t c = 0; c < scene.channels; ++c) in[c] = noise[c][i];
            reference.ProcessFrame(in, out);
            for (std::size_t c = 0; c < scene.channels; ++c) expected[c][i] = out[c];
        }
        for (const std::size_t blockFrames : {1u, 7u, 480u, 4096u}) {
            SCOPED_TRACE(testing::Message() << scene.name << ", blocks of " << blockFrames);
            Player effect(scene.channels, static_cast<float>(scene.rateHz));
            Signal got;
            for (std::size_t done = 0; done < kFrames;) {
                MakeChanges(scene, done, effect);
                std::size_t next = kFrames;
                for (const Change& change : scene.changes)
                    if (change.frame > done) next = std::min(next, change.frame);
                Append(got, effect.Play(noise, done, next, blockFrames));
                done = next;
            }
            for (std::size_t c = 0; c < scene.channels; ++c)
                for (std::size_t i = 0; i < kFrames; ++i)
                    ASSERT_EQ(got[c][i], expected[c][i]) << "channel " << c << ", frame " << i;
        }
    }
}

TEST(Echo, RepeatsByTheFeedbackWhenTheEqualizerIsFlat) {
    Player player;
    SetFlat(player);
    player.Set(Echo::kDelayLeft, 100.0f);
    player.Set(Echo::kDelayRight, 0.0f);
    const Signal out = player.Play(MakeImpulse(2, 200000));
    const float feedback = player.Get(Echo::kFeedbackLeft) / 100.0f;
    const float level = player.Get(Echo::kLevelLeft) / 100.0f;
    float echo = level;
    for (std::size_t n = 1; n < 10; ++n) ASSERT_EQ(out[0][4800 * n], echo *= feedback) << n;
    EXPECT_EQ(out[1][96200], level * feedback) << "0 ms is the whole line";
    EXPECT_EQ(out[1][0], 1.0f);
    EXPECT_EQ(std::count_if(out[1].begin(), out[1].end(), [](float x) { return x != 0.0f; }), 3);
}

TEST(Echo, SettingsOfTheFirstBlockAfterResumeAreNotFadedIn) {
    const Signal noise = MakeNoise(2, 50000);
    Player used;
    used.Play(noise);
    used.Set(Echo::kDelayLeft, 30.0f);
    used.Play(noise, 0, 1000, 500);
    used.Set(Echo::kDelayLeft, 50.0f);
    used.Play(noise, 0, 1000, 500);
    used->Suspend();
    used->Resume();
    used.Set(Echo::kFeedbackLeft, 20.0f);
    Player fresh;
    fresh.Set(Echo::kDelayLeft, 50.0f);
    fresh.Set(Echo::kFeedbackLeft, 20.0f);
    EXPECT_EQ(used.Play(noise), fresh.Play(noise));
}

TEST(Echo, PresetsAreTheirTable) {
    const struct {
        const char* name;
        float values[14];
        bool bounce;
    } rows[] = {
        // clang-format off
        {"(Default)",                          {348.8f, 232.6f, 64, 64, 85, 85, -9.8f, -9.9f, -9.6f, -9.5f, -2.4f, -7, -1.1f, 0}, false},
        {"Analog Delay",                       {800, 800, 50.05f, 50.05f, 85.02f, 85.02f, -9.8f, -9.9f, -4.1f, 4.5f, 2, 1, 0.5f, 0}, false},
        {"Danger - Sci Fi Cliche Approaching", {2000, 200, 75.03f, 75.03f, 100, 100, -9.8f, 0, 1, -9.5f, 1, -2, 1, 0}, false},
        {"Delicate Whispers",                  {1800, 277, 60.04f, 60.04f, 75.03f, 75.03f, -15, -15, -15, -15, -15, 1, 1.5f, 2}, false},
        {"Echo Weighted Left",                 {200, 100, 40.06f, 40.06f, 75.03f, 75.03f, -4.4f, -4.7f, -4.1f, -1.6f, 6.9f, -2.4f, -5.5f, -9.1f}, false},
        {"Echo Weighted Right",                {100, 200, 40.06f, 40.06f, 75.03f, 75.03f, -4.5f, -4.7f, -4.1f, -1.6f, 6.9f, -2.4f, -5.5f, -9.1f}, false},
        {"Formant Delay",                      {1000, 1000, 70.03f, 70.03f, 85.02f, 85.02f, -9.8f, -9.9f, -6.7f, -4, -2.4f, -1, -1.2f, -4}, false},
        {"Hi-Pass Delay",                      {400, 800, 50.05f, 50.05f, 85.02f, 85.02f, -15, -15, -15, -15, 1, 2, 3, 4}, false},
        {"Infinite Loop",                      {600, 600, 80.02f, 80.02f, 75.03f, 75.03f, 9.8f, 9.8f, 9.6f, 0.5f, -2.4f, 0.5f, -1.1f, 0}, false},
        {"Low-Pass Delay",                     {348.8f, 232.6f, 64.08f, 64.08f, 85.02f, 85.02f, -5, -3, -2, 1, -2.4f, -7, -3, -3}, false},
        {"Spooky",                             {200, 200, 70.03f, 70.03f, 100, 100, -9.8f, -9.9f, -9.6f, 1, -2.2f, -4.7f, -9.5f, -15}, true},
        {"Springy Telephone",                  {160, 160, 64.08f, 64.08f, 85.02f, 85.02f, -9.8f, -9.9f, -9.6f, -9.5f, 4, -7, -1.1f, 0}, false},
        {"Stereo Vocals",                      {250, 200, 64.08f, 64.08f, 30.07f, 30.07f, -9.8f, -9.9f, -9.6f, 0, 2, 0, -1.1f, 0}, false},
        {"Synthesizing SMPTE",                 {80, 80, 45.05f, 45.05f, 75.03f, 75.03f, -4.5f, -4.7f, -4.1f, -1.6f, 6.9f, -2.4f, -5.5f, -9.1f}, true},
        // clang-format on
    };
    Player player;
    ASSERT_EQ(player->GetNumFactoryPresets(), static_cast<int>(std::size(rows)));
    for (int p = 0; p < static_cast<int>(std::size(rows)); ++p) {
        const auto& row = rows[p];
        EXPECT_EQ(ToUtf8(player->GetFactoryPresetName(p)), row.name);
        player->SetFactoryPreset(p);
        for (int i = 0; i < 14; ++i)
            EXPECT_NEAR(player.Get(i), row.values[i], 2e-4f) << row.name << ' ' << i;
        EXPECT_EQ(player->GetParameter(Echo::kLockChannels), 50.0f / 199.0f);
        EXPECT_EQ(player->GetParameter(Echo::kBounce), (row.bounce ? 150.0f : 50.0f) / 199.0f);
        EXPECT_EQ(player->GetParameter(Echo::kTimeUnit), 0.0f);
        EXPECT_EQ(player->GetParameter(Echo::kChannelCount), 0.0625f);
    }
    player->SetFactoryPreset(9);
    EXPECT_FLOAT_EQ(player->GetParameter(Echo::kFeedbackLeft), (64.08f - 0.1f) / 99.9f);
}

TEST(Echo, NamesFollowTheLayoutAndStayWhenItIsStereoAgain) {
    Player player;
    const auto name = [&](int index) { return ToUtf8(player->GetParameterInfo(index)->GetName()); };
    EXPECT_EQ(name(Echo::kDelayLeft), "Delay Time (Left Channel)");
    EXPECT_TRUE(player->GetParameterInfo(Echo::kDelayRight)->CanBeAutomated());
    player.Set(Echo::kFeedbackLeft, 31.0f);
    for (const std::size_t channels : {6u, 1u, 2u}) {
        player.SetChannels(channels);
        EXPECT_EQ(name(Echo::kDelayLeft), "Delay Time");
        EXPECT_EQ(name(Echo::kFeedbackLeft), "Feedback");
        EXPECT_EQ(name(Echo::kLevelLeft), "Echo Level");
        EXPECT_EQ(name(Echo::kDelayRight), "Delay Time (Right Channel)");
        EXPECT_EQ(player->GetParameterInfo(Echo::kDelayLeft)->GetIdentifier(), "DelayLeft");
        for (const int right : {Echo::kDelayRight, Echo::kFeedbackRight, Echo::kLevelRight})
            EXPECT_FALSE(player->GetParameterInfo(right)->CanBeAutomated());
        EXPECT_TRUE(player->GetParameterInfo(Echo::kLevelLeft)->CanBeAutomated());
        EXPECT_FLOAT_EQ(player.Get(Echo::kFeedbackLeft), 31.0f) << "values stay";
        EXPECT_EQ(ToUtf8(player->GetParameterString(Echo::kChannelCount)),
                  std::to_string(channels));
    }
}

TEST(Echo, ShowsDelaysInTheChosenUnit) {
    Player player;
    player.Set(Echo::kDelayLeft, 250.0f);
    const char* texts[] = {"250.0", "12000", "0.25"};
    for (int unit = 0; unit < 3; ++unit) {
        player.Set(Echo::kTimeUnit, static_cast<float>(unit));
        EXPECT_EQ(ToUtf8(player->GetParameterString(Echo::kDelayLeft)), texts[unit]);
    }
}

TEST(Echo, IsSilentAfterItsTailForEveryPreset) {
    for (int preset = 0; preset < 14; ++preset) {
        Player player(2, 8000.0f);
        player->SetFactoryPreset(preset);
        const int tail = player->GetTail();
        ASSERT_GT(tail, 0);
        player.Play(MakeNoise(2, 40000, 1.0f));
        Signal rest =
            player.Play(Signal(2, std::vector<float>(static_cast<std::size_t>(tail) + 40000)));
        const auto loudest = [&](std::size_t first, std::size_t last) {
            float peak = 0.0f;
            for (const auto& channel : rest)
                for (std::size_t i = first; i < last; ++i)
                    peak = std::max(peak, std::fabs(channel[i]));
            return peak;
        };
        if (tail == 60 * 8000) continue;  // cut on purpose
        const auto end = static_cast<std::size_t>(tail);
        EXPECT_LT(loudest(end, end + 40000), 3.2e-5f) << "preset " << preset;
        EXPECT_GT(loudest(end / 3, end), 3.2e-5f) << "preset " << preset << ": far too long";
    }
    Player player;
    SetFlat(player);
    player.Set(Echo::kFeedbackLeft, 100.0f);
    EXPECT_EQ(player->GetTail(), 60 * 48000);
}

TEST(Echo, StaysBoundedWhateverTheFeedback) {
    for (const float bandDb : {0.0f, 15.0f}) {
        Player player(2, 8000.0f);
        for (int b = 0; b < 8; ++b) player.Set(Echo::kFirstBand + b, bandDb);
        player.Set(Echo::kDelayLeft, 21.0f);
        player.Set(Echo::kFeedbackLeft, 100.0f);
        player.Set(Echo::kFeedbackRight, 100.0f);
        Signal loud = MakeNoise(2, 80000, 4.0f);
        loud[0][100] = std::numeric_limits<float>::quiet_NaN();
        loud[1][200] = std::numeric_limits<float>::infinity();
        player.Play(loud);
        const float bound = std::pow(10.0f, bandDb / 20.0f) + 1e-5f;
        for (const auto& channel : player.Play(Signal(2, std::vector<float>(80000))))
            for (const float x : channel) ASSERT_LE(std::fabs(x), bound);
    }
}

/// A sine whose delay or feedback moves every 50 ms, while each crossfade takes 100 ms.
TEST(Echo, AutomationMakesNoClicks) {
    Signal sine(2, std::vector<float>(96000));
    for (auto& channel : sine)
        for (std::size_t i = 0; i < channel.size(); ++i)
            channel[i] = 0.25f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 200.0 *
                                                             static_cast<double>(i) / 48000.0));
    const float step = 0.25f * 2.0f * std::numbers::pi_v<float> * 200.0f / 48000.0f;
    for (const int index : {int{Echo::kDelayLeft}, int{Echo::kFeedbackLeft}, int{Echo::kLevelLeft},
                            int{Echo::kBounce}}) {
        Player player;
        SetFlat(player);
        player.Set(Echo::kDelayLeft, 100.0f);
        player.Set(Echo::kFeedbackLeft, 50.0f);
        Signal out;
        for (std::size_t done = 0; done < 96000; done += 2400) {
            const bool high = done / 2400 % 2 == 1;
            player.Set(index, index == Echo::kDelayLeft ? (high ? 400.0f : 37.0f)
                              : index == Echo::kBounce  ? float(high)
                                                        : (high ? 90.0f : 5.0f));
            Append(out, player.Play(sine, done, done + 2400, 512));
        }
        // The sound and its echoes add up to at most 1 / (1 - 0.9) sines, faded within 4800 frames.
        float largest = 0.0f;
        for (const auto& channel : out)
            for (std::size_t i = 1; i < channel.size(); ++i)
                largest = std::max(largest, std::fabs(channel[i] - channel[i - 1]));
        EXPECT_LT(largest, 10.0f * step + 2.0f / 4800.0f) << index;
        EXPECT_GT(largest, 0.5f * step);
    }
}

}  // namespace
}  // namespace zuc::components
