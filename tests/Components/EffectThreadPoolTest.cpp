#include "Components/EffectThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Components/Library.h"
#include "kracore/Debug.h"
#include "kracore/DebugMonitor.h"
#include "kracore/Gate.h"
#include "kracore/WStr.h"

namespace zuc::components {
namespace {

using kracore::threads::Gate;
using std::chrono::milliseconds;

class Counter final : public SchedulableEffect {
public:
    explicit Counter(std::function<void()> work = {}) : work_(std::move(work)) {}
    ~Counter() { calls = -1000000; }
    void ScheduledFunction() override {
        if (work_) work_();
        ++calls;
    }
    std::atomic<int> calls{0};

private:
    std::function<void()> work_;
};

bool Eventually(const std::function<bool()>& holds) {
    for (int i = 0; i < 5000; ++i) {
        if (holds()) return true;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return false;
}

std::string Monitor(const char16_t* channel) {
    return kracore::utility::ToUtf8(kracore::debug::ReadDebugMonitor(channel));
}

class EffectThreadPoolTest : public testing::Test {
protected:
    void SetUp() override {
        Initialize();
        previous_ = kracore::debug::SetAssertionHandler(
            [this](const auto& failure) { assertions_.emplace_back(failure.message); });
    }
    void TearDown() override {
        Terminate();
        kracore::debug::SetAssertionHandler(previous_);
    }
    std::string Pool() const { return Monitor(u"zuc.components.EffectThreadPool"); }

    std::vector<std::string> assertions_;
    kracore::debug::AssertionHandler previous_;
};

TEST_F(EffectThreadPoolTest, KeepsOneWorkerForEachStartedGroupOf24) {
    std::vector<std::unique_ptr<Counter>> effects;
    const auto threads = [&](const char* count) {
        return Eventually(
            [&] { return Pool().starts_with(std::string("Thread Count: ") + count + "\n"); });
    };
    EXPECT_TRUE(Pool().starts_with("Thread Count: 0\n"));
    for (int i = 1; i <= 49; ++i) {
        effects.push_back(std::make_unique<Counter>());
        EffectThreadPool::SubscribeEffect(effects.back().get());
        if (i == 1 || i == 24) {
            EXPECT_TRUE(threads("1")) << i;
        }
        if (i == 25 || i == 48) {
            EXPECT_TRUE(threads("2")) << i;
        }
    }
    EXPECT_TRUE(threads("3"));
    EXPECT_NE(Pool().find("Subscribed Effects: 49\n"), std::string::npos);
    while (!effects.empty()) {
        EffectThreadPool::UnsubscribeEffect(effects.back().get());
        effects.pop_back();
        if (effects.size() == 48) {
            EXPECT_TRUE(threads("2"));
        }
        if (effects.size() == 24) {
            EXPECT_TRUE(threads("1"));
        }
    }
    EXPECT_TRUE(threads("0"));
    EXPECT_EQ(Monitor(u"zuc.components.EffectThreadQueue").find("Terminated: False\n") ==
                  std::string::npos,
              false);
    EXPECT_TRUE(assertions_.empty());
}

TEST_F(EffectThreadPoolTest, RunsWhatIsScheduledAndSkipsWhatUnsubscribed) {
    Gate entered;
    Gate release;
    Counter blocker([&] {
        entered.Open();
        release.Wait();
    });
    Counter waiting;
    EffectThreadPool::SubscribeEffect(&blocker);
    EffectThreadPool::SubscribeEffect(&waiting);
    EffectThreadPool::ScheduleEffect(&waiting);
    ASSERT_TRUE(Eventually([&] { return waiting.calls == 1; }));

    EffectThreadPool::ScheduleEffect(&blocker);
    entered.Wait();
    EffectThreadPool::ScheduleEffect(&waiting);  // stays queued: the one worker is busy
    std::thread unsubscriber([&] { EffectThreadPool::UnsubscribeEffect(&waiting); });
    std::this_thread::sleep_for(milliseconds(20));
    release.Open();
    unsubscriber.join();
    EffectThreadPool::UnsubscribeEffect(&blocker);
    EXPECT_EQ(blocker.calls, 1);
    EXPECT_LE(waiting.calls, 2) << "at most once more, before the unsubscription got its turn";
    EXPECT_TRUE(assertions_.empty());
}

TEST_F(EffectThreadPoolTest, AnUnsubscriberWaitsForItsRunningFunction) {
    Gate entered;
    Gate release;
    Counter effect([&] {
        entered.Open();
        release.Wait();
    });
    EffectThreadPool::SubscribeEffect(&effect);
    EffectThreadPool::ScheduleEffect(&effect);
    entered.Wait();
    std::atomic<bool> hasLeft{false};
    std::thread unsubscriber([&] {
        EffectThreadPool::UnsubscribeEffect(&effect);
        EXPECT_EQ(effect.calls, 1) << "the function has ended";
        hasLeft = true;
    });
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_FALSE(hasLeft);
    release.Open();
    unsubscriber.join();
    EXPECT_TRUE(assertions_.empty()) << "to wait is no fault";
}

TEST_F(EffectThreadPoolTest, StatisticsFollowTheWorkersAndNotTheWish) {
    bool hasLagged = false;  // seen unless the worker looks just when it is told to leave
    for (int attempt = 0; attempt < 20 && !hasLagged; ++attempt) {
        std::vector<Counter> effects(3);
        for (Counter& effect : effects) EffectThreadPool::SubscribeEffect(&effect);
        EXPECT_TRUE(Eventually(
            [&] { return Pool().starts_with("Thread Count: 1\nSubscribed Effects: 3\n"); }));
        for (Counter& effect : effects) EffectThreadPool::UnsubscribeEffect(&effect);
        hasLagged = Pool().starts_with("Thread Count: 1\nSubscribed Effects: 0\n");
        EXPECT_TRUE(Eventually([&] { return Pool().starts_with("Thread Count: 0\n"); }));
    }
    EXPECT_TRUE(hasLagged);
}

TEST_F(EffectThreadPoolTest, AStaleEntryIsSkippedUntilItsEffectSubscribesAgain) {
    Counter keeper;  // keeps the worker alive
    EffectThreadPool::SubscribeEffect(&keeper);
    Counter effect;
    EffectThreadPool::SubscribeEffect(&effect);
    EffectThreadPool::UnsubscribeEffect(&effect);
    EffectThreadPool::ScheduleEffect(&effect);
    EffectThreadPool::ScheduleEffect(&keeper);
    ASSERT_TRUE(Eventually([&] { return keeper.calls == 1; }));
    EffectThreadPool::SubscribeEffect(&effect);
    EffectThreadPool::ScheduleEffect(&effect);
    EXPECT_TRUE(Eventually([&] { return effect.calls >= 1; }));
    EffectThreadPool::UnsubscribeEffect(&effect);
    EffectThreadPool::UnsubscribeEffect(&keeper);
}

TEST_F(EffectThreadPoolTest, ReportsAnEntryThatStaysInFlight) {
    // An effect that unsubscribes from inside its own function waits for an entry that cannot leave.
    struct SelfUnsubscriber final : SchedulableEffect {
        void ScheduledFunction() override {
            EffectThreadPool::UnsubscribeEffect(this);
            ++calls;
        }
        std::atomic<int> calls{0};
    } effect;
    for (const bool isReported : {true, false}) {
        EffectThreadPool::SetDanglingAssertion(isReported);
        assertions_.clear();
        const int before = effect.calls;
        const auto start = std::chrono::steady_clock::now();
        EffectThreadPool::SubscribeEffect(&effect);
        EffectThreadPool::ScheduleEffect(&effect);
        ASSERT_TRUE(Eventually([&] { return effect.calls > before; }));
        EXPECT_GE(std::chrono::steady_clock::now() - start, 9 * milliseconds(50));
        const std::vector<std::string> expected(
            isReported ? 1 : 0,
            "Unsubscribing from Effect Thread Pool while scheduled function is still dangling.");
        EXPECT_EQ(assertions_, expected);
    }
    EffectThreadPool::SetDanglingAssertion(true);
}

/// Eight threads that create, subscribe, schedule, unsubscribe and destroy effects, leaving stale entries.
void Storm(int roundsPerThread) {
    constexpr int kThreads = 8;
    std::atomic<long> inside{0};
    std::atomic<bool> overlapped{false};
    std::atomic<long> calls{0};
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int i = 0; i < roundsPerThread; ++i) {
                auto effect = std::make_unique<Counter>([&] {
                    if (inside.fetch_add(1) != 0) overlapped = true;
                    ++calls;
                    inside.fetch_sub(1);
                });
                EffectThreadPool::SubscribeEffect(effect.get());
                for (int k = 0; k < i % 4; ++k) EffectThreadPool::ScheduleEffect(effect.get());
                EffectThreadPool::UnsubscribeEffect(effect.get());
                EXPECT_GE(effect->calls, 0);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(overlapped) << "scheduled functions exclude each other";
    EXPECT_GT(calls, 0);
}

TEST_F(EffectThreadPoolTest, SurvivesAStorm) {
    Storm(2000);
    EXPECT_NE(Pool().find("Subscribed Effects: 0\n"), std::string::npos);
}

/// A million subscriptions, or as many as ZUC_STORM says; minutes, so only on demand.
TEST_F(EffectThreadPoolTest, DISABLED_SurvivesALongStorm) {
    const char* const subscriptions = std::getenv("ZUC_STORM");
    Storm((subscriptions ? std::atoi(subscriptions) : 1'000'000) / 8);
    EXPECT_NE(Pool().find("Subscribed Effects: 0\n"), std::string::npos);
}

TEST(EffectThreadPool, DoesNothingWithoutTheLibrary) {
    Counter effect;
    EffectThreadPool::SubscribeEffect(&effect);
    EffectThreadPool::ScheduleEffect(&effect);
    EffectThreadPool::UnsubscribeEffect(&effect);
    PostToEffectThreadQueue([] { ADD_FAILURE() << "there is no queue"; });
    EXPECT_EQ(effect.calls, 0);
    EXPECT_TRUE(Monitor(u"zuc.components.EffectThreadPool").empty());
}

}  // namespace
}  // namespace zuc::components
