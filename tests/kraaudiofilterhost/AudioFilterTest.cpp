#include "kraaudiofilterhost/AudioFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "kraaudiofilterhost/FilterCatalogue.h"

namespace kraaudiofilterhost {
namespace {

constexpr char16_t kIdentifier[] = u"test.Doubler";

/// Two parameters, one preset, doubles its input; N in, N out.
class Doubler final : public AudioFilter {
public:
    Doubler() : AudioFilter(kIdentifier, u"Doubler") {
        AddInputBus(AudioFilterBusDescription::CreateStereo(u"In", 0));
        AddOutputBus(AudioFilterBusDescription::CreateStereo(u"Out", 0));
    }
    void Process(float** in, float** out, int frames, Flags, Flags&) override {
        for (std::size_t c = 0; c < GetNumberOfOutputChannels(); ++c)
            for (int i = 0; i < frames; ++i) out[c][i] = 2.0f * in[c][i];
    }
    int GetParameterCount() const override { return 2; }
    AudioFilterParameterInfoPtr GetParameterInfo(int) const override {
        return new AudioFilterParameterInfo(u"Amount", u"", AudioFilterParameterInfoUnit::kGeneric);
    }
    int GetNumFactoryPresets() const override { return 1; }
    WStr GetFactoryPresetName(int) const override { return u"Loud"; }
    void SetFactoryPreset(int) override { SetParameterAutomated(0, 1.0f); }
    float GetCurrentPresetVersion() const override { return 2.0f; }
    static AudioFilterPtr Create() { return new Doubler; }
};

class Listener : public IAudioFilterHost {
public:
    void OnParameterAutomated(AudioFilter&, int index, float normalized) override {
        log += "set " + std::to_string(index) + " " + std::to_string(normalized).substr(0, 4) + ";";
    }
    void OnBeginEditing(AudioFilter&, int index) override {
        log += "begin " + std::to_string(index) + ";";
    }
    void OnEndEditing(AudioFilter&, int index) override {
        log += "end " + std::to_string(index) + ";";
    }
    void OnSettingsLoaded(AudioFilter& filter) override {
        log += filter.IsLoadingSettings() ? "loaded while loading;" : "loaded;";
    }
    std::string log;
};

class AudioFilterTest : public testing::Test {
protected:
    AudioFilterTest() : filter_(new Doubler) {
        utility::RegisterAudioFilter(kIdentifier, Doubler::Create);
        filter_->SetAudioFilterHost(&listener_);
    }
    ~AudioFilterTest() override { utility::UnregisterAudioFilter(kIdentifier); }

    Listener listener_;
    AudioFilterPtr filter_;
};

TEST_F(AudioFilterTest, TellsTheHostOfChanges) {
    filter_->BeginEditing(0);
    filter_->SetParameterAutomated(0, 0.25f);
    filter_->EndEditing(0);
    filter_->SetParameter(1, 0.5f);
    filter_->SetParameterAutomated(5, 0.5f);
    filter_->SetParameterAutomated(1, std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(listener_.log, "begin 0;set 0 0.25;end 0;");
    EXPECT_EQ(filter_->GetParameter(0), 0.25f);
    EXPECT_EQ(filter_->GetParameter(1), 0.5f);
    EXPECT_EQ(filter_->GetParameterString(1), WStr(u"0.5"));
    EXPECT_TRUE(filter_->IsPresetDirty());
}

TEST_F(AudioFilterTest, LoadsWholeSettingsOrNone) {
    filter_->SetParameter(0, 0.25f);
    filter_->SetParameter(1, 0.75f);
    kracore::proplist::PropList good;
    PresetData(good).SetName(u"Mine");
    {
        PresetData preset(good);
        filter_->SaveSettings(preset);
    }
    const struct {
        const char* name;
        void (*damage)(kracore::proplist::PropList&);
    } rows[] = {
        {"another filter", [](auto& list) { PresetData(list).SetComponentID(u"test.Other"); }},
        {"newer version", [](auto& list) { PresetData(list).SetVersion(2.5f); }},
        {"version that is no number",
         [](auto& list) { PresetData(list).SetVersion(std::numeric_limits<float>::quiet_NaN()); }},
        {"too few values", [](auto& list) { PresetData(list).SetParams({0.1f}); }},
        {"too many values",
         [](auto& list) {
             PresetData(list).SetParams({0.1f, 0.2f, 0.3f});
         }},
        {"a value that is not finite",
         [](auto& list) {
             PresetData(list).SetParams({0.1f, std::numeric_limits<float>::infinity()});
         }},
        {"no values", [](auto& list) { list.Remove("Params"); }},
        {"values of another type", [](auto& list) { list.Set("Params", kracore::WStr(u"0.1")); }},
    };
    for (const auto& row : rows) {
        auto bad = good;
        row.damage(bad);
        EXPECT_FALSE(filter_->LoadSettings(PresetData(bad))) << row.name;
        EXPECT_EQ(filter_->GetParameter(0), 0.25f) << row.name;
        EXPECT_FALSE(filter_->IsLoadingSettings()) << row.name;
    }
    EXPECT_EQ(listener_.log, "");
    filter_->SetParameter(0, 0.0f);
    EXPECT_TRUE(filter_->LoadSettings(PresetData(good)));
    EXPECT_EQ(listener_.log, "set 0 0.25;set 1 0.75;loaded;");
    EXPECT_FALSE(filter_->IsPresetDirty());
}

TEST_F(AudioFilterTest, ClonesAndListsPresetsWithoutTouchingItself) {
    filter_->SetSampleRate(96000.0f);
    filter_->SetBlockSize(77);
    filter_->SetParameter(1, 0.625f);
    filter_->SetPresetName(u"Mine");
    const auto clone = filter_->Clone();
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->GetSampleRate(), 96000.0f);
    EXPECT_EQ(clone->GetMaxProcessingBlockSize(), 77);
    EXPECT_EQ(clone->GetParameter(1), 0.625f);
    EXPECT_EQ(clone->GetPresetName(), WStr(u"Mine"));

    PresetList presets;
    filter_->GetFactoryDefaultPresets(presets);
    ASSERT_EQ(presets.size(), 1u);
    std::list<float> values;
    ASSERT_TRUE(PresetData(presets[0]).GetParams(values));
    EXPECT_EQ(values, (std::list<float>{1.0f, 0.625f}));
    EXPECT_EQ(PresetData(presets[0]).GetName(), WStr(u"Loud"));
    EXPECT_EQ(filter_->GetParameter(0), 0.0f);
    EXPECT_EQ(listener_.log, "");
}

TEST_F(AudioFilterTest, ProcessesThroughChannelMaps) {
    // Host channels 0..3; the filter's left is host 2, its right host 0, crossed on the way out.
    filter_->SetBlockSize(2);
    filter_->SetChannelMap(ChannelMapDirection::kInput, {2, 0}, 4);
    filter_->SetChannelMap(ChannelMapDirection::kOutput, {0, 2}, 4);
    std::vector<std::vector<float>> buffers{{1, 2, 3}, {10, 20, 30}, {100, 200, 300}, {5, 6, 7}};
    std::vector<float*> pointers;
    for (auto& buffer : buffers) pointers.push_back(buffer.data());
    Flags flags;
    filter_->ProcessWithMapping(pointers.data(), pointers.data(), 3, {}, flags);
    EXPECT_EQ(buffers[0], (std::vector<float>{2, 4, 6})) << "without maps in use";

    filter_->SetUseChannelMaps(true);
    filter_->ProcessWithMapping(pointers.data(), pointers.data(), 3, {}, flags);
    EXPECT_EQ(buffers[0], (std::vector<float>{200, 400, 600}));
    EXPECT_EQ(filter_->GetChannelMap(ChannelMapDirection::kInput), (ChannelMap{2, 0}));
    EXPECT_EQ(filter_->GetChannelMap(ChannelMapDirection::kOutput), (ChannelMap{0, 2}));
    EXPECT_EQ(buffers[2], (std::vector<float>{4, 8, 12}));
    EXPECT_EQ(buffers[1], (std::vector<float>{20, 40, 60})) << "an unmapped channel passes";

    filter_->SetChannelMap(ChannelMapDirection::kInput, {-1, 3}, 4);
    filter_->SetChannelMap(ChannelMapDirection::kOutput, {1, -1}, 4);
    filter_->ProcessWithMapping(pointers.data(), pointers.data(), 3, {}, flags);
    EXPECT_EQ(buffers[1], (std::vector<float>{0, 0, 0})) << "an input that nothing feeds is silent";

    // A channel that the host does not have, and a map that is too short, count as none.
    filter_->SetChannelMap(ChannelMapDirection::kInput, {4, 3}, 4);
    filter_->SetChannelMap(ChannelMapDirection::kOutput, {0}, 4);
    std::vector<std::vector<float>> apart(4, std::vector<float>(3, 9.0f));
    std::vector<float*> targets;
    for (auto& buffer : apart) targets.push_back(buffer.data());
    filter_->ProcessWithMapping(pointers.data(), targets.data(), 3, {}, flags);
    EXPECT_EQ(apart[0], (std::vector<float>{0, 0, 0}));
    for (std::size_t c = 1; c < 4; ++c) EXPECT_EQ(apart[c], buffers[c]) << c;
}

TEST_F(AudioFilterTest, DescribesItself) {
    const auto descriptor = filter_->CreateFilterDescriptor({kIdentifier, u"/lib/x.so"});
    EXPECT_EQ(descriptor->identifier, WStr(kIdentifier));
    EXPECT_EQ(descriptor->parameterCount, 2u);
    EXPECT_EQ(descriptor->inputChannelCount, 2u);
    EXPECT_EQ(descriptor->presetVersion, 2.0f);
    filter_->SetSampleRate(-1.0f);
    filter_->SetSampleRate(std::numeric_limits<float>::infinity());
    EXPECT_EQ(filter_->GetSampleRate(), -1.0f) << "a rate that is none is ignored";
}

/// A filter with nothing of its own, two inputs and three outputs.
class Plain final : public AudioFilter {
public:
    explicit Plain(bool hasChunk = false)
        : AudioFilter(u"test.Plain", u"Plain"), hasChunk_(hasChunk) {
        AddInputBus(AudioFilterBusDescription::CreateStereo(u"In", 0));
        AddOutputBus(AudioFilterBusDescription::CreateStereo(u"Out", 0));
        AddOutputBus(AudioFilterBusDescription(u"Third", kramediatypes::MonoLayout(), 1));
    }
    bool DoPresetsUseChunkData() const override { return hasChunk_; }

private:
    bool hasChunk_;
};

TEST(AudioFilterDefaults, PassTheInputAndSilenceTheRest) {
    const AudioFilterPtr filter(new Plain);
    for (const bool inPlace : {false, true}) {
        std::vector<std::vector<float>> in{{1, 2}, {3, 4}};
        std::vector<std::vector<float>> out(3, {9, 9});
        float* inputs[] = {in[0].data(), in[1].data()};
        float* outputs[] = {inPlace ? in[0].data() : out[0].data(), out[1].data(), out[2].data()};
        Flags flags;
        filter->SetUseChannelMaps(true);  // without a map there is nothing to use
        filter->ProcessWithMapping(inputs, outputs, 2, {}, flags);
        EXPECT_EQ(std::vector<float>(outputs[0], outputs[0] + 2), (std::vector<float>{1, 2}));
        EXPECT_EQ(out[1], (std::vector<float>{3, 4}));
        EXPECT_EQ(out[2], (std::vector<float>{0, 0}));
    }
}

TEST(AudioFilterDefaults, AnswerWithoutHostParametersPresetsOrCatalogue) {
    const AudioFilterPtr filter(new Plain);
    filter->BeginEditing(0);
    filter->EndEditing(0);
    filter->SetParameterAutomated(0, 0.5f);
    filter->SetFactoryPreset(0);
    EXPECT_FALSE(filter->IsPresetDirty()) << "there is no parameter to change";
    EXPECT_EQ(filter->GetParameter(0), 0.0f);
    EXPECT_EQ(filter->GetParameterInfo(0), nullptr);
    EXPECT_EQ(filter->GetParameterString(0), WStr());
    std::vector<float> curve(3);
    EXPECT_EQ(filter->GetCurveData(0, 3, curve), 0u);
    EXPECT_TRUE(curve.empty());
    EXPECT_EQ(filter->GetFactoryPresetIdentifier(-1) + filter->GetFactoryPresetIdentifier(0), "");
    EXPECT_EQ(filter->Clone(), nullptr) << "the catalogue does not know it";
    PresetList presets(1);
    filter->GetFactoryDefaultPresets(presets);
    EXPECT_TRUE(presets.empty());
    filter->FinishLoadingSettings(false);  // not begun
    EXPECT_FALSE(filter->IsLoadingSettings());
    filter->SetCurrentDuration(3.0);
    EXPECT_EQ(filter->GetProcessedDuration(), 3.0);
    EXPECT_EQ(filter->GetProcessedPosition(1.5), 1.5);
    EXPECT_EQ(filter->GetOriginalPosition(1.5), 1.5);
    EXPECT_EQ(filter->GetMaxOutputBlockSize(512), 512);
    EXPECT_TRUE(filter->OfflineProcessFinished());
}

TEST(AudioFilterDefaults, SettingsWithABlobThatNobodyReadsAreRefused) {
    for (const bool hasChunk : {false, true}) {
        const AudioFilterPtr filter(new Plain(hasChunk));
        kracore::proplist::PropList list;
        PresetData preset(list);
        filter->SaveSettings(preset);
        preset.SetName(u"Mine");
        EXPECT_EQ(filter->LoadSettings(preset), !hasChunk);
        EXPECT_EQ(filter->GetPresetName(), WStr(hasChunk ? u"" : u"Mine"));
    }
}

}  // namespace
}  // namespace kraaudiofilterhost
