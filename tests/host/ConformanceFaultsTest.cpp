#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <sstream>
#include <vector>

#include "Components/TableDriven.h"
#include "host/Conformance.h"
#include "kraaudiofilterhost/FilterCatalogue.h"

namespace zuc::host {
namespace {

using components::EffectTables;
using components::Kind;
using components::ParameterRow;
using components::PresetRow;
using kraaudiofilterhost::AudioFilterParameterInfoPtr;
using kraaudiofilterhost::Flags;
using Layouts = std::vector<kramediatypes::AudioChannelLayout>;

/// What is wrong with the effect that the rules look at.
enum class Fault {
    kNone,
    kLatency,
    kTail,
    kBlocks,
    kInPlace,
    kResume,
    kDeadParameter,
    kJump,
    kPoison,
    kDenormals,
    kRange,
    kSettings,
    kSurround,
    kDeafChannel,
    kAllocates,
    kLocale,
    kShared,
    kDrift,
    kResidue,
    kGrows,
    kNameless,
    kOneWay,
    kInfinite,
    kUnknownInfo,
    kUnknownText,
    kUnknownValue,
    kNoPresetName,
    kSamePresetName,
    kUnknownPresetName,
    kUnknownPreset,
    kPresetLeaves,
    kAboveOne,
    kNoClone,
    kOtherClone,
    kRefuses,
    kForgetsKeys,
    kTakesTooFew,
    kHalfTaken,
    kNoMono,
    kNoStereo,
    kUnequal,
    kEmpty,
    kTwoBuses,
    kTooMany,
};
Fault gFault = Fault::kNone;

enum Parameter { kGain, kTone, kInvert, kCount };
// clang-format off
constexpr std::array<ParameterRow, kCount> kParameters{{
    {kGain, "$$$/Test/FaultyGain=Gain", "dB", Kind::kLinear, -24, 12, 0},
    {kTone, "$$$/Test/FaultyTone=Tone", "%",  Kind::kLinear, 0, 100, 50},
    {kInvert, "$$$/Test/FaultyInvert=Invert", "", Kind::kBool, 0, 1, 0},
}};
constexpr std::array kPresets{PresetRow("$$$/Test/DefaultPresetName=(Default)", 0, 50, 0),
                              PresetRow("$$$/Test/FaultyPresets/Dark=Dark", -6, 90, 1)};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/FaultyTitle=Faulty", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

/// A description whose mapping does not invert, or that has no name.
class FaultyInfo final : public kraaudiofilterhost::AudioFilterParameterInfo {
public:
    FaultyInfo() : AudioFilterParameterInfo(u"Gain", u"", {}) {
        if (gFault != Fault::kNameless) SetIdentifier("FaultyGain");
    }
    float FromNormalized(float normalized) const override {
        return gFault == Fault::kOneWay ? normalized * normalized : normalized;
    }
};

/// A gain into a one-pole low pass, both glide. Right in every respect but one.
class Faulty final : public components::TableDriven<components::MultiChannelComponentBase> {
public:
    Faulty() : TableDriven(kTables, u"test.Faulty", 32) {
        RegisterParameterInfos();
        OnNumberOfChannelsChanged(2);
    }

    int GetInitialDelay() const override { return gFault == Fault::kLatency ? 10 : 0; }
    int GetTail() const override { return gFault == Fault::kTail ? 0 : 2000; }
    float GetParameter(int index) const override {
        if (index == kTone && gFault == Fault::kRange) return -1.0f;
        if (index == kTone && gFault == Fault::kAboveOne) return 2.0f;
        if (index == kCount && gFault == Fault::kUnknownValue) return NAN;
        return TableDriven::GetParameter(index);
    }
    void SetParameter(int index, float normalized) override {
        const bool isTaken = gFault == Fault::kInfinite && std::isinf(normalized);
        TableDriven::SetParameter(index, isTaken ? 1.0f : normalized);
    }
    AudioFilterParameterInfoPtr GetParameterInfo(int index) const override {
        if (gFault == Fault::kUnknownInfo && index == kCount) index = kGain;
        if (index == kGain && (gFault == Fault::kNameless || gFault == Fault::kOneWay))
            return new FaultyInfo;
        return TableDriven::GetParameterInfo(index);
    }
    kracore::WStr GetParameterString(int index) const override {
        if (gFault == Fault::kUnknownText && index == kCount) return u"0";
        if (gFault != Fault::kLocale) return TableDriven::GetParameterString(index);
        std::ostringstream text;
        text << GetParameter(index);
        return kracore::utility::FromUtf8(text.str());
    }
    kracore::WStr GetFactoryPresetName(int preset) const override {
        if (gFault == Fault::kNoPresetName && preset == 1) return {};
        if (gFault == Fault::kSamePresetName && preset == 1) preset = 0;
        if (gFault == Fault::kUnknownPresetName && preset == 2) preset = 1;
        return TableDriven::GetFactoryPresetName(preset);
    }
    void SetFactoryPreset(int preset) override {
        const float tone = GetParameter(kTone);
        TableDriven::SetFactoryPreset(gFault == Fault::kUnknownPreset && preset == 2 ? 0 : preset);
        if (gFault == Fault::kPresetLeaves) SetParameter(kTone, tone);
    }
    bool LoadSettings(const kraaudiofilterhost::PresetData& preset) override {
        if (gFault == Fault::kSettings) return true;
        if (gFault == Fault::kRefuses) return false;
        const bool isTaken = TableDriven::LoadSettings(preset);
        if (!isTaken && gFault == Fault::kHalfTaken) SetParameter(kGain, 0.0f);
        return isTaken || gFault == Fault::kTakesTooFew;
    }
    void SaveSettings(kraaudiofilterhost::PresetData& preset) const override {
        TableDriven::SaveSettings(preset);
        if (gFault == Fault::kForgetsKeys) preset.GetList().Remove("FromTheFuture");
    }
    kraaudiofilterhost::AudioFilterPtr Clone() const override {
        if (gFault == Fault::kNoClone) return nullptr;
        auto clone = TableDriven::Clone();
        if (gFault == Fault::kOtherClone) clone->SetParameter(kGain, 0.0f);
        return clone;
    }
    void Resume() override {
        TableDriven::Resume();
        if (gFault != Fault::kResume) states_.assign(states_.size(), 0.0f);
        gain_ = TargetGain();
        tone_ = TargetTone();
    }
    void Process(float** in, float** out, int frames, Flags, Flags&) override {
        if (gFault == Fault::kAllocates) std::vector<float>(16).swap(spare_);
        if (gFault == Fault::kGrows) hoard_.emplace_back(1000, 0.5f);
        if (gFault == Fault::kDrift) drift_ *= 1.00001f;
        if (gFault == Fault::kBlocks) tone_ = std::min(tone_ + 0.01f, 0.95f);
        if (gFault == Fault::kPoison || gFault == Fault::kDenormals) {
            Run(in, out, frames);
            return;
        }
        ProcessGuarded(in, out, frames,
                       [this](const float* const* from, float* const* to, int count) {
                           Run(from, to, count);
                       });
    }

    void RequestIOConfiguration(const Layouts& inputs, const Layouts& outputs) override {
        const std::size_t in = inputs.front().size();
        const std::size_t out = outputs.front().size();
        const bool isRefused = (gFault == Fault::kSurround && in == 6) ||
                               (gFault == Fault::kNoMono && in == 1) ||
                               (gFault == Fault::kNoStereo && in == 2 && out == 2) ||
                               (gFault == Fault::kTooMany && in == 33);
        if (isRefused) return;
        const bool isChanged = (gFault == Fault::kUnequal && in != out) ||
                               (gFault == Fault::kEmpty && out == 0) ||
                               (gFault == Fault::kTwoBuses && outputs.size() == 2);
        const auto layout = kramediatypes::LayoutForChannelCount(isChanged ? 1 : in);
        TableDriven::RequestIOConfiguration(isChanged ? Layouts{layout} : inputs,
                                            isChanged ? Layouts{layout} : outputs);
    }

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override {
        states_.assign(channels, 0.0f);
    }

private:
    float TargetGain() const {
        return (IsOn(kInvert) ? -1.0f : 1.0f) * std::pow(10.0f, Value(kGain) / 20.0f);
    }
    float TargetTone() const {
        return gFault == Fault::kDeadParameter ? 0.5f : 0.95f * Value(kTone) / 100.0f;
    }
    void Run(const float* const* in, float* const* out, int frames) {
        const float pace = gFault == Fault::kJump ? 1.0f : 0.002f;
        float gain = gain_;
        float tone = tone_;
        for (std::size_t c = 0; c < states_.size(); ++c) {
            gain = gain_;
            tone = tone_;
            float state = states_[c];
            for (int i = 0; i < frames; ++i) {
                gain += pace * (TargetGain() - gain);
                tone += pace * (TargetTone() - tone);
                if (gFault == Fault::kTail) tone = 0.999f;
                if (gFault == Fault::kInPlace) out[c][i] = 0.0f;
                if (gFault == Fault::kResidue) residue_ += 1e-10f;
                if (gFault == Fault::kShared) state = 0.5f * (state + gShared.load());
                state = tone * state + (1.0f - tone) * gain * drift_ * in[c][i] + residue_;
                if (gFault == Fault::kShared) gShared.store(state);
                out[c][i] = gFault == Fault::kDeafChannel && c == 1 ? 0.0f : state;
            }
            states_[c] = state;
        }
        gain_ = gain;
        tone_ = tone;
    }

    std::vector<float> states_;
    std::vector<float> spare_;
    std::vector<std::vector<float>> hoard_;
    float drift_ = 1.0f;
    float residue_ = 0.0f;
    inline static std::atomic<float> gShared{0.0f};
    float gain_ = 1.0f;
    float tone_ = 0.475f;
};

const components::CatalogueEntry kFaulty{
    u"test.Faulty", "$$$/AudioComponents/FaultyTitle=Faulty", components::Category::kAmplitude,
    []() -> kraaudiofilterhost::AudioFilterPtr { return new Faulty; }};

TEST(ConformanceFaults, EachIsFoundByItsRuleAndTheSoundEffectPasses) {
    const struct {
        Fault fault;
        const char* check;
        const char* finding;
    } rows[] = {
        {Fault::kLatency, "latency", ""},
        {Fault::kTail, "tail", ""},
        {Fault::kBlocks, "blocks", ""},
        {Fault::kInPlace, "blocks", ""},
        {Fault::kResume, "resume", ""},
        {Fault::kDeadParameter, "parameters-matter", ""},
        {Fault::kJump, "clicks", ""},
        {Fault::kPoison, "bad-samples", ""},
        {Fault::kPoison, "fuzz", ""},
        {Fault::kDenormals, "denormals", ""},
        {Fault::kDeafChannel, "sound", ""},
        {Fault::kAllocates, "real-time", ""},
        {Fault::kLocale, "locales", "parameters read differently"},
        {Fault::kRefuses, "locales", "another locale"},
        {Fault::kShared, "instances", ""},
        {Fault::kDrift, "hour", ""},
        {Fault::kResidue, "hour", ""},
        {Fault::kGrows, "hour", ""},
        {Fault::kRange, "parameters", "parameter 1 set to 0 answers -1"},
        {Fault::kNameless, "parameters", "parameter 0 has no name"},
        {Fault::kOneWay, "parameters", "parameter 0: the mapping does not invert at 0.5"},
        {Fault::kInfinite, "parameters", "parameter 0 took a value that is not finite"},
        {Fault::kUnknownInfo, "parameters", "index 3 is answered"},
        {Fault::kUnknownText, "parameters", "index 3 is answered"},
        {Fault::kUnknownValue, "parameters", "index 3 is answered"},
        {Fault::kRange, "presets", "outside its range"},
        {Fault::kAboveOne, "presets", "outside its range"},
        {Fault::kNoPresetName, "presets", "preset 1 has no name of its own"},
        {Fault::kSamePresetName, "presets", "preset 1 has no name of its own"},
        {Fault::kPresetLeaves, "presets", "preset 0 leaves parameter 1 as it was"},
        {Fault::kUnknownPresetName, "presets", "preset 2 is answered"},
        {Fault::kUnknownPreset, "presets", "preset 2 is answered"},
        {Fault::kSettings, "settings", "parameters differ after saving and loading"},
        {Fault::kRefuses, "settings", "its own settings are refused"},
        {Fault::kNoClone, "settings", "a clone differs"},
        {Fault::kOtherClone, "settings", "a clone differs"},
        {Fault::kForgetsKeys, "settings", "a key of a later version is lost"},
        {Fault::kTakesTooFew, "settings", "too few parameters are taken"},
        {Fault::kHalfTaken, "settings", "too few parameters are taken"},
        {Fault::kSurround, "layouts", "5.1 is refused"},
        {Fault::kNoMono, "layouts", "mono or stereo is refused"},
        {Fault::kNoStereo, "layouts", "mono or stereo is refused"},
        {Fault::kUnequal, "layouts", "unequal or empty layouts"},
        {Fault::kEmpty, "layouts", "unequal or empty layouts"},
        {Fault::kTwoBuses, "layouts", "two output buses"},
        {Fault::kTooMany, "layouts", "33 channels do not give a mono bus"},
    };
    ConformanceOptions options;
    options.probe = FindRealTimeProbe();
    options.hourMinutes = 4;
    kraaudiofilterhost::utility::RegisterAudioFilter(u"test.Faulty", kFaulty.create);
    gFault = Fault::kNone;
    for (const ConformanceCheck& check : GetConformanceChecks()) {
        if (!GetConformanceException(kFaulty, check.name, options).empty()) continue;
        for (const Finding& finding : RunConformanceCheck(kFaulty, check.name, options))
            ADD_FAILURE() << "found in a sound effect: " << check.name << ": " << finding.detail;
    }
    EXPECT_EQ(RunConformanceCheck(kFaulty, "no-such", options).front().detail,
              "there is no such check");
    for (const auto& row : rows) {
        gFault = row.fault;
        if (!GetConformanceException(kFaulty, row.check, options).empty()) continue;
        std::vector<std::string> found;
        for (const Finding& finding : RunConformanceCheck(kFaulty, row.check, options))
            found.push_back(finding.detail);
        EXPECT_THAT(found, testing::Contains(testing::HasSubstr(row.finding)))
            << row.check << " misses fault " << static_cast<int>(row.fault);
    }
    gFault = Fault::kNone;
    kraaudiofilterhost::utility::UnregisterAudioFilter(u"test.Faulty");
}

}  // namespace
}  // namespace zuc::host
