#include "host/Automation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "Components/Amplify.h"
#include "Components/Library.h"
#include "host/ChainProcessor.h"
#include "host/Error.h"
#include "host/UserPresets.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

class AutomationTest : public testing::Test {
protected:
    void SetUp() override { Initialize(); }
    void TearDown() override { Terminate(); }

    static Chain MakeChain(const std::vector<std::string>& effects,
                           const std::vector<std::string>& automation) {
        Chain chain;
        for (const std::string& effect : effects) chain.push_back(ParseStepText(effect));
        for (const std::string& text : automation) AddAutomation(chain, EffectCatalogue(), text);
        return chain;
    }

    /// Channel 0 of ten seconds of noise through the chain at 8 kHz.
    static std::vector<float> Render(const Chain& chain, int blockFrames, std::int64_t begin = 0) {
        constexpr int kFrames = 80'000;
        ChainProcessor processor(chain, EffectCatalogue(), UserPresets(), 8000.0f, 2, blockFrames);
        std::vector<float> left(kFrames);
        std::uint32_t state = 1;
        for (float& x : left) {
            state = state * 1664525u + 1013904223u;
            x = static_cast<float>(state >> 8) / 16777216.0f - 0.25f;
        }
        std::vector<float> right = left;
        processor.SetSelection(begin, kFrames);
        processor.Resume();
        for (int done = 0; done < kFrames; done += blockFrames) {
            float* audio[] = {left.data() + done, right.data() + done};
            processor.Process(audio, std::min(blockFrames, kFrames - done));
        }
        return left;
    }
};

TEST_F(AutomationTest, ReadsPoints) {
    struct Row {
        const char* text;
        std::vector<CurvePoint> points;  // empty: refused
    };
    const Row rows[] = {
        {"0s=64%,5s=20%", {{0, "64%"}, {5, "20%"}}},
        {" 250ms = -6 dB hold , 1:30=low-pass", {{0.25, "-6 dB", true}, {90, "low-pass"}}},
        {"0=hold", {{0, "hold"}}},
        {"5s=1,5s=2", {}},
        {"5s=1,4s=2", {}},
        {"5s", {}},
        {"5s=", {}},
        {"x=1", {}},
        {"", {}},
    };
    for (const Row& row : rows) {
        if (row.points.empty())
            EXPECT_THROW(ParseCurvePoints(row.text), Error) << row.text;
        else
            EXPECT_EQ(ParseCurvePoints(row.text), row.points) << row.text;
    }
}

TEST_F(AutomationTest, ReadsPointsFromAFile) {
    const TestFolder folder;
    WriteBytes(folder / "curve.csv", "0,64%\n5,20%\n");
    EXPECT_EQ(ParseCurvePoints(" @" + (folder / "curve.csv")), ParseCurvePoints("0s=64%,5s=20%"));
    EXPECT_THROW(ParseCurvePoints("@" + (folder / "none.csv")), Error);
}

TEST_F(AutomationTest, ReadsCsv) {
    const std::vector<CurvePoint> points{{0, "0 dB"}, {5, "-12 dB", true}, {10, "-3,5"}};
    EXPECT_EQ(ParseCurveCsv("\xEF\xBB\xBFtime;value;hold\r\n0;0 dB;\r\n\r\n# note\n5;-12 dB;hold\n"
                            "10;-3,5;0\n",
                            "a.csv"),
              points);
    EXPECT_EQ(ParseCurveCsv("0,1\n0:05,2,TRUE", "a.csv"),
              (std::vector<CurvePoint>{{0, "1"}, {5, "2", true}}));
    struct Row {
        const char* csv;
        const char* fault;  // begins the message
    };
    for (const Row& row :
         {Row{"", "a.csv holds no points"}, Row{"0,1\nx,2", "a.csv:2"},
          Row{"0,1\n\n0,2", "a.csv:3"}, Row{"0,1,hold,4", "a.csv:1"}, Row{"0\n", "a.csv:1"}})
        try {
            ParseCurveCsv(row.csv, "a.csv");
            ADD_FAILURE() << row.csv;
        } catch (const Error& error) {
            EXPECT_EQ(error.GetMessage().rfind(row.fault, 0), 0u) << error.GetMessage();
        }
}

TEST_F(AutomationTest, NamesTheEffectOfTheChain) {
    const Chain chain =
        MakeChain({"echo", "Amplify", "echo"},
                  {"amplify.gain.1:0=1", "echo#2.decay-left:0=5", "echo#2.decay-left:0=6"});
    EXPECT_TRUE(chain[0].automation.empty());
    EXPECT_EQ(chain[1].automation, (std::vector<CurveText>{{"gain.1", {{0, "1"}}}}));
    EXPECT_EQ(chain[2].automation, (std::vector<CurveText>{{"decay-left", {{0, "6"}}}}));
    EXPECT_EQ(ParseChainJson(FormatChainJson(chain), "x"), chain);
    for (const char* text : {"echo.decay-left:0=1", "echo#3.decay-left:0=1", "delay.delay-left:0=1",
                             "amplify:0=1", "amplify.gain", "nothing.gain:0=1", ".gain:0=1"})
        EXPECT_THROW(MakeChain({"echo", "amplify", "echo"}, {text}), Error) << text;
    // What the parameter does not take shows when the chain is made.
    for (const char* text : {"amplify.gian:0=1", "amplify.gain:0=99", "amplify.link-sliders:0=on"})
        EXPECT_THROW(Render(MakeChain({"amplify"}, {text}), 512), Error) << text;
}

TEST_F(AutomationTest, RefusesDamagedChainFiles) {
    for (const char* points : {"[]", "{}", "[{\"time\": 1}]", "[{\"time\": \"x\", \"value\": 1}]",
                               "[{\"time\": 1, \"value\": 1, \"hold\": 1}]",
                               "[{\"time\": 1, \"value\": 1}, {\"time\": 1, \"value\": 2}]"})
        EXPECT_THROW(
            ParseChainJson(std::string(R"({"schema": "zuc.chain/1", "effects": [{"effect": )"
                                       R"("amplify", "automation": {"gain.1": )") +
                               points + "}}]}",
                           "x"),
            Error)
            << points;
}

TEST_F(AutomationTest, ParametersFollowTheirCurvesInTheirOwnUnit) {
    const auto plain = Render({}, 512);
    const auto out =
        Render(MakeChain({"amplify"}, {"amplify.gain:1s=0dB hold,2s=-12dB,6s=-20dB"}), 512);
    const auto gainAt = [&](int frame) {
        return 20.0 * std::log10(static_cast<double>(out[frame]) / plain[frame]);
    };
    EXPECT_NEAR(gainAt(0), 0.0, 1e-4);  // no ramp from the setting at the start
    EXPECT_NEAR(gainAt(15'999), 0.0, 1e-4);
    EXPECT_NEAR(gainAt(16'500), -12.0 - 0.125, 0.1);  // the effect ramps on the way
    EXPECT_NEAR(gainAt(32'000), -16.0, 0.1);
    EXPECT_NEAR(gainAt(79'999), -20.0, 1e-4);
    // Times are those of the file: the same curve from 2 s on.
    const auto later =
        Render(MakeChain({"amplify"}, {"amplify.gain:1s=0dB hold,2s=-12dB,6s=-20dB"}), 512, 16'000);
    EXPECT_NEAR(20.0 * std::log10(static_cast<double>(later[0]) / plain[0]), -12.0, 1e-4);
    const auto envelope =
        Render(MakeChain({"gain-envelope"}, {"gain-envelope.curve:0=0dB,10s=-20dB"}), 512);
    EXPECT_NEAR(20.0 * std::log10(static_cast<double>(envelope[40'000]) / plain[40'000]), -10.0,
                0.01);
}

TEST_F(AutomationTest, RendersDoNotDependOnTheBlockLength) {
    const Chain chain = MakeChain(
        {"amplify", "echo:lock-lr=off", "fade-envelope:fade-in=1s,fade-out=2s"},
        {"amplify.gain:0=-6dB hold,3.3333s=0dB,8s=-20dB", "echo.decay-left:0s=64%,5s=20%",
         "echo.delay-left:2s=100ms,9s=700ms", "fade-envelope.curve:1s=100%,4s=20% hold,4.1s=100%"});
    const auto expected = Render(chain, 80'000);
    for (const int blockFrames : {7, 64, 480, 4096})
        EXPECT_EQ(Render(chain, blockFrames), expected) << "blocks of " << blockFrames;
}

}  // namespace
}  // namespace zuc::host
