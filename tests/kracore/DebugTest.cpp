#include "kracore/Debug.h"

#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace kracore::debug {
namespace {

TEST(Debug, AssertionsReachTheHandler) {
    std::vector<std::string> seen;
    const AssertionHandler before = SetAssertionHandler([&](const AssertionFailure& failure) {
        seen.push_back(std::string(failure.condition) + "|" + std::string(failure.message) + "|" +
                       std::to_string(failure.line));
        SetAssertionHandler(SetAssertionHandler({}));  // a handler may do so
    });
    EXPECT_TRUE(Assert(true, "fine"));
    const unsigned line = __LINE__ + 1;
    EXPECT_FALSE(Assert(false, "n > 0", "no channels"));
    BreakAfterAssertDialog({"failCount > 0", "dangling", "Components/private/File", 170});
    SetAssertionHandler(before);
    EXPECT_EQ(seen, (std::vector<std::string>{"n > 0|no channels|" + std::to_string(line),
                                              "failCount > 0|dangling|170"}));
}

TEST(Debug, DefaultHandlerPrintsThePlace) {
    const AssertionHandler before = SetAssertionHandler({});
    const AssertionFailure failure{"n > 0", "no channels", "File.cpp", 7};
    constexpr const char* kText = "File\\.cpp:7: assertion 'n > 0' failed: no channels";
#ifdef NDEBUG
    testing::internal::CaptureStderr();
    BreakAfterAssertDialog(failure);
    EXPECT_TRUE(std::regex_search(testing::internal::GetCapturedStderr(), std::regex(kText)));
#else
    EXPECT_DEATH(BreakAfterAssertDialog(failure), kText);
#endif
    SetAssertionHandler(before);
}

TEST(Debug, TraceReachesTheReceiver) {
    std::string seen;
    const TraceHandler before =
        SetTraceHandler([&](std::string_view category, int level, std::string_view text) {
            seen.append(category).append(std::to_string(level)).append(text);
        });
    Trace("MusicRetargeting", 2, " 14 beats");
    SetTraceHandler({});
    Trace("MusicRetargeting", 2, " lost");
    SetTraceHandler(before);
    EXPECT_EQ(seen, "MusicRetargeting2 14 beats");
}

}  // namespace
}  // namespace kracore::debug
