#include "TestEffects.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

#include "Components/AudioOfflineComponent.h"
#include "Components/TableDriven.h"
#include "Components/private/OfflineJob.h"

namespace zuc::host::test {
namespace {

using components::CatalogueEntry;
using components::Category;
using components::EffectTables;
using components::EnumEntry;
using components::Kind;
using components::MultiChannelComponentBase;
using components::ParameterRow;
using components::PresetRow;
using components::Role;
using kraaudiofilterhost::Flags;

enum Parameter { kLevel, kTime, kDelayTime, kCutoff, kMix, kMode, kBypass, kVoices, kUnit, kCount };

constexpr std::array kModes{EnumEntry{"$$$/Test/LowPass=Low Pass"},
                            EnumEntry{"$$$/Test/HighPass=High Pass"},
                            EnumEntry{"$$$/Test/BandPass=Band Pass"}};
// clang-format off
constexpr std::array<ParameterRow, kCount> kParameters{{
    {kLevel,     "$$$/Test/Level=Level",                   "dB",    Kind::kLinear,      -60,   12,  0},
    {kTime,      "$$$/Test/FadeTime=Fade Time",            "s",     Kind::kLinear,        0,    2,  1},
    {kDelayTime, "$$$/Test/DelayLeft=Delay Time (Left)",   "ms",    Kind::kLinear,     -500,  500,  0},
    {kCutoff,    "$$$/Test/EQCutoff=Cutoff",               "Hz",    Kind::kLogarithmic,  20, 20000, 1000},
    {kMix,       "$$$/Test/Mix=Mix",                       "%",     Kind::kLinear,        0,  100, 50},
    {kMode,      "$$$/Test/FilterMode=Mode",               "",      Kind::kEnum,          0,    2,  0, true, Role::kControl, kModes},
    {kBypass,    "$$$/Test/Bypass=Bypass",                 "",      Kind::kBool,          0,    1,  0},
    {kVoices,    "$$$/Test/XYCount=Voices",                "pairs", Kind::kLinear,        0,    7,  3},
    {kUnit,      "$$$/Test/NumChannels=Channels",          "",      Kind::kLinear,        0,    8,  2, false, Role::kFollowsLayout},
}};
constexpr std::array kPresets{
    PresetRow("$$$/Test/DefaultPresetName=(Default)",             0, 1,    0, 1000, 50, 0, 0, 3, 2),
    PresetRow("$$$/Test/Presets/HalfLevel=3:1, Half < level",    -6, 1,    0, 1000, 50, 0, 0, 3, 2),
};
// clang-format on
constexpr EffectTables kTables{"$$$/Test/TestDelayTitle=Test Delay", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

class TestDelay final : public components::TableDriven<MultiChannelComponentBase> {
public:
    TestDelay() : TableDriven(kTables, u"test.TestDelay", 8) {
        RegisterParameterInfos();
        OnNumberOfChannelsChanged(2);
    }
    int GetInitialDelay() const override { return kDelayLatencyFrames; }
    int GetTail() const override { return kDelayTailFrames; }
    void Resume() override {
        TableDriven::Resume();
        OnNumberOfChannelsChanged(history_.size());
    }
    void Process(float** in, float** out, int frames, Flags, Flags&) override {
        const float gain = std::pow(10.0f, Value(kLevel) / 20.0f);
        for (std::size_t c = 0; c < history_.size(); ++c)
            for (int i = 0; i < frames; ++i) {
                std::vector<float>& past = history_[c];
                past.push_back(in[c][i]);
                const float late = past[past.size() - 1 - kDelayLatencyFrames];
                const float later = past[past.size() - 1 - kDelayLatencyFrames - kDelayTailFrames];
                out[c][i] = gain * (late + 0.5f * later);
            }
    }

protected:
    void OnNumberOfChannelsChanged(std::size_t channels) override {
        history_.assign(channels,
                        std::vector<float>(kDelayLatencyFrames + kDelayTailFrames + 1, 0.0f));
    }

private:
    std::vector<std::vector<float>> history_;
};

class TestEndless final : public MultiChannelComponentBase {
public:
    TestEndless() : MultiChannelComponentBase(u"test.TestEndless", u"Endless", 32) {}
    int GetTail() const override { return std::numeric_limits<int>::max(); }

protected:
    void OnNumberOfChannelsChanged(std::size_t) override {}
};

class TestSideChain final : public kraaudiofilterhost::AudioFilter {
public:
    TestSideChain() : AudioFilter(u"test.TestSideChain", u"Side Chain") {
        using Bus = kraaudiofilterhost::AudioFilterBusDescription;
        AddInputBus(Bus::CreateStereo(u"In", Bus::kMain));
        AddInputBus(Bus::CreateStereo(u"Side", Bus::kSideChain));
        AddOutputBus(Bus::CreateStereo(u"Out", Bus::kMain));
    }
    void Process(float** in, float** out, int frames, Flags, Flags&) override {
        for (int c = 0; c < 2; ++c) std::copy_n(in[c + 2], frames, out[c]);
    }
};

enum OfflineParameter { kWay, kAnalysisMs, kOfflineCount };
enum Way { kReverse, kDouble, kGiveUp };

constexpr std::array kWays{EnumEntry{"$$$/Test/Reverse=Reverse"},
                           EnumEntry{"$$$/Test/Double=Double"},
                           EnumEntry{"$$$/Test/GiveUp=Give Up"}};
// clang-format off
constexpr std::array<ParameterRow, kOfflineCount> kOfflineParameters{{
    {kWay,        "$$$/Test/Way=Way",           "",   Kind::kEnum,   0, 2,     0, true, Role::kControl, kWays},
    {kAnalysisMs, "$$$/Test/Analysis=Analysis", "ms", Kind::kLinear, 0, 60000, 0},
}};
constexpr std::array kOfflinePresets{PresetRow("$$$/Test/DefaultPresetName=(Default)", 0, 0)};
// clang-format on
constexpr EffectTables kOfflineTables{"$$$/Test/TestOfflineTitle=Test Offline", kOfflineParameters,
                                      kOfflinePresets};
static_assert(IsWellFormed(kOfflineTables));

class TestOffline final : public components::TableDriven<components::MultiChannelOfflineComponent> {
public:
    TestOffline() : TableDriven(kOfflineTables, u"test.TestOffline", 8) {
        RegisterParameterInfos();
    }
    bool CanChangeDuration() const override { return Choice(kWay) != kReverse; }
    bool WantsToHandleProgress() const override { return true; }
    void Cancel() override { job_.Cancel(); }
    bool OfflineProcessFinished() override { return job_.IsFinished(); }
    void SetOfflineReader(boost::intrusive_ptr<OfflineIInterface> reader) override {
        job_.SetReader(std::move(reader));
    }
    void SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface> writer) override {
        job_.SetWriter(std::move(writer));
    }
    void SetProgressHandler(float volatile* percent) override { job_.SetProgressHandler(percent); }
    void GetCompletionText(components::WStr& text) const override {
        text = Choice(kWay) == kGiveUp ? u"gave up" : u"turned round";
    }
    bool OfflineRun(std::int64_t start, std::int64_t end) override {
        return job_.Start([=, this](components::OfflineJob::Run& run) {
            const int analysisMs = Choice(kAnalysisMs);
            for (int ms = 0; ms < analysisMs; ++ms) {
                if (run.IsCancelled()) return false;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                run.ReportProgress(0.5 * ms / analysisMs);
            }
            return Choice(kWay) != kGiveUp && Turn(run, start, end - start);
        });
    }

private:
    bool Turn(components::OfflineJob::Run& run, std::int64_t start, std::int64_t frames) {
        const std::size_t channels = GetNumberOfOutputChannels();
        std::vector<std::vector<float>> all(channels);
        std::vector<float*> at;
        for (auto& channel : all) {
            channel.resize(static_cast<std::size_t>(frames));
            at.push_back(channel.data());
        }
        if (!run.Read(at.data(), static_cast<long>(channels), start, frames)) return false;
        for (auto& channel : all) std::reverse(channel.begin(), channel.end());
        const int times = Choice(kWay) == kDouble ? 2 : 1;
        for (int i = 0; i < times; ++i)
            if (!run.Write(at.data(), frames)) return false;
        return true;
    }

    void OnNumberOfChannelsChanged(std::size_t) override {}

    components::OfflineJob job_;
};

template <class Effect>
kraaudiofilterhost::AudioFilterPtr Create() {
    return new Effect;
}

constexpr std::array kEffects{
    CatalogueEntry{u"test.TestDelay", "$$$/Test/TestDelayTitle=Test Delay", Category::kDelayReverb,
                   Create<TestDelay>},
    CatalogueEntry{u"test.TestEndless", "$$$/Test/EndlessTitle=Endless", Category::kFilter,
                   Create<TestEndless>},
    CatalogueEntry{u"test.TestSideChain", "$$$/Test/SideChainTitle=Side Chain", Category::kFilter,
                   Create<TestSideChain>},
    CatalogueEntry{u"test.TestOffline", "$$$/Test/TestOfflineTitle=Test Offline",
                   Category::kTimePitch, Create<TestOffline>},
};

}  // namespace

std::span<const CatalogueEntry> GetTestEffects() { return kEffects; }

}  // namespace zuc::host::test
