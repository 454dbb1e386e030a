#include "host/Chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "TestEffects.h"
#include "host/Automation.h"
#include "host/ChainProcessor.h"
#include "host/Faults.h"
#include "host/Parameters.h"

namespace zuc::host {
namespace {

using testing::HasSubstr;

TEST(Chain, ReadsAndWritesSteps) {
    const struct {
        const char* text = "";
        ChainStep step;
    } rows[] = {
        {"amplify", {"amplify", "", {}}},
        {"amplify:gain=-6dB", {"amplify", "", {{"gain", "-6dB"}}}},
        {"amplify:preset=+3dB Boost,gain.1=-6dB", {"amplify", "+3dB Boost", {{"gain.1", "-6dB"}}}},
        {"dynamics:preset=3:1, Expander < 10dB", {"dynamics", "3:1, Expander < 10dB", {}}},
        {"dynamics:preset=3:1, Expander < 10dB,input-gain=1",
         {"dynamics", "3:1, Expander < 10dB", {{"input-gain", "1"}}}},
        {"a:b=c=d", {"a", "", {{"b", "c=d"}}}},
        {"a:b=,c=1", {"a", "", {{"b", ""}, {"c", "1"}}}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ParseStepText(row.text), row.step) << row.text;
        EXPECT_EQ(FormatStepText(row.step), row.text);
    }
    EXPECT_EQ(ParseStepText(" a : b = 1 , c= 2 "), (ChainStep{"a", "", {{"b", "1"}, {"c", "2"}}}));
    EXPECT_EQ(ParseStepText("a:"), (ChainStep{"a", "", {}}));
    for (const char* text : {"", ":gain=1", "a:gain", "a:=1", "a:,"})
        EXPECT_THROW(ParseStepText(text), Error) << text;
}

TEST(Chain, JsonRoundTrips) {
    const Chain chains[] = {
        {},
        {{"amplify", "", {}}},
        {{"amplify", "+3dB Boost", {{"gain.1", "-6 dB"}, {"gain.2", "n:0.5"}}},
         {"echo", "\"ü\"", {}}},
    };
    for (const Chain& chain : chains)
        EXPECT_EQ(ParseChainJson(FormatChainJson(chain), "test"), chain);
    EXPECT_EQ(ParseChainJson(R"({"schema": "zuc.chain/1", "effects": [
                  {"effect": "a", "settings": {"x": -1.5, "y": true, "z": 3}}]})",
                             "test"),
              (Chain{{"a", "", {{"x", "-1.5"}, {"y", "on"}, {"z", "3"}}}}));
    // Of repeated settings the last one counts, in its place.
    const Chain repeated{{"a", "", {{"x.1", "1"}, {"x", "2"}, {"x.1", "3"}}}};
    EXPECT_EQ(ParseChainJson(FormatChainJson(repeated), "test"),
              (Chain{{"a", "", {{"x", "2"}, {"x.1", "3"}}}}));
}

TEST(Chain, JsonFaultsAreNamedWithTheirPlace) {
    const struct {
        const char* json;
        const char* message;
        const char* hint;
    } rows[] = {
        {"", "line 1, column 1", ""},
        {"{\n\"schema\": ,", "line 2, column 11", ""},
        {"[]", "expected an object, found array", ""},
        {"{}", "'schema' is missing", ""},
        {R"({"schema": "zuc.chain/2", "effects": []})", "unknown schema 'zuc.chain/2'", ""},
        {R"({"schema": "zuc.chain/1", "efects": []})", "unknown key 'efects'",
         "did you mean 'effects'?"},
        {R"({"schema": "zuc.chain/1", "effects": {}})", "f: effects: expected a list", ""},
        {R"({"schema": "zuc.chain/1", "effects": [{"effect": "a"}, {}]})",
         "f: effects[1]: 'effect' is missing", ""},
        {R"({"schema": "zuc.chain/1", "effects": [{"effect": 1}]})",
         "f: effects[0].effect: expected a text, found number", ""},
        {R"({"schema": "zuc.chain/1", "effects": [{"effect": "a", "setings": {}}]})",
         "effects[0]: unknown key 'setings'", "did you mean 'settings'?"},
        {R"({"schema": "zuc.chain/1", "effects": [{"effect": "a", "settings": {"x": null}}]})",
         "effects[0].settings.x: expected a text", ""},
        {R"({"schema": "zuc.chain/1", "effects": [{"effect": "a", "settings": {"x": 1, "x": 2}}]})",
         "'x' stands twice", ""},
        {R"({"schema": "zuc.chain/1", "effects": [{"effect": "a", "settings": {"x": 1e999}}]})",
         "1e999", ""},
        {"[[[[[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]]]]", "nested too deeply", ""},
    };
    for (const auto& row : rows) {
        try {
            ParseChainJson(row.json, "f");
            ADD_FAILURE() << "accepted " << row.json;
        } catch (const Error& error) {
            EXPECT_THAT(error.GetMessage(), HasSubstr(row.message)) << row.json;
            EXPECT_EQ(error.GetHint(), row.hint) << row.json;
        }
    }
}

TEST(Chain, UnknownEffectsSurviveByteForByte) {
    const std::string json = R"({
  "schema": "zuc.chain/1",
  "effects": [
    {
      "effect": "amplify",
      "settings": {
        "link-sliders": "off"
      }
    },
    {"effect": "of-tomorrow",   "version": 3.00,
       "curve": [[0, 1.5e0], null, "a \\\"]},{ \u00e9"], "on" : true},
    {"settings": {}, "effect": "other"}
  ]
}
)";
    const EffectCatalogue catalogue;
    const UserPresets presets;
    const Chain chain = ParseChainJson(json, "f", &catalogue);
    ASSERT_EQ(chain.size(), 3u);
    EXPECT_EQ(FormatChainJson(chain), json);
    for (const std::size_t channels : {1u, 2u, 6u}) {
        ChainProcessor processor(chain, catalogue, presets, 48000.0f, channels, 64);
        EXPECT_EQ(FormatChainJson(processor.GetResolvedChain()), json);
        EXPECT_EQ(processor.GetFilters().back()->GetNumberOfOutputChannels(), channels);
        std::vector<float> ones(64, 1.0f);
        std::vector<std::vector<float>> audio(channels, ones);
        std::vector<float*> at;
        for (auto& channel : audio) at.push_back(channel.data());
        processor.Resume();
        processor.Process(at.data(), 64);
        for (const auto& channel : audio) EXPECT_NEAR(channel[63], 1.0f, 1e-6f);
    }
    // Any layout of the rest of the file; what a person types must exist all the same.
    EXPECT_EQ(ParseChainJson(R"({"effects":[ {"effect":"x"} ],"\u0073chema":"zuc.chain/1"})", "f",
                             &catalogue),
              (Chain{{"x", "", {}, {}, R"({"effect":"x"})"}}));
    EXPECT_THROW(ChainProcessor({{"x", "", {}}}, catalogue, presets, 48000.0f, 2, 64), Error);
    Chain automated = chain;
    EXPECT_THROW(AddAutomation(automated, catalogue, "of-tomorrow.curve:0=1"), Error);
    EXPECT_NO_THROW(AddAutomation(automated, catalogue, "amplify.gain.1:0=-6dB,1=0dB"));
}

class ChainProcessorTest : public testing::Test {
public:
    ~ChainProcessorTest() override { std::filesystem::remove_all(folder_); }

protected:
    ChainProcessorTest()
        : folder_(testing::TempDir() + "zuc-presets-" + std::to_string(::getpid())) {}
    ChainProcessor Make(const Chain& chain, std::size_t channels = 2) const {
        return {chain, catalogue_, UserPresets(folder_), 48000.0f, channels, 64};
    }

    std::string folder_;
    EffectCatalogue catalogue_{test::GetTestEffects()};
};

TEST_F(ChainProcessorTest, AppliesThePresetThenTheSettingsAndResolvesNames) {
    auto processor = Make({{"TestDelay", "halflevel", {{"Mix", "25"}, {"cutoff", "1.5kHz"}}}});
    EXPECT_EQ(
        processor.GetResolvedChain(),
        (Chain{{"test-delay", "3:1, Half < level", {{"mix", "25%"}, {"eq-cutoff", "1500 Hz"}}}}));
    const auto parameters = GetParameters(*processor.GetFilters().front());
    EXPECT_FLOAT_EQ(parameters[0].info->FromNormalized(parameters[0].normalized), -6.0f);
    EXPECT_EQ(processor.GetLatencyFrames(), test::kDelayLatencyFrames);
    EXPECT_EQ(Make({{"test-delay", "", {}}, {"test-delay", "", {}}}).GetLatencyFrames(),
              2 * test::kDelayLatencyFrames);
    EXPECT_EQ(Make({}).GetTailFrames(), 0);
}

TEST_F(ChainProcessorTest, TellsAllFaultsAtOnce) {
    try {
        Make({{"test-dely", "", {}},
              {"test-delay", "Nope", {{"mix", "101%"}, {"mxi", "1"}, {"num-channels", "2"}}}});
        FAIL();
    } catch (const ErrorList& list) {
        ASSERT_EQ(list.GetErrors().size(), 5u);
        EXPECT_THAT(list.what(), HasSubstr("did you mean 'test-delay'?"));
        EXPECT_THAT(list.what(), HasSubstr("did you mean 'mix'?"));
    }
    EXPECT_THROW(Make({{"test-delay", "", {}}}, 9), Error) << "it takes at most 8 channels";
    EXPECT_NO_THROW(Make({{"test-delay", "", {}}}, 8));
}

TEST_F(ChainProcessorTest, FindsPresetsThatThePersonSaved) {
    const UserPresets presets(folder_);
    const ChainStep saved{"test-delay", "HalfLevel", {{"mix", "10%"}}};
    EXPECT_TRUE(presets.GetNames("test-delay").empty());
    for (const char* name : {"Mine", "a/b: \"100 %\"", "../../up", ".hidden"}) {
        const std::string path = presets.Save("test-delay", name, saved);
        EXPECT_EQ(std::filesystem::path(path).parent_path(),
                  std::filesystem::path(folder_) / "test-delay");
        EXPECT_EQ(presets.Load("test-delay", name), saved) << name;
    }
    EXPECT_EQ(presets.GetNames("test-delay").size(), 4u);
    EXPECT_THROW(presets.Save("test-delay", "  ", saved), Error);
    std::ofstream(folder_ + "/file") << "in the way";
    try {
        UserPresets(folder_ + "/file").Save("test-delay", "Mine", saved);
        ADD_FAILURE();
    } catch (const Error& error) {
        EXPECT_EQ(error.GetCode(), ExitCode::kOutput);
        EXPECT_THAT(error.GetMessage(), testing::HasSubstr("cannot be made"));
    }

    const auto processor = Make({{"test-delay", "mine", {{"fade-time", "0"}}}});
    const auto parameters = GetParameters(*processor.GetFilters().front());
    EXPECT_FLOAT_EQ(parameters[0].info->FromNormalized(parameters[0].normalized), -6.0f);
    EXPECT_FLOAT_EQ(parameters[4].info->FromNormalized(parameters[4].normalized), 10.0f);

    // One that refers to itself must not recurse.
    presets.Save("test-delay", "loop", {"test-delay", "loop", {}});
    EXPECT_THROW(Make({{"test-delay", "loop", {}}}), Error);
}

}  // namespace
}  // namespace zuc::host
