#include "kracore/PropList.h"

#include <array>
#include <bit>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/kracore/CommaLocale.h"

namespace kracore::proplist {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

std::string NamesOf(const PropList& list) {
    std::string names;
    for (const auto& [key, value] : list.GetEntries()) names += key + ",";
    return names;
}

TEST(PropList, KeepsOrderAndTypes) {
    PropList list;
    list.Set("b", 1);
    list.Set("a", 2.0f);
    list.Set("c", u"text");
    list.Set("b", true);
    EXPECT_EQ(NamesOf(list), "b,a,c,");
    EXPECT_TRUE(*list.Find<bool>("b"));
    EXPECT_EQ(list.Find<std::int64_t>("b"), nullptr);
    EXPECT_EQ(list.Find<double>("a"), nullptr);
    list.Remove("a");
    list.Remove("nothing");
    list.Set("a", 3);
    EXPECT_EQ(NamesOf(list), "b,c,a,");
    EXPECT_THROW(list.Set("\xFF", 1), std::invalid_argument);

    PropList outer;
    outer.Set("child", list);
    const PropList copy = outer;
    outer.Set("child", PropList());
    EXPECT_EQ(*copy.FindList("child"), list);
    EXPECT_EQ(copy.FindList("nothing"), nullptr);

    Ratio64 ratio{7, 8};
    EXPECT_FALSE(utils::ReadRatio64(list, "a", ratio));
    EXPECT_EQ(ratio, (Ratio64{7, 8}));
    utils::WriteRatio64(list, "a", {2, -4});
    EXPECT_TRUE(utils::ReadRatio64(list, "a", ratio));
    EXPECT_EQ(ratio, (Ratio64{2, -4}));
}

TEST(PropList, EqualMeansSameTypeBitsAndOrder) {
    const double otherNan = std::bit_cast<double>(std::bit_cast<std::uint64_t>(kNan) ^ 1);
    const Value different[] = {0.0,
                               -0.0,
                               0.0f,
                               -0.0f,
                               0,
                               false,
                               kNan,
                               otherNan,
                               u"",
                               Bytes{},
                               std::vector<float>{},
                               std::vector<float>{0.0f},
                               PropList(),
                               std::vector<float>{-0.0f},
                               Ratio64{0, 1},
                               Ratio64{0, 2}};
    for (const Value& left : different)
        for (const Value& right : different) EXPECT_EQ(left == right, &left == &right);
    PropList one, other;
    one.Set("a", 1);
    one.Set("b", 2);
    other.Set("b", 2);
    other.Set("a", 1);
    EXPECT_NE(one, other);
}

TEST(PropListJson, Writes) {
    PropList child;
    child.Set("$x", PropList());
    const struct {
        Value value;
        std::string_view json;
    } rows[] = {
        {true, "true"},
        {-5, "-5"},
        {1.0, "1.0"},
        {-0.0, "-0.0"},
        {1e22, "1e+22"},
        {0.1, "0.1"},
        {kNan, R"({"$double":"7ff8000000000000"})"},
        {0.1f, R"({"$float":0.1})"},
        {-std::numeric_limits<float>::infinity(), R"({"$float":"ff800000"})"},
        {Ratio64{2, -4}, R"({"$ratio":"2/-4"})"},
        {u"\"\\\n\u00E9\U0001F600", "\"\\\"\\\\\\n\xC3\xA9\xF0\x9F\x98\x80\""},
        {WStr{u'a', 0xD800}, R"({"$utf16":[97,55296]})"},
        {Bytes{0, 1, 2, 255}, R"({"$bytes":"AAEC/w=="})"},
        {std::vector<float>{1.0f, -0.0f}, R"({"$floats":[1.0,-0.0]})"},
        {child, R"({"$$x":{}})"},
    };
    for (const auto& row : rows) {
        PropList list;
        list.Set("k", row.value);
        const std::string json = "{\"k\":" + std::string(row.json) + "}";
        EXPECT_EQ(ToJson(list), json);
        EXPECT_EQ(FromJson(json), list) << json;
    }
}

TEST(PropListJson, ReadsWhatPeopleWrite) {
    const struct {
        std::string_view json;
        Value value;
    } rows[] = {
        {R"( {"k" : 7 } )", 7},
        {R"({"k":9223372036854775807})", std::numeric_limits<std::int64_t>::max()},
        {R"({"k":-9223372036854775808})", std::numeric_limits<std::int64_t>::min()},
        {R"({"k":1E2})", 100.0},
        {R"({"k":-1e-400})", -0.0},
        {R"({"k":4.9406564584124654e-324})", 5e-324},
        {R"({"k":{"$float":3}})", 3.0f},
        {R"({"k":{"$float":-1e-60}})", -0.0f},
        // between two floats, above the middle by less than a double can tell
        {R"({"k":{"$float":1.000000059604644775390626}})", 1.00000011920928955f},
        {R"({"k":{"$floats":[]}})", std::vector<float>{}},
        {R"({"k":{"$utf16":[]}})", u""},
        {R"({"k":"\ud83d\ude00"})", u"\U0001F600"},
    };
    for (const auto& row : rows) EXPECT_EQ(*FromJson(row.json).Find("k"), row.value) << row.json;
}

TEST(PropListJson, RefusesAndNamesThePlace) {
    const struct {
        std::string_view json, place, reason;
    } rows[] = {
        {"", "byte 0", "end of input"},
        {"{", "byte 1", "expected string literal"},
        {"{} x", "byte 4", "expected end of input"},
        {"{\"a\":1,}", "byte 8", "expected string literal"},
        {"{\"a\":01}", "byte 8", "expected '}'"},
        {"{\"a\":\"\xC0\xAF\"}", "at a", "ill-formed UTF-8"},
        {R"({"a":"\ud800"})", "at a", "surrogate"},
        {R"({"a":1e999})", "at a", "overflow"},
        {"7", "byte 1", "expected an object"},
        {"[]", "byte 1", "expected no array"},
        {R"({"a":{"b":null}})", "byte 14, at a/b", "null"},
        {R"({"a":{"b":[1]}})", "at a/b", "expected no array"},
        {R"({"a":1,"b":{},"a":2})", "byte 17, at a", "twice"},
        {R"({"$$a":1,"$$a":2})", "at $a", "twice"},
        {R"({"a":9223372036854775808})", "at a", "64 bits"},
        {R"({"a":-9223372036854775809})", "at a", "64 bits"},
        {R"({"a":99999999999999999999999})", "at a", "64 bits"},
        {R"({"$float":1})", "at $float", "\"$$\""},
        {R"({"a":{"$strange":1}})", "at a/$strange", "\"$$\""},
        {R"({"a":{"b":1,"$float":1}})", "at a/$float", "\"$$\""},
        {R"({"a":{"$float":1,"b":1}})", "at a/b", "no second key"},
        {R"({"a":{"$float":1e39}})", "at a/$float", "range of a float"},
        {R"({"a":{"$float":"7fc0000"}})", "at a/$float", "8 hexadecimal"},
        {R"({"a":{"$float":true}})", "at a/$float", "8 hexadecimal"},
        {R"({"a":{"$float":{}}})", "at a/$float", "8 hexadecimal"},
        {R"({"a":{"$float":[1]}})", "at a/$float", "8 hexadecimal"},
        {R"({"a":{"$double":"-ff0000000000000"}})", "at a/$double", "16 hexadecimal"},
        {R"({"a":{"$double":1.5}})", "at a/$double", "16 hexadecimal"},
        {R"({"a":{"$ratio":"1"}})", "at a/$ratio", "numerator"},
        {R"({"a":{"$ratio":"1/2/3"}})", "at a/$ratio", "numerator"},
        {R"({"a":{"$ratio":"1/9223372036854775808"}})", "at a/$ratio", "64 bits"},
        {R"({"a":{"$bytes":"AAE"}})", "at a/$bytes", "base64"},
        {R"({"a":{"$bytes":"AB=="}})", "at a/$bytes", "base64"},
        {R"({"a":{"$bytes":"===="}})", "at a/$bytes", "base64"},
        {R"({"a":{"$floats":1}})", "at a/$floats", "an array"},
        {R"({"a":{"$floats":[[1]]}})", "at a/$floats", "an array"},
        {R"({"a":{"$floats":[1,false]}})", "at a/$floats", "an array"},
        {R"({"a":{"$utf16":[65536]}})", "at a/$utf16", "65535"},
        {R"({"a":{"$utf16":[-1]}})", "at a/$utf16", "65535"},
        {R"({"a":{"$utf16":[1.0]}})", "at a/$utf16", "65535"},
    };
    for (const auto& row : rows) {
        try {
            FromJson(row.json);
            ADD_FAILURE() << "was read: " << row.json;
        } catch (const ParseError& error) {
            const std::string_view what = error.what();
            EXPECT_NE(what.find(row.place), what.npos) << row.json << "\n" << what;
            EXPECT_NE(what.find(row.reason), what.npos) << row.json << "\n" << what;
        }
    }
    // A long token is no reason for a long message.
    try {
        FromJson("{\"a\":\"" + std::string(100'000, 'x'));
    } catch (const ParseError& error) {
        EXPECT_LT(std::string_view(error.what()).size(), 400u);
    }
}

TEST(PropListJson, Limits) {
    const std::string json = R"({"a":{"b":{"c":{"$float":1}}},"d":{"$floats":[1,2,3]}})";
    const struct {
        ReadLimits limits;
        bool isRead = false;
    } rows[] = {
        {{.bytes = json.size(), .depth = 3, .entries = 7}, true},
        {{.bytes = json.size() - 1, .depth = 3, .entries = 7}, false},
        {{.bytes = json.size(), .depth = 2, .entries = 7}, false},
        {{.bytes = json.size(), .depth = 3, .entries = 6}, false},
    };
    for (const auto& row : rows) {
        if (row.isRead) {
            EXPECT_NO_THROW(FromJson(json, row.limits));
        } else {
            EXPECT_THROW(FromJson(json, row.limits), ParseError);
        }
    }
    // Refused while reading: neither nesting nor repetition may cost more than the limit allows.
    std::string deep, wide = "{\"k\":{\"$floats\":[0";
    for (int i = 0; i < 1'000'000; ++i) deep += "{\"\":";
    for (int i = 0; i < 1'000'000; ++i) wide += ",0";
    EXPECT_THROW(FromJson(deep), ParseError);
    EXPECT_THROW(FromJson(wide + "]}}"), ParseError);
}

TEST(PropListJson, NoLocaleMatters) {
    const CommaLocale locale;
    if (!locale.IsInForce()) GTEST_SKIP() << "no locale with a decimal comma is installed";
    PropList list;
    list.Set("double", -1.25e-7);
    list.Set("floats", std::vector<float>{0.5f, -1e-45f});
    const std::string json = ToJson(list);
    EXPECT_EQ(json, R"({"double":-1.25e-07,"floats":{"$floats":[0.5,-1e-45]}})");
    EXPECT_EQ(FromJson(json), list);
}

/// Trees of every type, with values that are hard to write down.
class RandomTree {
public:
    explicit RandomTree(unsigned seed) : random_(seed) {}

    PropList Make(int depth) {
        PropList list;
        for (std::size_t i = Below(9); i > 0; --i) list.Set(Key(), MakeValue(depth));
        return list;
    }

private:
    std::size_t Below(std::size_t end) { return random_() % end; }

    double Double() {
        constexpr std::array kHard{
            0.0,   -0.0, 1.0,  1e22, 5e-324, 2.2250738585072011e-308, 0.1, 9007199254740993.0,
            1e300, kNan, -kNan};
        return Below(2) ? kHard[Below(kHard.size())] : std::bit_cast<double>(random_());
    }
    float Float() {
        return Below(2) ? static_cast<float>(Below(100)) / 10.0f
                        : std::bit_cast<float>(static_cast<std::uint32_t>(random_()));
    }
    std::string Key() {
        constexpr std::array kKeys{"", "$", "$$", "$float", "/", "\"\\\n", "\xC3\xA9", "Gain"};
        return kKeys[Below(kKeys.size())] + (Below(2) ? std::to_string(Below(20)) : "");
    }
    WStr Text() {
        constexpr std::u16string_view kUnits = u"aé\"\\\n\0$\uFFFD\uFFFF\U0001F600";
        WStr text;
        for (std::size_t i = Below(12); i > 0; --i) text += kUnits[Below(kUnits.size())];
        return text;
    }
    Value MakeValue(int depth) {
        switch (Below(depth > 0 ? 9 : 8)) {
            case 0:
                return Below(2) == 0;
            case 1:
                return static_cast<std::int64_t>(random_());
            case 2:
                return Float();
            case 3:
                return Double();
            case 4:
                return Ratio64{static_cast<std::int64_t>(random_()), -3};
            case 5:
                return Text();
            case 6:
                return Bytes(Below(8), static_cast<std::uint8_t>(random_()));
            case 7:
                return std::vector<float>(Below(5), Float());
            default:
                return Make(depth - 1);
        }
    }

    std::mt19937_64 random_;
};

TEST(PropListJson, RandomTreesReadBackBitForBit) {
    for (unsigned seed = 0; seed < 2000; ++seed) {
        const PropList list = RandomTree(seed).Make(4);
        const std::string json = ToJson(list);
        ASSERT_EQ(FromJson(json), list) << json;
        ASSERT_EQ(ToJson(FromJson(json)), json);
    }
}

}  // namespace
}  // namespace kracore::proplist
