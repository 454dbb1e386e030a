#include "kracore/Executor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "kracore/DebugMonitor.h"
#include "kracore/Gate.h"

namespace kracore::threads {
namespace {

using std::chrono::milliseconds;

TEST(Gate, LetsEveryoneThroughWhileOpen) {
    Gate gate;
    EXPECT_FALSE(gate.WaitFor(milliseconds(1)));
    std::atomic<int> through{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            gate.Wait();
            ++through;
        });
    gate.Open();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(through, 4);
    EXPECT_TRUE(gate.WaitFor(milliseconds(0)));
    gate.Close();
    EXPECT_FALSE(gate.IsOpen());
    EXPECT_FALSE(gate.WaitFor(milliseconds(1)));
}

TEST(AsyncExecutor, GrowsSoThatNoJobWaitsForAnother) {
    AsyncExecutor executor;
    Gate release;
    std::atomic<int> started{0};
    constexpr int kJobs = 40;
    for (int i = 0; i < kJobs; ++i)
        executor.AsyncCall([&] {
            ++started;
            release.Wait();
        });
    for (int i = 0; i < 5000 && started < kJobs; ++i) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_EQ(started, kJobs) << "jobs that wait for each other must all run";
    release.Open();
    for (int i = 0; i < 100; ++i) executor.AsyncCall([&] { ++started; });
    executor.Terminate();
    EXPECT_EQ(started, kJobs + 100) << "posted jobs end before the executor does";
    EXPECT_TRUE(executor.IsTerminated());
    executor.AsyncCall([&] { ++started; });
    executor.Terminate();
    EXPECT_EQ(started, kJobs + 100);
}

TEST(AsyncExecutor, UsesIdleThreadsAgain) {
    AsyncExecutor executor;
    for (int i = 0; i < 50; ++i) {
        Gate done;
        executor.AsyncCall([&] { done.Open(); });
        done.Wait();
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_LT(executor.GetThreadCount(), 10u);
}

TEST(ExecuteOnAllProcessors, RunsEveryIndexOnceAndReturnsAfterAll) {
    for (const int count : {0, 1, 2, 3, 7, 32, 1000}) {
        std::vector<std::atomic<int>> calls(static_cast<std::size_t>(count));
        ExecuteCPUBoundTaskOnAllProcessors(
            [&](int i) {
                calls[static_cast<std::size_t>(i)].fetch_add(1, std::memory_order_relaxed);
            },
            count);
        for (const auto& n : calls) EXPECT_EQ(n, 1) << count;
    }
}

TEST(ExecuteOnAllProcessors, NestsAndServesSeveralCallers) {
    std::atomic<int> total{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t)
        callers.emplace_back([&] {
            for (int k = 0; k < 50; ++k)
                ExecuteCPUBoundTaskOnAllProcessors(
                    [&](int) { ExecuteCPUBoundTaskOnAllProcessors([&](int) { ++total; }, 3); }, 4);
        });
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(total, 4 * 50 * 4 * 3);
}

TEST(DebugMonitor, ReadsWhatIsRegistered) {
    using namespace kracore::debug;
    RegisterDebugMonitorCallback(u"test.a", [](UTF16StringStream& out) { out << u"Old: " << 1; });
    RegisterDebugMonitorCallback(u"test.a", [](UTF16StringStream& out) { out << u"New: " << -2; });
    EXPECT_EQ(ReadDebugMonitor(u"test.a"), WStr(u"New: -2"));
    UnregisterDebugMonitorCallback(u"test.a");
    EXPECT_TRUE(ReadDebugMonitor(u"test.a").empty());
}

}  // namespace
}  // namespace kracore::threads
