#include "Components/HardLimiter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "EffectPlayer.h"

namespace zuc::components {
namespace {

TEST(HardLimiter, ReportsTheLatencyOfItsSettings) {
    const struct {
        float rateHz, lookAheadMs;
        bool truePeak;
        int latency;
    } rows[] = {
        {48000, 5, true, 264},   {48000, 5, false, 240}, {44100, 5, true, 245},
        {44100, 20, false, 882}, {8000, 0.5f, true, 28}, {192000, 20, true, 3864},
    };
    for (const auto& row : rows) {
        EffectPlayer<HardLimiter> player(2, row.rateHz);
        player.Set(HardLimiter::kLookAheadMs, row.lookAheadMs);
        player.Set(HardLimiter::kTruePeak, row.truePeak ? 1.0f : 0.0f);
        EXPECT_EQ(player->GetInitialDelay(), row.latency);
        const auto out = player.Play(MakeImpulse(2, 4096));
        const float ceiling = std::pow(10.0f, -1.0f / 20.0f);
        EXPECT_NEAR(out[1][static_cast<std::size_t>(row.latency)], ceiling, 1e-5f);
    }
}

TEST(HardLimiter, ShowsItsReductionAndNothingElseMovesTheMeter) {
    EffectPlayer<HardLimiter> player;
    player.Set(HardLimiter::kCeilingDb, -6.0f);
    player.Set(HardLimiter::kTruePeak, 0.0f);
    const Signal loud(2, std::vector<float>(9600, 1.0f));
    player.Play(loud);
    EXPECT_NEAR(player.Get(HardLimiter::kGainReductionDb), -6.0f, 0.01f);
    player.Set(HardLimiter::kGainReductionDb, -20.0f);
    player->SetFactoryPreset(0);
    EXPECT_NEAR(player.Get(HardLimiter::kGainReductionDb), -6.0f, 0.01f);
    player.Set(HardLimiter::kDriveDb, 24.0f);
    player.Set(HardLimiter::kCeilingDb, -24.0f);
    player.Play(loud);
    EXPECT_EQ(player->GetParameter(HardLimiter::kGainReductionDb), 0.0f) << "48 dB, the end of it";
    player->Resume();
    EXPECT_EQ(player->GetParameter(HardLimiter::kGainReductionDb), 1.0f);
}

}  // namespace
}  // namespace zuc::components
