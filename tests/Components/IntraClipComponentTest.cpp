#include "Components/IntraClipComponent.h"

#include <gtest/gtest.h>

#include <cmath>

#include "EffectPlayer.h"
#include "kraaudiodsp/IntraClip.h"
#include "kracore/WStr.h"

namespace zuc::components {
namespace {

using dsp::intraclip::IntraClip;
using Leveler = IntraClipComponent;

TEST(IntraClipComponent, TakesRangesAndInitialValuesFromTheKernel) {
    dsp::intraclip::IntraClipParam record;
    record.finCompThresh = -12.0f;
    dsp::intraclip::SetGlobalParam(record);
    EffectPlayer<Leveler> player;
    IntraClip kernel;
    dsp::intraclip::SetGlobalParam({});
    ASSERT_EQ(player->GetParameterCount(), 9);
    for (int i = 0; i < player->GetParameterCount(); ++i) {
        float lo = 0.0f, hi = 0.0f;
        kernel.GetBounds(i, lo, hi);
        const auto info = player->GetParameterInfo(i);
        EXPECT_EQ(info->FromNormalized(0.0f), lo) << i;
        EXPECT_EQ(info->FromNormalized(1.0f), hi) << i;
        EXPECT_NEAR(player.Get(i), kernel.GetParameter(i), 1e-4f) << i;
        EXPECT_EQ(info->CanBeAutomated(), i != Leveler::kAmplificationMeterDb);
    }
    EXPECT_NEAR(player.Get(Leveler::kCompressorThresholdDb), -12.0f, 1e-4f);
    EXPECT_EQ(player->GetParameterInfo(Leveler::kTargetVolumeLevelDb)->GetLabel(), u"dB RMS");
    const char16_t* names[] = {u"Medium", u"Soft", u"Strong", u"Careful"};
    ASSERT_EQ(player->GetNumFactoryPresets(), 4);
    for (int p = 0; p < 4; ++p) EXPECT_EQ(player->GetFactoryPresetName(p), names[p]);
    EXPECT_EQ(player->GetInitialDelay(), 9864);
}

TEST(IntraClipComponent, MeterShowsTheGain) {
    EffectPlayer<Leveler> player;
    player.Set(Leveler::kLevelingAmountPercent, 100.0f);
    player.Set(Leveler::kNoiseOffsetDb, 10.0f);
    // -24 dB: 6 dB below the target.
    const Signal noise = MakeNoise(2, 4 * 48000, std::sqrt(3.0f) * std::pow(10.0f, -24.0f / 20.0f));
    player.Play(noise);
    EXPECT_NEAR(player.Get(Leveler::kAmplificationMeterDb), 6.0f, 0.3f);
    player->Resume();
    EXPECT_NEAR(player.Get(Leveler::kAmplificationMeterDb), 0.0f, 1e-4f);
}

}  // namespace
}  // namespace zuc::components
