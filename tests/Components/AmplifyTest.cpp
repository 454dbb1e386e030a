#include "Components/Amplify.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kracore/WStr.h"

namespace zuc::components {
namespace {

using kracore::utility::ToUtf8;

float Normalized(float gainDb) { return (gainDb + 96.0f) / 144.0f; }
float Linear(float gainDb) { return std::pow(10.0f, gainDb / 20.0f); }
int Gain(int channel) { return Amplify::kFirstGain + channel; }

class AmplifyTest : public testing::Test {
protected:
    AmplifyTest() : effect_(new Amplify) { effect_->SetSampleRate(48000.0f); }

    void SetChannels(std::size_t channels) {
        const auto layout = kramediatypes::LayoutForChannelCount(channels);
        effect_->RequestIOConfiguration({layout}, {layout});
    }

    /// The gains that `frames` frames of ones come out with, in blocks.
    std::vector<float> Process(int frames, int blockFrames, std::size_t channel = 0) {
        const std::size_t channels = effect_->GetNumberOfOutputChannels();
        std::vector<std::vector<float>> buffers(
            channels, std::vector<float>(static_cast<std::size_t>(frames), 1.0f));
        std::vector<float*> pointers(channels);
        Flags flags;
        for (int done = 0; done < frames; done += blockFrames) {
            for (std::size_t c = 0; c < channels; ++c) pointers[c] = buffers[c].data() + done;
            effect_->Process(pointers.data(), pointers.data(), std::min(blockFrames, frames - done),
                             {}, flags);
        }
        return buffers[channel];
    }

    boost::intrusive_ptr<Amplify> effect_;
};

TEST_F(AmplifyTest, RampsOverTenMillisecondsWhateverTheBlocks) {
    struct Row {
        float rateHz;
        int rampFrames;
        int blockFrames;
    };
    for (const Row& row : {Row{48000, 480, 256}, Row{48000, 480, 1}, Row{8000, 80, 256},
                           Row{44100, 441, 2048}, Row{40, 1, 16}}) {
        SCOPED_TRACE(testing::Message() << row.rateHz << " Hz, blocks of " << row.blockFrames);
        effect_->SetSampleRate(row.rateHz);
        effect_->SetParameter(Gain(0), Normalized(0.0f));
        effect_->Resume();
        effect_->SetParameter(Gain(0), Normalized(6.0f));
        const auto gains = Process(row.rampFrames + 50, row.blockFrames);
        const float step = (Linear(6.0f) - 1.0f) / static_cast<float>(row.rampFrames);
        for (int i = 0; i < row.rampFrames; ++i)
            ASSERT_NEAR(gains[static_cast<std::size_t>(i)], 1.0f + step * static_cast<float>(i),
                        1e-5f)
                << i;
        for (std::size_t i = static_cast<std::size_t>(row.rampFrames); i < gains.size(); ++i)
            ASSERT_EQ(gains[i], Linear(6.0f)) << "no residue of the ramp may stay, frame " << i;
    }
}

TEST_F(AmplifyTest, AChangeDuringARampStartsAFullRampFromThere) {
    effect_->Resume();
    effect_->SetParameter(Gain(0), Normalized(20.0f));
    const float reached = Process(240, 240).back();
    EXPECT_NEAR(reached, 1.0f + 9.0f * 239.0f / 480.0f, 1e-4f);
    effect_->SetParameter(Gain(0), Normalized(0.0f));
    const auto back = Process(481, 64);
    EXPECT_NEAR(back[0], 1.0f + 9.0f * 240.0f / 480.0f, 1e-4f);
    EXPECT_GT(back[479], 1.0f);
    EXPECT_EQ(back[480], 1.0f);
}

TEST_F(AmplifyTest, ResumePlaysAtTheSettingsAndPresetsRamp) {
    effect_->SetFactoryPreset(1);
    effect_->Resume();
    EXPECT_EQ(Process(1, 1)[0], Linear(10.0f));
    effect_->SetFactoryPreset(8);
    const auto gains = Process(481, 100);
    EXPECT_EQ(gains[0], Linear(10.0f));
    EXPECT_EQ(gains[480], Linear(-6.0f));
}

TEST_F(AmplifyTest, DraggingALinkedGainMovesAllAndAutomationOne) {
    const float dragged = Normalized(12.0f);
    effect_->SetParameterAutomated(Gain(1), dragged);
    EXPECT_EQ(effect_->GetParameter(Gain(0)), Normalized(0.0f));
    effect_->SetParameterAutomated(Gain(1), Normalized(0.0f));

    effect_->BeginEditing(Gain(1));
    effect_->StartLoadingSettings();
    effect_->SetParameterAutomated(Gain(1), Normalized(3.0f));
    EXPECT_EQ(effect_->GetParameter(Gain(0)), Normalized(0.0f)) << "settings load one by one";
    effect_->FinishLoadingSettings(true);
    effect_->SetParameterAutomated(Gain(1), dragged);
    effect_->EndEditing(Gain(1));
    for (int c = 0; c < Amplify::kMaxChannelCount; ++c)
        EXPECT_EQ(effect_->GetParameter(Gain(c)), dragged) << c;

    effect_->SetParameterAutomated(Amplify::kLinkSliders, 0.0f);
    effect_->BeginEditing(Gain(1));
    effect_->SetParameterAutomated(Gain(1), Normalized(1.0f));
    EXPECT_EQ(effect_->GetParameter(Gain(0)), dragged);
}

TEST_F(AmplifyTest, AnswersOddIndicesAsTheContractSays) {
    EXPECT_EQ(effect_->GetParameterCount(), 34);
    EXPECT_EQ(effect_->GetParameter(Amplify::kChannelCount), 0.0625f);
    effect_->SetParameter(Amplify::kChannelCount, 1.0f);
    EXPECT_EQ(effect_->GetParameter(Amplify::kChannelCount), 0.0625f);
    EXPECT_EQ(effect_->GetParameter(99), 1.0f);
    effect_->SetParameter(Amplify::kLinkSliders, 0.49f);
    EXPECT_EQ(effect_->GetParameter(99), 0.0f);
    EXPECT_FLOAT_EQ(effect_->GetParameter(20), 2.0f / 3.0f);
    EXPECT_EQ(effect_->GetParameterInfo(Gain(2)), nullptr);
    EXPECT_TRUE(effect_->GetParameterString(Gain(2)).empty());
    effect_->SetParameter(Gain(1), Normalized(-6.5f));
    EXPECT_EQ(ToUtf8(effect_->GetParameterString(Gain(1))), "-6.5");
}

TEST_F(AmplifyTest, PresetsSetEveryPresentGain) {
    const struct {
        const char* name;
        float gainDb;
    } rows[] = {{"(Default)", 0},  {"+10dB Boost", 10}, {"+1dB Boost", 1},
                {"+3dB Boost", 3}, {"+6dB Boost", 6},   {"-10dB Cut", -10},
                {"-1dB Cut", -1},  {"-3dB Cut", -3},    {"-6dB Cut", -6}};
    ASSERT_EQ(effect_->GetNumFactoryPresets(), 9);
    SetChannels(6);
    for (int p = 0; p < 9; ++p) {
        EXPECT_EQ(ToUtf8(effect_->GetFactoryPresetName(p)), rows[p].name);
        effect_->SetFactoryPreset(p);
        effect_->Resume();
        for (int c = 0; c < 6; ++c) {
            EXPECT_EQ(effect_->GetParameter(Gain(c)), Normalized(rows[p].gainDb));
            EXPECT_NEAR(20.0f * std::log10(Process(1, 1, static_cast<std::size_t>(c))[0]),
                        rows[p].gainDb, 1e-4f);
        }
    }
}

TEST_F(AmplifyTest, NamesGainsAfterTheirChannels) {
    const auto nameOf = [&](int channel) {
        return ToUtf8(effect_->GetParameterInfo(Gain(channel))->GetName());
    };
    EXPECT_EQ(nameOf(0), "Left");
    SetChannels(1);
    EXPECT_EQ(nameOf(0), "Gain");
    SetChannels(6);
    EXPECT_EQ(nameOf(2), "Center");
    SetChannels(8);
    EXPECT_EQ(nameOf(7), "8");
    SetChannels(33);
    EXPECT_EQ(effect_->GetNumberOfOutputChannels(), 1u);
    EXPECT_EQ(nameOf(0), "Gain");
}

}  // namespace
}  // namespace zuc::components
