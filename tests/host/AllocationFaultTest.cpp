#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <system_error>

#include "Components/Library.h"
#include "host/BeatAnalysis.h"
#include "host/Error.h"
#include "host/JsonReader.h"
#include "host/Parameters.h"
#include "host/PluginProcessor.h"
#include "host/RemixRender.h"
#include "host/RemixSearch.h"
#include "host/Render.h"
#include "host/Replay.h"
#include "host/ResponsePlot.h"
#include "kraaudiofilterhost/FilterCatalogue.h"
#include "kraaudiofilterhost/PresetData.h"
#include "kracore/PropList.h"
#include "tests/host/RemixSong.h"
#include "tests/rtguard/RealTimeGuard.h"

namespace zuc::host {
namespace {

/// Lets one allocation after the other fail, each in a run of its own: all of the first ones, then ever
/// fewer, unless ZUC_EVERY_ALLOCATION is set.
constexpr long kEachOfTheFirst = 200;
constexpr long kOneIn = 40;  // of those there were: the step to the next one

long Next(long n) {
    static const bool every = std::getenv("ZUC_EVERY_ALLOCATION");  // NOLINT(concurrency-mt-unsafe)
    return n < kEachOfTheFirst || every ? n + 1 : n + n / kOneIn;
}

using Action = std::function<void()>;

/// True when the action did its work, false when it said that it could not.
bool Succeeds(const Action& action) {
    try {
        action();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const Error& error) {
        EXPECT_FALSE(error.GetMessage().empty());
        return false;
    } catch (const std::system_error& error) {  // a thread that could not be started
        EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again) << error.what();
        return false;
    }
}

/// Every run either does its work or throws one of the exceptions above, and leaves all as it was: the
/// last run, in which nothing fails, works.
void FailEachAllocation(const std::string& name, const Action& action) {
    SCOPED_TRACE(name);
    action();  // what is made once and kept
    int runs = 0;
    int refused = 0;
    for (long n = 1;; n = Next(n), ++runs) {
        rtguard::FailNewAfter(n);
        refused += Succeeds(action) ? 0 : 1;
        if (rtguard::FailNewAfter(0) > 0) break;  // there were fewer
    }
    EXPECT_GT(refused, 0);
    testing::Test::RecordProperty(name, runs);
    EXPECT_TRUE(Succeeds(action));
}

class AllocationFaultTest : public testing::Test {
public:
    ~AllocationFaultTest() override { Terminate(); }

protected:
    AllocationFaultTest() { Initialize(); }
    void SetUp() override {
        if (!rtguard::CanFailNew()) GTEST_SKIP() << "no allocation fails in this build";
    }

    void RenderTo(const std::string& output, const std::string& input, const Chain& chain) const {
        const auto reader = AudioReader::Open(input);
        const int rateHz = reader->GetInfo().rateHz;
        ChainProcessor processor(chain, catalogue_, presets_, static_cast<float>(rateHz), 2, 512);
        RenderOptions options;
        options.output.path = output;
        options.onClip = OnClip::kLimit;
        Render(*reader, processor, rateHz, options);
    }

    const TestFolder folder_;
    const EffectCatalogue catalogue_;
    const UserPresets presets_{folder_ / "presets"};
};

/// On its own: a library that runs already only counts.
TEST(AllocationFaultWithoutLibrary, TheLibraryStartsOrNot) {
    if (!rtguard::CanFailNew()) GTEST_SKIP() << "no allocation fails in this build";
    FailEachAllocation("library", [] {
        Initialize();
        const bool runs = components::GetCatalogue().size() ==
                          kraaudiofilterhost::utility::GetAudioFilterIdentifiers().size();
        Terminate();
        ASSERT_TRUE(runs);
    });
}

TEST_F(AllocationFaultTest, EffectsAreMadeOrNot) {
    for (const Effect& effect : catalogue_.GetEffects())
        FailEachAllocation(effect.slug, [&] {
            const auto filter = CreateForFormat(effect, 48000.0f, 2, 512);
            kracore::proplist::PropList list;
            kraaudiofilterhost::PresetData settings(list);
            filter->SaveSettings(settings);
            auto read = kracore::proplist::FromJson(kracore::proplist::ToJson(list));
            ASSERT_TRUE(filter->LoadSettings(kraaudiofilterhost::PresetData(read)));
            filter->SetFactoryPreset(0);
            ASSERT_TRUE(filter->Clone());
            filter->SetSampleRate(96000.0f);
            RequestChannels(*filter, 1);
            filter->Resume();
        });
}

TEST_F(AllocationFaultTest, TextsAreReadOrNot) {
    const std::string chain = R"({"schema": "zuc.chain/1", "effects": [
        {"effect": "amplify", "preset": "+3dB Boost", "settings": {"gain.1": "-6 dB"},
         "automation": {"gain.2": [{"time": "0 s", "value": "-6 dB"}, {"time": "1:30", "value": 0}]}},
        {"effect": "echo"}, {"effect": "unknown", "more": [1, null]}]})";
    const std::string plan = R"({"schema": "zuc.remix/1", "segments": [
        {"offset": "0", "duration": "1/2"}, {"offset": 1, "duration": 2, "crossfade": "1/4"}]})";
    const std::string script = R"({"effect": "Amplify", "events": [{"op": "resume"},
        {"op": "process", "frames": 100}, {"op": "get", "index": 0}]})";
    const ChainStep step = ParseStepText("amplify:gain=-6dB");
    presets_.Save("amplify", "Mine", step);
    const std::pair<const char*, Action> rows[] = {
        {"chain",
         [&] {
             const Chain read = ParseChainJson(chain, "chain", &catalogue_);
             ChainProcessor(read, catalogue_, presets_, 8000.0f, 2, 512);
             ASSERT_EQ(ParseChainJson(FormatChainJson(read), "again", &catalogue_), read);
         }},
        {"preset",
         [&] {
             presets_.Save("amplify", "Mine", step);
             ASSERT_EQ(presets_.Load("amplify", "mine")->settings, step.settings);
             ASSERT_EQ(presets_.GetNames("amplify").size(), 1u);
         }},
        {"plan", [&] { ASSERT_EQ(PlanFromJson(plan, "plan").GetJoinCount(), 1u); }},
        {"replay",
         [&] {
             ASSERT_EQ(
                 RunReplay(
                     ParseReplayJson(script, "script"), catalogue_,
                     [](float* const*, std::size_t, int) {}, [](float* const*, std::size_t, int) {},
                     [](const float* const*, std::size_t, int) {})
                     .size(),
                 1u);
         }},
    };
    for (const auto& [name, action] : rows) FailEachAllocation(name, action);
}

TEST_F(AllocationFaultTest, FilesAppearOrNot) {
    WriteSong(folder_ / "in.wav", 0.2);
    const struct {
        const char* name;
        const char* output;
        Chain chain;
    } rows[] = {
        {"effects", "a.wav", {{"amplify", "+3dB Boost", {}}, {"echo", "", {}}, {"chorus", "", {}}}},
        {"compressed", "a.flac", {{"parametric-equalizer", "", {}}}},
        {"offline", "b.wav", {{"noise", "", {{"seed", "7"}}}, {"dynamics", "", {}}}},
        {"curves", "c.wav", {{"amplify", "", {}, {{"gain.1", {{0.0, "0"}, {0.1, "-6"}}}}}}},
    };
    for (const auto& row : rows) {
        const std::string output = folder_ / row.output;
        RenderTo(output, folder_ / "in.wav", row.chain);
        const std::string whole = ReadBytes(output);
        FailEachAllocation(row.name, [&] {
            const auto check = [&] { ASSERT_TRUE(ReadBytes(output) == whole); };
            try {
                RenderTo(output, folder_ / "in.wav", row.chain);
            } catch (...) {
                check();
                throw;
            }
            check();
        });
    }
    EXPECT_EQ(folder_.List(),
              (std::vector<std::string>{"a.flac", "a.wav", "b.wav", "c.wav", "in.wav"}));
}

TEST_F(AllocationFaultTest, RemixesAreMadeOrNot) {
    WriteSong(folder_ / "song.wav", 12.0);
    FailEachAllocation("remix", [&] {
        RemixSource source(folder_ / "song.wav");
        const SongCache cache(folder_ / "songs");
        const auto& song = source.Analyse(cache, nullptr);
        RemixPlan plan = RemixSearch(source, song, {}, nullptr).Find(8.0);
        plan = PlanFromJson(PlanToJson(plan), "plan");
        RemixOutput output;
        output.path = folder_ / "out.wav";
        WriteRemix(plan, source, output);
    });
}

TEST_F(AllocationFaultTest, PicturesAreDrawnOrNot) {
    FailEachAllocation("response", [&] {
        ChainProcessor chain({{"echo", "", {}}}, catalogue_, presets_, 48000.0f, 2, 512);
        const auto responses = MeasureImpulseResponses(chain, 48000.0f, 0.1);
        ASSERT_FALSE(PlotImpulseResponses(responses, "Echo").ToSvg().empty());
    });
}

}  // namespace
}  // namespace zuc::host
