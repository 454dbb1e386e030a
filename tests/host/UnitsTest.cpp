#include "host/Units.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <random>

#include "TestEffects.h"
#include "host/EffectCatalogue.h"
#include "host/Error.h"
#include "host/TimeRange.h"

namespace zuc::host {
namespace {

class UnitsTest : public testing::Test {
protected:
    const Parameter& Find(const char* name) const {
        return *FindParameters(parameters_, name, "test-delay").front();
    }

    EffectCatalogue catalogue_{test::GetTestEffects()};
    AudioFilterPtr filter_ = catalogue_.Find("test-delay").create();
    std::vector<Parameter> parameters_ = GetParameters(*filter_);
};

TEST_F(UnitsTest, ReadsValuesInUnitsThatFit) {
    const struct {
        const char* parameter;
        const char* text;
        float value;  // in the parameter's own unit
    } rows[] = {
        {"level", "+3dB", 3},
        {"level", "-6 dB", -6},
        {"level", " -6 ", -6},
        {"level", "1e1", 10},
        {"level", "-60 db", -60},
        {"fade-time", "350ms", 0.35f},
        {"fade-time", "0.35s", 0.35f},
        {"fade-time", ".5", 0.5f},
        {"delay-left", "348.8ms", 348.8f},
        {"delay-left", "-0.25s", -250},
        {"eq-cutoff", "440Hz", 440},
        {"eq-cutoff", "1.2kHz", 1200},
        {"eq-cutoff", "1.2 KHZ", 1200},
        {"eq-cutoff", "20000Hz", 20000},
        {"eq-cutoff", "20", 20},
        {"mix", "64%", 64},
        {"mix", "64", 64},
        {"xy-count", "5 pairs", 5},
        {"bypass", "on", 1},
        {"bypass", "TRUE", 1},
        {"bypass", "yes", 1},
        {"bypass", "No", 0},
        {"bypass", "1", 1},
        {"filter-mode", "high-pass", 1},
        {"filter-mode", "High Pass", 1},
        {"filter-mode", "2", 2},
        {"mix", "n:0.25", 25},
    };
    for (const auto& row : rows) {
        const Parameter& parameter = Find(row.parameter);
        const float normalized = ParseValue(parameter, row.text, "test-delay");
        EXPECT_NEAR(parameter.info->FromNormalized(normalized), row.value,
                    1e-5f * (1 + std::abs(row.value)))
            << row.parameter << " " << row.text;
    }
}

TEST_F(UnitsTest, RefusesWhatDoesNotFitAndSaysWhatDoes) {
    const struct {
        const char* parameter;
        const char* text;
        const char* allowed;
    } rows[] = {
        {"level", "12.1dB", "-60 … 12 dB"},
        {"level", "-inf", "-60 … 12 dB"},
        {"level", "inf", "-60 … 12 dB"},
        {"level", "nan", "-60 … 12 dB"},
        {"level", "3%", "-60 … 12 dB"},
        {"level", "", "-60 … 12 dB"},
        {"level", "dB", "-60 … 12 dB"},
        {"level", "3 3", "-60 … 12 dB"},
        {"level", "1,5", "-60 … 12 dB"},
        {"level", "0x10", "-60 … 12 dB"},
        {"level", "1e400", "-60 … 12 dB"},
        {"eq-cutoff", "0", "20 … 20000 Hz"},
        {"eq-cutoff", "30kHz", "20 … 20000 Hz"},
        {"eq-cutoff", "3ms", "20 … 20000 Hz"},
        {"mix", "on", "0 … 100%"},
        {"mix", "n:1.01", "0 … 100%"},
        {"mix", "n:", "0 … 100%"},
        {"bypass", "maybe", "off, on"},
        {"filter-mode", "hihg-pass", "low-pass, high-pass, band-pass"},
    };
    for (const auto& row : rows) {
        try {
            ParseValue(Find(row.parameter), row.text, "test-delay");
            ADD_FAILURE() << row.parameter << " took " << row.text;
        } catch (const Error& error) {
            EXPECT_EQ(error.GetCode(), ExitCode::kUsage);
            EXPECT_EQ(error.GetAllowed(), row.allowed) << row.text;
            EXPECT_THAT(error.GetMessage(), testing::HasSubstr(row.parameter));
        }
    }
}

TEST_F(UnitsTest, WritesShortTextsThatReadBackAsTheSameValue) {
    const struct {
        const char* parameter;
        const char* text;
        const char* shown;
    } rows[] = {
        {"level", "-6", "-6 dB"},
        {"level", "+0.10", "0.1 dB"},
        {"fade-time", "350ms", "0.35 s"},
        {"delay-left", "348.8", "348.8 ms"},
        {"eq-cutoff", "1.2kHz", "1200 Hz"},
        {"mix", "64", "64%"},
        {"bypass", "yes", "on"},
        {"filter-mode", "1", "high-pass"},
        {"level", "-0", "0 dB"},
    };
    for (const auto& row : rows) {
        const Parameter& parameter = Find(row.parameter);
        EXPECT_EQ(FormatValue(parameter, ParseValue(parameter, row.text, "")), row.shown);
    }
    std::mt19937 random(1);
    for (const Parameter& parameter : parameters_)
        for (int i = 0; i < 2000; ++i) {
            const float normalized =
                i < 2 ? static_cast<float>(i) : static_cast<float>(random()) / 4294967296.0f;
            const std::string text = FormatValue(parameter, normalized);
            EXPECT_EQ(ParseValue(parameter, text, ""), normalized) << parameter.slug << " " << text;
        }
}

TEST_F(UnitsTest, DoesNotDependOnTheLocale) {
    const char* found = nullptr;
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE.utf8"})
        if (!found) found = std::setlocale(LC_ALL, name);  // NOLINT(concurrency-mt-unsafe)
    if (!found) GTEST_SKIP() << "no locale with a decimal comma is installed";
    const Parameter& parameter = Find("delay-left");
    EXPECT_EQ(FormatValue(parameter, ParseValue(parameter, "348.8", "")), "348.8 ms");
    std::setlocale(LC_ALL, "C");  // NOLINT(concurrency-mt-unsafe)
}

TEST(TimeRange, ReadsRangesAndRefusesOthers) {
    constexpr double kOpen = std::numeric_limits<double>::infinity();
    const struct {
        const char* text;
        double begin;
        double end;  // 0: refused
    } rows[] = {
        {"1..2", 1, 2},
        {"0.5..", 0.5, kOpen},
        {"..90", 0, 90},
        {"1:30..2:00", 90, 120},
        {"0..1:02:03.5", 0, 3723.5},
        {"250ms..1s", 0.25, 1},
        {" 1 .. 2 ", 1, 2},
        {"..", 0, kOpen},
        {"2..1", 0, 0},
        {"1..1", 0, 0},
        {"1", 0, 0},
        {"", 0, 0},
        {"a..b", 0, 0},
        {"-1..2", 0, 0},
        {"1:60..", 0, 0},
        {"1:2.5:3..", 0, 0},
        {"0..1e99", 0, 0},
        {"nan..", 0, 0},
        {"1..2..3", 0, 0},
        {":..", 0, 0},
    };
    for (const auto& row : rows) {
        if (row.end == 0) {
            EXPECT_THROW(ParseTimeRange(row.text), Error) << row.text;
            continue;
        }
        EXPECT_EQ(ParseTimeRange(row.text), (TimeRange{row.begin, row.end})) << row.text;
    }
}

}  // namespace
}  // namespace zuc::host
