#include "kracore/Localizer.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace kracore::config {
namespace {

class LocalizerTest : public testing::Test {
protected:
    void TearDown() override { Localizer::SetDictionary({}); }
};

TEST_F(LocalizerTest, Keys) {
    const struct {
        std::string_view key, path, name, text, translated;
    } rows[] = {
        {"$$$/Effects/Echo/Gain=Gain", "Effects/Echo/Gain", "Gain", "Gain", "Verst\xC3\xA4rkung"},
        {"$$$/Effects/Echo/Other=a=b", "Effects/Echo/Other", "Other", "a=b", "a=b"},
        {"$$$/Effects/Echo/Empty=", "Effects/Echo/Empty", "Empty", "", ""},
        {"$$$/NoText", "NoText", "NoText", "NoText", "nichts"},
        {"$$$/", "", "", "", ""},
        {"Gain", "", "", "Gain", "Gain"},
        {"$$/Gain=Gain", "", "", "$$/Gain=Gain", "$$/Gain=Gain"},
        {"", "", "", "", ""},
    };
    for (const bool translated : {false, true}) {
        for (const auto& row : rows) {
            const WStr key = utility::FromUtf8(row.key);
            const std::string_view expected = translated ? row.translated : row.text;
            EXPECT_EQ(utility::ToUtf8(Localizer::Localize(row.key)), expected) << row.key;
            EXPECT_EQ(utility::ToUtf8(Localizer::Localize(key)), expected) << row.key;
            EXPECT_EQ(GetKeyPath(row.key), row.path);
            EXPECT_EQ(GetKeyName(row.key), row.name);
        }
        Localizer::SetDictionary(Localizer::ParseDictionary(
            R"({"Effects/Echo/Gain": "Verst\u00e4rkung", "NoText": "nichts", "Gain": "falsch"})"));
    }
}

TEST_F(LocalizerTest, RefusedDictionaryLeavesTheOneInForce) {
    Localizer::SetDictionary({{"a", "b"}});
    for (const std::string_view json :
         {"", "[]", "{\"x\": 1}", "{\"x\": {}}", "{\"x\": \"1\", \"x\": \"2\"}", "{} {}"})
        EXPECT_THROW(Localizer::SetDictionary(Localizer::ParseDictionary(json)),
                     std::invalid_argument)
            << json;
    try {
        Localizer::ParseDictionary(R"({"Effects/Gain": 3})");
        ADD_FAILURE() << "a number was read";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string_view(error.what()).find("Effects/Gain"), std::string_view::npos);
    }
    EXPECT_EQ(Localizer::Localize("$$$/a=c"), u"b");
}

}  // namespace
}  // namespace kracore::config
