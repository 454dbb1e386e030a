#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RunZuc.h"

namespace zuc::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class PlotTest : public testing::Test {
protected:
    PlotTest() { WriteNoise(in_, 96000); }

    Outcome Plot(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "plot");
        arguments.insert(arguments.end(), {"-o", picture_});
        return RunZuc(arguments);
    }

    TemporaryFolder folder_;
    std::string in_ = folder_ / "in.wav";
    std::string picture_ = folder_ / "picture.svg";
};

TEST_F(PlotTest, EveryKindDrawsFiniteLinesAndItsWords) {
    const struct {
        std::vector<std::string> arguments;
        const char* word;
    } rows[] = {
        {{"impulse", "-e", "echo:preset=Spooky", "--length", "1"}, "echo"},
        {{"impulse", "-e", "amplify", "--scale", "level", "--channels", "6"}, "amplify"},
        {{"response", "-e", "parametric-equalizer:preset=Telephone", "--rate", "44100"}, "Hz"},
        {{"response", "-e", "amplify:gain=-96dB"}, "amplify"},
        {{"transfer", "-e", "dynamics:preset=Classic Soft Knee"}, "dB"},
        {{"gain", in_, "-e", "dynamics"}, "in.wav"},
        {{"gain", in_, "-e", "hard-limiter:drive=12dB", "--range", "0.5..1", "--sidechain", in_,
          "-e", "dynamics"},
         "in.wav"},
        {{"curve", "-e", "echo", "-a", "echo.decay-left:0s=64%,1s=20% hold,5s=20%"}, "%"},
        {{"curve", "-e", "volume-envelope", "-a", "volume-envelope.curve:0s=-inf,1s=0dB",
          "--length", "2"},
         "dB"},
        {{"waveform", in_, in_}, "in.wav"},
        {{"waveform", in_, "--range", "0..0.001"}, "in.wav"},
        {{"beats", in_}, "in.wav"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Plot(row.arguments);
        ASSERT_EQ(outcome.exitCode, 0) << row.arguments[0] << outcome.err;
        EXPECT_THAT(ReadBytes(picture_),
                    AllOf(HasSubstr("<svg"), HasSubstr("</svg>"), HasSubstr(row.word),
                          Not(HasSubstr("nan")), Not(HasSubstr("\"inf"))))
            << row.arguments[0] << " " << row.arguments[2 % row.arguments.size()];
    }
}

TEST_F(PlotTest, SaysWhatCannotBeDrawn) {
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    } rows[] = {
        {{"waves"}, 2, "there is no plot 'waves'"},
        {{"gain", "-e", "dynamics"}, 2, "IN is missing"},
        {{"gain", in_}, 2, "-e EFFECT is missing"},
        {{"gain", in_, in_, "-e", "dynamics"}, 2, "does not expect"},
        {{"transfer", "-e", "amplify"}, 2, "transfer"},
        {{"transfer", "-e", "dynamics", "-e", "dynamics"}, 2, "one effect at a time"},
        {{"impulse", "-e", "noise"}, 2, "works on the whole at once"},
        {{"impulse", "-e", "amplify", "--rate", "1", "--channels", "9", "--length", "0", "--scale",
          "x"},
         2,
         "--scale"},
        {{"curve", "-e", "amplify"}, 2, "curve"},
        {{"curve", "-e", "volume-envelope", "-a", "volume-envelope.curve:0s=loud"},
         2,
         "that is no level"},
        {{"curve", "-e", "volume-envelope", "-a", "volume-envelope.curve:0s=999dB"},
         2,
         "out of range"},
        {{"curve", "-e", "noise", "-a", "noise.level:0s=-6dB"}, 2, "cannot be automated"},
        {{"remix", in_}, 2, "the plan is missing"},
        {{"waveform", folder_ / "none.wav"}, 3, "none.wav"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Plot(row.arguments);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << row.arguments[0] << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(row.message)) << row.arguments[0];
    }
    EXPECT_THAT(folder_.List(), testing::ElementsAre("in.wav"));
}

}  // namespace
}  // namespace zuc::test
