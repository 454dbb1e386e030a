#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

#include "Components/Catalogue.h"
#include "Components/Library.h"
#include "host/Conformance.h"
#include "kracore/Localizer.h"
#include "kracore/WStr.h"
#include "rtguard/RealTimeGuard.h"

namespace zuc {
namespace {

host::ConformanceOptions Options() {
    host::ConformanceOptions options;
    options.probe = host::FindRealTimeProbe();
    EXPECT_EQ(options.probe.IsActive(), rtguard::IsActive());
    return options;
}

class Conformance : public testing::TestWithParam<std::tuple<std::size_t, std::size_t>> {
protected:
    void SetUp() override { Initialize(); }
    void TearDown() override { Terminate(); }
};

TEST_P(Conformance, EffectKeepsThePromise) {
    const auto& effect = components::GetCatalogue()[std::get<0>(GetParam())];
    const auto& check = host::GetConformanceChecks()[std::get<1>(GetParam())];
    const auto options = Options();
    if (const auto reason = host::GetConformanceException(effect, check.name, options);
        !reason.empty())
        GTEST_SKIP() << reason;
    for (const auto& finding : host::RunConformanceCheck(effect, check.name, options))
        ADD_FAILURE() << finding.effect << ", " << finding.check << ": " << finding.detail;
}

std::string NameOf(const testing::TestParamInfo<std::tuple<std::size_t, std::size_t>>& info) {
    const auto& effect = components::GetCatalogue()[std::get<0>(info.param)];
    std::string name = std::string(kracore::config::GetKeyName(effect.titleKey)) + "_" +
                       std::string(host::GetConformanceChecks()[std::get<1>(info.param)].name);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

/// Those that suit every test run.
std::vector<std::size_t> GetShortChecks() {
    constexpr int kHighestLevel = 5;
    std::vector<std::size_t> places;
    const auto checks = host::GetConformanceChecks();
    for (std::size_t i = 0; i < checks.size(); ++i)
        if (checks[i].level <= kHighestLevel) places.push_back(i);
    return places;
}

INSTANTIATE_TEST_SUITE_P(
    Catalogue,
    Conformance,
    testing::Combine(testing::Range<std::size_t>(0, components::GetCatalogue().size()),
                     testing::ValuesIn(GetShortChecks())),
    NameOf);

}  // namespace
}  // namespace zuc
