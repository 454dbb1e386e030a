#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "host/ChainProcessor.h"
#include "host/Error.h"
#include "host/SideChainFeed.h"

namespace zuc::host {
namespace {

TEST(SideChainFeed, DelaysWhateverTheBlocks) {
    for (const int delay : {0, 1, 5, 700})
        for (const int block : {1, 3, 64}) {
            SideChainFeed feed;
            feed.Prepare(1, delay, 64);
            std::vector<float> input(1500);
            for (std::size_t i = 0; i < input.size(); ++i) input[i] = static_cast<float>(i + 1);
            for (int done = 0, count = block; done + 64 <= 1500;) {
                const float* side = input.data() + done;
                float* out = nullptr;
                feed.Take(&side, count, &out);
                for (int i = 0; i < count; ++i) {
                    const float expected = static_cast<float>(std::max(0, done + i + 1 - delay));
                    ASSERT_EQ(out[i], expected) << delay << ", " << block << ", " << done + i;
                }
                done += count;
                count = count == block ? 64 - block + 1 : block;  // blocks of two lengths in turn
            }
        }
}

class SideChainTest : public testing::Test {
protected:
    ChainProcessor Make(const std::vector<const char*>& steps, std::size_t sideChannels) {
        Chain chain;
        for (const char* step : steps) chain.push_back(ParseStepText(step));
        return {chain, EffectCatalogue(), UserPresets(), 48000.0f, 1, 480, sideChannels};
    }
};

/// A gate that only the side chain opens: everything below -50 dB is muted at once.
constexpr const char* kGate =
    "dynamics:xy-count=4,location1=-100,value1=-100,location2=-50,value2=-100,location3=-50,"
    "value3=-50,location4=0,value4=0,noise-gating-if=on,peak-rms=off,leve-attack-time=0,"
    "level-release-time=0,gain-attack-time=0,gain-release-time=0,lookahead-time=0,high-cutoff="
    "24000";

TEST_F(SideChainTest, ReachesAnEffectAsLateAsTheAudio) {
    for (const char* before : {"amplify", "dynamics:lookahead-time=100ms"}) {
        ChainProcessor chain = Make({before, kGate}, 1);
        chain.Resume();
        const auto latency = static_cast<std::size_t>(chain.GetLatencyFrames());
        std::vector<float> audio(48000, 0.5f);
        std::vector<float> side(48000, 0.0f);
        for (std::size_t i = 24000; i < 24480; ++i) side[i] = 0.5f;
        for (std::size_t done = 0; done < audio.size(); done += 480) {
            float* block = audio.data() + done;
            const float* sideBlock = side.data() + done;
            chain.Process(&block, 480, &sideBlock);
        }
        // The gate opens ahead of the sound that it lets through, by its own 32 + 7 frames of latency
        // less the 3 of its filter.
        std::size_t first = latency + 1000;  // past what the envelopes begin with
        while (first < audio.size() && std::fabs(audio[first]) < 0.25f) ++first;
        EXPECT_EQ(first, 24000 + latency - 36) << before;
    }
}

TEST_F(SideChainTest, NeedsAnEffectThatHasOne) {
    EXPECT_NO_THROW(Make({"amplify", kGate}, 2));
    EXPECT_THROW(Make({"amplify"}, 2), Error);
    EXPECT_THROW(Make({kGate}, 40), Error);
    ChainProcessor chain = Make({kGate}, 0);
    std::vector<float> audio(480, 0.5f);
    float* block = audio.data();
    chain.Resume();
    chain.Process(&block, 480);
    EXPECT_NEAR(audio[479], 0.5f, 1e-5f) << "without a side chain the input opens the gate";
}

}  // namespace
}  // namespace zuc::host
