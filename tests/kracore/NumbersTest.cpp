#include "kracore/Numbers.h"

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/kracore/CommaLocale.h"

namespace kracore::utility {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kLargest = std::numeric_limits<double>::max();

std::string Text(double value, std::size_t least, std::size_t most, std::size_t length = 31) {
    return ToUtf8(NumberToString(value, least, most, {}, length));
}

TEST(Numbers, Format) {
    const struct {
        double value;
        std::size_t least, most, length;
        std::string text;
    } rows[] = {
        // ties of the binary value go away from zero; decimal ties that are none follow their bits
        {0.5, 0, 0, 31, "1"},
        {2.5, 0, 0, 31, "3"},
        {-2.5, 0, 0, 31, "-3"},
        {0.125, 0, 2, 31, "0.13"},
        {-0.375, 0, 2, 31, "-0.38"},
        {1.005, 0, 2, 31, "1"},
        {1.015, 0, 2, 31, "1.01"},
        {0.49999999999999994, 0, 0, 31, "0"},
        // a carry runs through
        {9.996, 2, 2, 31, "10.00"},
        {-99.5, 0, 0, 31, "-100"},
        {0.96, 0, 1, 31, "1"},
        // trailing zeros stay down to the minimum, which wins over the maximum
        {1.0, 1, 2, 31, "1.0"},
        {1.25, 1, 4, 31, "1.25"},
        {3.14159, 4, 2, 31, "3.1416"},
        {100.0, 0, 3, 31, "100"},
        {0.1, 0, 20, 31, "0.10000000000000000555"},
        {0.5, 1200, 0, 1202, "0.5" + std::string(1199, '0')},
        // no negative zero
        {-0.0, 0, 0, 31, "0"},
        {-0.004, 2, 2, 31, "0.00"},
        {-0.005, 2, 2, 31, "-0.01"},
        {-5e-324, 0, 6, 31, "0"},
        // not finite
        {kNan, 1, 2, 31, "nan"},
        {kInfinity, 1, 2, 31, "inf"},
        {-kInfinity, 1, 2, 31, "-inf"},
        // too long
        {1e27, 1, 2, 31, "1000000000000000013287555072.0"},
        {1e28, 1, 2, 31, "9999999999999999583119736832.0"},
        {-1e28, 1, 2, 31, "-9999999999999999583119736832.0"},
        {1e29, 1, 2, 31, "99999999999999991433150857216.0"},
        {1e30, 1, 2, 31, "1.0e+30"},
        {-1e29, 1, 2, 31, "-1.0e+29"},
        {1.5e300, 0, 2, 31, "1.5e+300"},
        {-kLargest, 0, 2, 31, "-1.8e+308"},
        {0.5, 40, 40, 31, "5.0000000000000000000000000e-01"},
        {0.0, std::string::npos, 0, 12, "0.000000e+00"},
        {123456.0, 0, 2, 5, "1e+05"},
        {-1234567890.0, 0, 9, 9, "-1.23e+09"},
        {9.99e9, 0, 1, 8, "1e+10"},
        {123456.0, 0, 2, 0, "1e+05"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Text(row.value, row.least, row.most, row.length), row.text)
            << row.value << " with " << row.least << " to " << row.most << " in " << row.length;
}

TEST(Numbers, Parse) {
    const struct {
        std::string_view text;
        std::optional<double> value;
    } rows[] = {
        {"-12.5", -12.5},
        {"+3", 3.0},
        {"1e3", 1000.0},
        {" \t7.25\r\n", 7.25},
        {".5", 0.5},
        {"5.", 5.0},
        {"1E-2", 0.01},
        {"-0", -0.0},
        {"5e-324", 5e-324},
        {"1e-400", 0.0},
        {"-1e-400", -0.0},
        {"0.00001e-99999999999999999999", 0.0},
        {"1e400", {}},
        {"1e99999999999999999999", {}},
        {"", {}},
        {"   ", {}},
        {"+", {}},
        {"-", {}},
        {"+-1", {}},
        {"++1", {}},
        {"- 1", {}},
        {"1,5", {}},
        {"1.5 dB", {}},
        {"1.5x", {}},
        {"1e", {}},
        {"1 2", {}},
        {"0x10", {}},
        {"inf", {}},
        {"-infinity", {}},
        {"nan", {}},
        {std::string_view("1\0", 2), {}},
        {"\xE2\x88\x92"  // a minus sign, but not the one of ASCII
         "1",
         {}},
    };
    for (const auto& row : rows) {
        for (const auto& value : {StringToNumber(row.text), StringToNumber(FromUtf8(row.text))}) {
            ASSERT_EQ(value, row.value) << row.text;
            EXPECT_EQ(std::signbit(value.value_or(0.0)), std::signbit(row.value.value_or(0.0)));
        }
    }
    // The range counts for the number as a whole, not for its digits alone.
    const std::string zeros(400, '0');
    EXPECT_EQ(StringToNumber("1" + zeros + "e-400"), 1.0);
    EXPECT_EQ(StringToNumber("1" + zeros + "e-800"), 0.0);
    EXPECT_EQ(StringToNumber("1" + zeros), std::nullopt);
    EXPECT_EQ(StringToNumber("1" + zeros + "e-10"), std::nullopt);
    EXPECT_EQ(StringToNumber("0." + zeros + "1"), 0.0);
    EXPECT_EQ(StringToNumber("0." + zeros + "1e+800"), std::nullopt);
}

TEST(Numbers, AllDigitsReadBackBitForBit) {
    std::mt19937_64 random(20240611);
    for (int i = 0; i < 5000; ++i) {
        const double value = std::bit_cast<double>(random());
        if (!std::isfinite(value) || value == 0.0) continue;
        ASSERT_EQ(StringToNumber(NumberToString(value, 0, 1074, {}, 2000)), value);
    }
}

TEST(Numbers, NoLocaleMatters) {
    const CommaLocale locale;
    if (!locale.IsInForce()) GTEST_SKIP() << "no locale with a decimal comma is installed";
    EXPECT_EQ(Text(-1234.5, 2, 2), "-1234.50");
    EXPECT_EQ(StringToNumber("-1234.5"), -1234.5);
    EXPECT_EQ(StringToNumber("-1234,5"), std::nullopt);
}

}  // namespace
}  // namespace kracore::utility
