#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "Components/Amplify.h"
#include "Components/AudioComponentZombie.h"
#include "Components/DSPKernelFactory.h"
#include "Components/Library.h"
#include "Components/private/ConsoleCommands.h"
#include "kraaudiodsp/DSPKernels.h"
#include "kraaudiodsp/IntraClipParam.h"
#include "kracore/Console.h"
#include "kracore/DebugDatabase.h"
#include "kracore/WStr.h"

namespace zuc {
namespace {

using kraaudiofilterhost::PresetData;
using kracore::proplist::PropList;
using kracore::utility::FromUtf8;
using kracore::utility::ToUtf8;

class ServicesTest : public testing::Test {
protected:
    void SetUp() override { Initialize(); }
    void TearDown() override { Terminate(); }
};

std::string Reply(const std::string& line) {
    kracore::console::OutputStream out;
    EXPECT_TRUE(kracore::console::CommandRegistry::Execute(FromUtf8(line), out)) << line;
    return ToUtf8(out.GetText());
}

// ---- Console ----

TEST_F(ServicesTest, ConsoleTunesTheLeveler) {
    using dsp::intraclip::IntraClipParam;
    IntraClipParam before;
    dsp::intraclip::GetGlobalParam(before);
    std::string line = "IntraClip.Setup";
    for (int i = 1; i <= 27; ++i) line += " " + std::to_string(i) + ".75";
    const std::string usage = Reply(line);
    EXPECT_EQ(usage.substr(0, usage.find(' ', 16)), "IntraClip.Setup RefLevel");
    EXPECT_NE(usage.find("\nExample: IntraClip.Setup -12 10 35 "), std::string::npos);
    EXPECT_EQ(Reply(line + " 28 29"), usage);
    IntraClipParam param;
    dsp::intraclip::GetGlobalParam(param);
    EXPECT_EQ(param.finLimCeil, before.finLimCeil);

    EXPECT_EQ(Reply("  " + line + "\t-28.75 "), "Parameter changed for next run.\n");
    dsp::intraclip::GetGlobalParam(param);
    EXPECT_EQ(param.refLevel, 1.75f);
    EXPECT_EQ(param.numRMSBuckets, 18) << "whole numbers are truncated toward zero";
    EXPECT_EQ(param.rmsWindowTime, 19.75f);
    EXPECT_EQ(param.selBucketIndex, 20);
    EXPECT_EQ(param.finLimCeil, 27.75f);
    EXPECT_EQ(param.processingBlockActiveBitField, -28);

    EXPECT_EQ(Reply("IntraClip.Debug 3"), "Show control curve in right channel\n");
    EXPECT_EQ(Reply("IntraClip.Debug -1"), "Show control curve in right channel\n");
    EXPECT_EQ(Reply("IntraClip.Debug 0.9"), "Normal processing\n");
    EXPECT_EQ(Reply("IntraClip.Debug 1e30"), "Show control curve in right channel\n");
    EXPECT_TRUE(Reply("IntraClip.Debug").starts_with("0=(Default) Normal Processing 1=("));
    dsp::intraclip::SetGlobalParam(before);
}

TEST_F(ServicesTest, ConsoleSetsThePreviewQuality) {
    for (const char* bad : {"13", "9", "", "10 11", "many", "nan"})
        EXPECT_EQ(Reply(std::string("SetTimeStretchPreviewQ ").append(bad)),
                  "Invalid quality setting\n")
            << bad;
    EXPECT_EQ(Reply("SetTimeStretchPreviewQ 12.9"), "Quality changed.\n");
    EXPECT_EQ(GetTimeStretchPreviewQuality(), 12.0f);
    EXPECT_EQ(Reply("SetTimeStretchPreviewQ 11"), "Quality changed.\n");
    kracore::console::OutputStream out;
    EXPECT_FALSE(kracore::console::CommandRegistry::Execute(u"NoSuch 1", out));
    EXPECT_FALSE(kracore::console::CommandRegistry::Execute(u"  ", out));
}

TEST_F(ServicesTest, ConsoleKeepsRemixSettings) {
    struct Row {
        const char* line;
        const char* reply;
    };
    for (const Row& row :
         {Row{"Remix.Samplerate", "Remix.Samplerate = default\n"},
          Row{"Remix.Samplerate 11025", "Remix.Samplerate = 11025\n"},
          Row{"Remix.Samplerate fast", "Invalid value\n"},
          Row{"Remix.Samplerate 0", "Invalid value\n"},
          Row{"Remix.Samplerate", "Remix.Samplerate = 11025\n"},
          Row{"Remix.Samplerate default", "Remix.Samplerate = default\n"},
          Row{"Remix.AvoidLoops true", "Remix.AvoidLoops = true\n"},
          Row{"Remix.AvoidLoops 3", "Invalid value\n"},
          Row{"Remix.AvoidLoops default", "Remix.AvoidLoops = default\n"},
          Row{"Remix.SourceSeperation off", "Remix.SourceSeperation = off\n"},
          Row{"Remix.SourceSeperation default", "Remix.SourceSeperation = default\n"}})
        EXPECT_EQ(Reply(row.line), row.reply) << row.line;
    EXPECT_EQ(kracore::debug::DebugDatabase::Get(u"Remix.Samplerate"), std::nullopt);
}

TEST(DebugDatabase, ReadsNumbersAndSwitches) {
    using kracore::debug::DebugDatabase;
    EXPECT_EQ(DebugDatabase::GetInteger(u"Test.Rate"), std::nullopt);
    DebugDatabase::Set(u"Test.Rate", u"11025");
    EXPECT_EQ(DebugDatabase::GetInteger(u"Test.Rate"), 11025);
    EXPECT_EQ(DebugDatabase::GetBool(u"Test.Rate"), std::nullopt);
    for (const char16_t* bad : {u"", u"12x", u"0x10", u"1.5", u"99999999999999999999"}) {
        DebugDatabase::Set(u"Test.Rate", bad);
        EXPECT_EQ(DebugDatabase::GetInteger(u"Test.Rate"), std::nullopt) << ToUtf8(bad);
    }
    DebugDatabase::Set(u"Test.Rate", u"off");
    EXPECT_EQ(DebugDatabase::GetBool(u"Test.Rate"), false);
    DebugDatabase::Remove(u"Test.Rate");
    EXPECT_EQ(DebugDatabase::Get(u"Test.Rate"), std::nullopt);
}

// ---- Kernel factory ----

struct Analyzer final : dsp::DSPAnalyzer {
    explicit Analyzer(int value) : number(value) {}
    void Reset() override {}
    void Analyze(const float* const*, std::size_t) override {}
    int number;
};

TEST(DSPKernelFactory, TheLastRegistrationOfANameWins) {
    using namespace DSPKernelFactory;
    EXPECT_EQ(CreateAnalyzer("test", 1.0f, 2), nullptr);
    AddAnalyzerCreator("test", [](float, int) -> dsp::DSPAnalyzer* { return nullptr; });
    AddAnalyzerCreator("test",
                       [](float f, int n) { return new Analyzer(static_cast<int>(f) + n); });
    const std::unique_ptr<dsp::DSPAnalyzer> analyzer(CreateAnalyzer("test", 40.0f, 2));
    EXPECT_EQ(dynamic_cast<Analyzer&>(*analyzer).number, 42);
    EXPECT_EQ(CreateProcessor("test", 1.0f, 2), nullptr);
    AddProcessorCreator("test", {});
    EXPECT_THROW(CreateProcessor("test", 1.0f, 2), boost::bad_function_call);
    RemoveCreator("test");
    EXPECT_EQ(CreateAnalyzer("test", 1.0f, 2), nullptr);
    EXPECT_EQ(CreateProcessor("test", 1.0f, 2), nullptr);
}

// ---- Placeholder ----

TEST_F(ServicesTest, APlaceholderKeepsEverythingItIsGiven) {
    using components::AudioComponentZombie;
    boost::intrusive_ptr<AudioComponentZombie> zombie(
        new AudioComponentZombie(u"test.Gone", u"Gone", 5, true));
    EXPECT_TRUE(zombie->IsZombie());
    EXPECT_TRUE(zombie->DoPresetsUseChunkData());
    EXPECT_EQ(zombie->GetParameterCount(), 5);
    zombie->SetParameter(4, 0.7f);
    zombie->SetParameter(7, 0.9f);
    EXPECT_EQ(zombie->GetParameter(4), 0.7f);
    EXPECT_EQ(zombie->GetParameter(7), 0.0f);
    EXPECT_EQ(zombie->GetParameterInfo(4), nullptr);

    PropList list;
    PresetData preset(list);
    preset.SetComponentID(u"test.Gone");
    preset.SetVersion(99.0f);
    preset.SetParams({0.1f, std::numeric_limits<float>::quiet_NaN()});
    list.Set("Unknown", PropList());
    EXPECT_TRUE(zombie->LoadSettings(preset));
    PropList saved;
    PresetData savedPreset(saved);
    zombie->SaveSettings(savedPreset);
    EXPECT_EQ(saved, list);
    EXPECT_EQ(zombie->CreateComponentFromZombieState(), nullptr);
}

TEST_F(ServicesTest, APlaceholderTurnsBackIntoItsEffect) {
    using components::Amplify;
    using components::AudioComponentZombie;
    boost::intrusive_ptr<Amplify> effect(new Amplify);
    effect->SetSampleRate(96000.0f);
    const auto layout = kramediatypes::LayoutForChannelCount(6);
    effect->RequestIOConfiguration({layout}, {layout});
    effect->SetParameter(Amplify::kFirstGain + 5, 0.25f);
    effect->SetPresetName(u"Mine");
    boost::intrusive_ptr<AudioComponentZombie> zombie(new AudioComponentZombie(effect));
    EXPECT_EQ(zombie->GetReferrencedAudioFitler(), effect);
    EXPECT_EQ(zombie->GetNumberOfOutputChannels(), 6u);
    zombie->SetParameterDisplayName(Amplify::kFirstGain, u"Renamed");
    EXPECT_EQ(zombie->GetParameterInfo(Amplify::kFirstGain)->GetName(), kracore::WStr(u"Renamed"));
    zombie->SetParameter(Amplify::kFirstGain, 0.5f);

    const auto back = zombie->CreateComponentFromZombieState();
    ASSERT_NE(back, nullptr);
    EXPECT_FALSE(back->IsZombie());
    EXPECT_EQ(back->GetSampleRate(), 96000.0f);
    EXPECT_EQ(back->GetNumberOfOutputChannels(), 6u);
    EXPECT_EQ(back->GetParameter(Amplify::kFirstGain), 0.5f) << "set on the placeholder";
    EXPECT_EQ(back->GetParameter(Amplify::kFirstGain + 5), 0.25f) << "from the effect";
    EXPECT_EQ(back->GetPresetName(), kracore::WStr(u"Mine"));
}

}  // namespace
}  // namespace zuc
