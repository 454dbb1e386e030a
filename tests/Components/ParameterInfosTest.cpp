#include "Components/ParameterInfos.h"

#include <gtest/gtest.h>

#include <cmath>

#include "kracore/WStr.h"

namespace zuc::components {
namespace {

using kracore::utility::ToUtf8;

boost::intrusive_ptr<GenericParameterInfo> MakeGeneric(float lo,
                                                       float hi,
                                                       bool logarithmic = false,
                                                       std::size_t decimals = 0) {
    return new GenericParameterInfo(u"Name", u"Hz", AudioFilterParameterInfoUnit::kHertz, 7, lo, hi,
                                    true, logarithmic, decimals, 6);
}

TEST(GenericParameterInfo, MapsWithoutClamping) {
    const auto linear = MakeGeneric(0, 100);
    EXPECT_EQ(linear->ToNormalized(25), 0.25f);
    EXPECT_EQ(linear->FromNormalized(0.25f), 25.0f);
    EXPECT_EQ(linear->FromNormalized(1.5f), 150.0f);
    linear->SetLoBound(50);
    linear->SetHiBound(150);
    EXPECT_EQ(linear->FromNormalized(0.5f), 100.0f);

    const auto logarithmic = MakeGeneric(20, std::log(1000.0f), true);
    EXPECT_NEAR(logarithmic->FromNormalized(1), 20000.0f, 0.02f);
    EXPECT_EQ(logarithmic->ToNormalized(20), 0.0f);
    EXPECT_EQ(logarithmic->GetHiBound(), std::log(1000.0f)) << "the bound is the span, not the top";
}

TEST(GenericParameterInfo, ShowsFewerDecimalsForLargerValues) {
    const struct {
        float value;
        std::size_t decimals;
        const char* text;
    } rows[] = {{150.0f, 0, "150"},   {150.4f, 1, "150.4"},    {100.0f, 0, "100"},
                {99.96f, 0, "100"},   {12.346f, 0, "12.3"},    {10.0f, 0, "10"},
                {1.2345f, 0, "1.23"}, {1.0f, 0, "1"},          {0.98765f, 0, "0.988"},
                {0.1f, 0, "0.1"},     {0.05128f, 0, "0.0513"}, {-150.7f, 0, "-151"},
                {0.0f, 1, "0.0"},     {-0.00001f, 0, "0"}};
    for (const auto& row : rows) {
        const auto info = MakeGeneric(0, 1, false, row.decimals);
        EXPECT_EQ(ToUtf8(info->GetParameterString(row.value)), row.text) << row.value;
    }
}

TEST(GenericParameterInfo, IsHiddenWhenItCannotBeAutomated) {
    const GenericParameterInfo info(u"Name", u"", AudioFilterParameterInfoUnit::kGeneric, 0, 0, 1,
                                    false, false, 1, 2);
    EXPECT_FALSE(info.CanBeAutomated());
    EXPECT_FALSE(info.IsExposed());
    EXPECT_TRUE(MakeGeneric(0, 1)->IsExposed());
}

TEST(BoolParameterInfo, ReadsOnAboveTheMiddle) {
    const BoolParameterInfo info(u"Name", u"", u"On", u"Off", true);
    EXPECT_EQ(ToUtf8(info.GetParameterString(0.5f)), "Off");
    EXPECT_EQ(ToUtf8(info.GetParameterString(0.51f)), "On");
    EXPECT_EQ(info.ToNormalized(0.3f), 0.3f);
    EXPECT_EQ(info.GetUnit(), AudioFilterParameterInfoUnit::kBoolean);
    EXPECT_EQ(info.GetStepCount(), 2);
}

TEST(EnumParameterInfo, TakesKeysForTextAndKeepsFractions) {
    const EnumParameterInfo info(u"Name", u"", {{0, u"A"}, {1, u"B"}, {2, u"C"}}, true);
    EXPECT_EQ(info.FromNormalized(0.5f), 1.0f);
    EXPECT_EQ(info.FromNormalized(0.3f), 0.6f);
    EXPECT_EQ(info.ToNormalized(2), 1.0f);
    EXPECT_EQ(info.GetStepCount(), 3);
    EXPECT_FALSE(info.CanRamp());
    const struct {
        float value;
        const char* text;
    } rows[] = {{1.49f, "B"}, {1.5f, "C"}, {7, ""},    {-0.4f, "A"},
                {-0.6f, "A"}, {-2, ""},    {1e20f, ""}};
    for (const auto& row : rows)
        EXPECT_EQ(ToUtf8(info.GetParameterString(row.value)), row.text) << row.value;

    const EnumParameterInfo single(u"Name", u"", {{5, u"Only"}}, true);
    EXPECT_EQ(single.FromNormalized(0.3f), 0.3f);
    EXPECT_EQ(single.ToNormalized(0.3f), 0.3f);
}

TEST(MusicalParameterInfos, NameKeysAndScales) {
    const KeyParameterInfo key(u"Key", u"", AudioFilterParameterInfoUnit::kGeneric, 0, 0, 11, true,
                               false, 0, 0);
    const struct {
        float normalized;
        const char* text;
    } keys[] = {{0, "D"},  {1.0f / 11, "C#"}, {2.0f / 11, "C"}, {3.0f / 11, "B"},
                {1, "D#"}, {9, "D#"},         {-3, "D"}};
    for (const auto& row : keys)
        EXPECT_EQ(ToUtf8(key.GetParameterString(row.normalized)), row.text);

    const ScaleParameterInfo scale(u"Scale", u"", AudioFilterParameterInfoUnit::kGeneric, 0, 0, 2,
                                   true, false, 0, 0);
    const struct {
        float normalized;
        const char* text;
    } scales[] = {
        {0, "Major"}, {0.33f, "Major"}, {0.5f, "Minor"}, {0.7f, "Chromatic"}, {-1, "Chromatic"}};
    for (const auto& row : scales)
        EXPECT_EQ(ToUtf8(scale.GetParameterString(row.normalized)), row.text);
}

}  // namespace
}  // namespace zuc::components
