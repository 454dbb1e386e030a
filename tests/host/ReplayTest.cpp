#include "host/Replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestEffects.h"

namespace zuc::host {
namespace {

/// Plays a script; the input counts 1, 2, 3, ... in channel 0 and 1001, 1002, ... in channel 1, the
/// side chain the negative of that.
class ReplayTest : public testing::Test {
protected:
    void Play(const char* json) {
        const ReplayScript script = ParseReplayJson(json, "script");
        output_.assign(CountReplayChannels(script, catalogue_), {});
        const auto counter = [](int sign) {
            return [sign, next = 1](float* const* audio, std::size_t channels, int frames) mutable {
                for (int i = 0; i < frames; ++i, ++next)
                    for (std::size_t c = 0; c < channels; ++c)
                        audio[c][i] =
                            static_cast<float>(sign * (next + 1000 * static_cast<int>(c)));
            };
        };
        log_ = RunReplay(script, catalogue_, counter(1), counter(-1),
                         [&](const float* const* audio, std::size_t channels, int frames) {
                             ASSERT_EQ(channels, output_.size());
                             blocks_.push_back(frames);
                             for (std::size_t c = 0; c < channels; ++c)
                                 output_[c].insert(output_[c].end(), audio[c], audio[c] + frames);
                         });
    }

    EffectCatalogue catalogue_{test::GetTestEffects()};
    std::vector<std::vector<float>> output_;
    std::vector<int> blocks_;
    Json log_;
};

TEST_F(ReplayTest, PlaysTheContractAsItStands) {
    Play(R"({"effect": "TestDelay", "rate": 8000, "channels": 2, "note": "other keys do not count",
             "events": [{"op": "param", "index": 4, "n": 0.25}, {"op": "get", "index": 4},
                        {"op": "get", "index": 99}, {"op": "latency"}, {"op": "name", "index": 1},
                        {"op": "name", "index": 7}, {"op": "curve", "points": 3},
                        {"op": "process", "frames": 130, "block": 64}, {"op": "preset", "index": 1},
                        {"op": "get", "index": 0}, {"op": "begin", "index": 0}, {"op": "end", "index": 0},
                        {"op": "process", "frames": 20}, {"op": "suspend"}, {"op": "resume"},
                        {"op": "process", "frames": 101}]})");
    EXPECT_EQ(log_.dump(), R"([0.25,0.0,100,"3:1, Half < level","",[],0.75])");
    EXPECT_THAT(blocks_, testing::ElementsAre(64, 64, 2, 20, 101));
    ASSERT_EQ(output_.size(), 2u);
    ASSERT_EQ(output_[1].size(), 251u);
    EXPECT_EQ(output_[0][99], 0.0f) << "the latency stays in";
    EXPECT_EQ(output_[0][100], 1.0f);
    EXPECT_EQ(output_[1][101], 1002.0f);
    EXPECT_NEAR(output_[0][130], 31.0f * 0.501187f, 1e-4f) << "the preset counts at once";
    EXPECT_EQ(output_[0][249], 0.0f) << "resume forgets";
    EXPECT_NEAR(output_[0][250], 151.0f * 0.501187f, 1e-3f) << "the input goes on where it was";
}

TEST_F(ReplayTest, FollowsTheChannelsThatTheEffectSettlesOn) {
    Play(R"({"effect": "test-delay", "channels": 1, "events": [
             {"op": "process", "frames": 101}, {"op": "channels", "value": 3}, {"op": "resume"},
             {"op": "process", "frames": 101}, {"op": "channels", "value": 9}, {"op": "resume"},
             {"op": "process", "frames": 101}]})");
    ASSERT_EQ(output_.size(), 3u) << "nine channels are more than the effect takes and give one";
    EXPECT_EQ(output_[0][100], 1.0f);
    EXPECT_EQ(output_[2][100], 0.0f) << "channels that the effect lacks are silent";
    EXPECT_EQ(output_[2][201], 2102.0f);
    EXPECT_EQ(output_[0][302], 203.0f);
}

TEST_F(ReplayTest, FeedsTheSideChain) {
    Play(
        R"({"effect": "side-chain", "channels": 2, "events": [{"op": "process", "frames": 5, "block": 2}]})");
    EXPECT_THAT(output_[0], testing::ElementsAre(-1, -2, -3, -4, -5));
    EXPECT_THAT(output_[1], testing::ElementsAre(-1001, -1002, -1003, -1004, -1005));
}

TEST_F(ReplayTest, NamesFaultsWithTheirPlace) {
    const struct {
        const char* json;
        const char* message;
    } rows[] = {
        {"", "line 1"},
        {"{}", "'effect' is missing"},
        {R"({"effect": "a"})", "'events' is missing"},
        {R"({"effect": "a", "events": [{}]})", "events[0]: 'op' is missing"},
        {R"({"effect": "a", "events": [{"op": "resum"}]})", "did you mean 'resume'"},
        {R"({"effect": "a", "events": [{"op": "latency"}, {"op": "param", "index": 2}]})",
         "events[1]: 'n' is missing"},
        {R"({"effect": "a", "events": [{"op": "get", "index": 0.5}]})", "0.5 is no whole number"},
        {R"({"effect": "a", "events": [{"op": "get", "index": 1e12}]})", "out of range"},
        {R"({"effect": "a", "events": [{"op": "channels", "value": 0}]})", "out of range"},
        {R"({"effect": "a", "events": [{"op": "process", "frames": -1}]})", "out of range"},
        {R"({"effect": "a", "events": [{"op": "process", "frames": 1, "block": 0}]})",
         "out of range"},
        {R"({"effect": "a", "rate": 0, "events": []})", "out of range"},
        {R"({"effect": "a", "events": [{"op": "param", "index": 0, "n": 1e300}]})", "out of range"},
    };
    for (const auto& row : rows) {
        try {
            ParseReplayJson(row.json, "script");
            ADD_FAILURE() << "accepted " << row.json;
        } catch (const Error& error) {
            EXPECT_THAT(error.GetMessage(), testing::HasSubstr(row.message)) << row.json;
        }
    }
    EXPECT_THROW(Play(R"({"effect": "nothing", "events": []})"), Error);
}

}  // namespace
}  // namespace zuc::host
