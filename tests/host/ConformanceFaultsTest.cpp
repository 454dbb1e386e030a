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
using kraaudiofilterhost::Flags;

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
};
Fault gFault = Fault::kNone;

enum Parameter { kGain, kTone, kCount };
// clang-format off
constexpr std::array<ParameterRow, kCount> kParameters{{
    {kGain, "$$$/Test/FaultyGain=Gain", "dB", Kind::kLinear, -24, 12, 0},
    {kTone, "$$$/Test/FaultyTone=Tone", "%",  Kind::kLinear, 0, 100, 50},
}};
constexpr std::array kPresets{PresetRow("$$$/Test/DefaultPresetName=(Default)", 0, 50),
                              PresetRow("$$$/Test/FaultyPresets/Dark=Dark", -6, 90)};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/FaultyTitle=Faulty", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

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
        return TableDriven::GetParameter(index);
    }
    kracore::WStr GetParameterString(int index) const override {
        if (gFault != Fault::kLocale) return TableDriven::GetParameterString(index);
        std::ostringstream text;
        text << GetParameter(index);
        return kracore::utility::FromUtf8(text.str());
    }
    bool LoadSettings(const kraaudiofilterhost::PresetData& preset) override {
        return gFault == Fault::kSettings || TableDriven::LoadSettings(preset);
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

    void RequestIOConfiguration(
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) override {
        if (gFault == Fault::kSurround && !inputs.empty() && inputs.front().size() == 6) return;
        TableDriven::RequestIOConfiguration(inputs, outputs);
    }

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override {
        states_.assign(channels, 0.0f);
    }

private:
    float TargetGain() const { return std::pow(10.0f, Value(kGain) / 20.0f); }
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
    } rows[] = {
        {Fault::kLatency, "latency"},     {Fault::kTail, "tail"},
        {Fault::kBlocks, "blocks"},       {Fault::kInPlace, "blocks"},
        {Fault::kResume, "resume"},       {Fault::kDeadParameter, "parameters-matter"},
        {Fault::kJump, "clicks"},         {Fault::kPoison, "bad-samples"},
        {Fault::kPoison, "fuzz"},         {Fault::kDenormals, "denormals"},
        {Fault::kRange, "parameters"},    {Fault::kSettings, "settings"},
        {Fault::kSurround, "layouts"},    {Fault::kDeafChannel, "sound"},
        {Fault::kAllocates, "real-time"}, {Fault::kLocale, "locales"},
        {Fault::kShared, "instances"},    {Fault::kDrift, "hour"},
        {Fault::kResidue, "hour"},        {Fault::kGrows, "hour"},
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
    for (const auto& row : rows) {
        gFault = row.fault;
        if (!GetConformanceException(kFaulty, row.check, options).empty()) continue;
        EXPECT_FALSE(RunConformanceCheck(kFaulty, row.check, options).empty())
            << row.check << " misses fault " << static_cast<int>(row.fault);
    }
    gFault = Fault::kNone;
    kraaudiofilterhost::utility::UnregisterAudioFilter(u"test.Faulty");
}

}  // namespace
}  // namespace zuc::host
