#include "Components/EffectThreadPool.h"

#include <semaphore.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/smart_ptr/make_shared.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include "kracore/Debug.h"
#include "kracore/DebugMonitor.h"
#include "kracore/Executor.h"
#include "kracore/FlushToZero.h"
#include "kracore/Gate.h"

namespace zuc::components {
namespace {

using kracore::debug::UTF16StringStream;
using std::chrono::milliseconds;

constexpr int kSubscribersPerWorker = 24;
constexpr int kFirstFailCount = 8;
constexpr milliseconds kLeaveWait{50};
constexpr long kIdleWaitNanoseconds = 50'000'000;
constexpr std::size_t kQueueCapacity = 4096;
constexpr char16_t kPoolChannel[] = u"zuc.components.EffectThreadPool";
constexpr char16_t kQueueChannel[] = u"zuc.components.EffectThreadQueue";

std::atomic<bool> danglingAssertion{true};

/// The executor with its statistics channel.
class EffectThreadQueue {
public:
    EffectThreadQueue() : executor_(kracore::threads::CreateCPUBoundExecutor()) {
        kracore::debug::RegisterDebugMonitorCallback(channel_, [this](UTF16StringStream& out) {
            out << u"Thread Count: " << static_cast<std::int64_t>(executor_->GetThreadCount())
                << u"\n";
            out << u"Terminated: " << (executor_->IsTerminated() ? u"True" : u"False") << u"\n";
        });
    }
    ~EffectThreadQueue() {
        kracore::debug::UnregisterDebugMonitorCallback(channel_);
        executor_->Terminate();
    }
    EffectThreadQueue(const EffectThreadQueue&) = delete;
    EffectThreadQueue& operator=(const EffectThreadQueue&) = delete;

    void Post(boost::function<void()> job) { executor_->AsyncCall(std::move(job), 0); }

private:
    const kracore::WStr channel_{kQueueChannel};  // kept, so that to unregister it takes no memory
    boost::shared_ptr<kracore::threads::AsyncExecutor> executor_;
};

/// Both process-wide services. Set and cleared by Create and Destroy; whoever uses one holds a reference.
struct Services {
    std::mutex mutex;
    boost::shared_ptr<EffectThreadQueue> queue;
    boost::shared_ptr<EffectThreadPool> pool;
    std::atomic<EffectThreadPool*> poolForAudio{
        nullptr};  // no reference: effects end before the library
};

Services& GetServices() {
    static auto* const services = new Services;  // outlives every static user
    return *services;
}

template <class Service>
boost::shared_ptr<Service> Fetch(boost::shared_ptr<Service> Services::*service) {
    Services& services = GetServices();
    const std::lock_guard lock(services.mutex);
    return services.*service;
}

/// A bounded ring for many threads on either side that allocates nothing and holds no lock (D. Vyukov's
/// bounded queue, 2010): each cell's turn says whether it is free for the push, or filled for the pop, whose
/// number it is.
class Ring {
public:
    Ring() {
        for (std::size_t i = 0; i < kQueueCapacity; ++i) cells_[i].turn.store(i);
    }

    /// False when the ring is full.
    bool Push(SchedulableEffect* effect) {
        for (std::size_t number = pushes_.load();;) {
            Cell& cell = cells_[number % kQueueCapacity];
            const std::size_t turn = cell.turn.load(std::memory_order_acquire);
            if (turn == number) {
                if (!pushes_.compare_exchange_weak(number, number + 1)) continue;
                cell.effect = effect;
                cell.turn.store(number + 1, std::memory_order_release);
                return true;
            }
            if (turn < number) return false;
            number = pushes_.load();
        }
    }

    /// Null when the ring is empty.
    SchedulableEffect* Pop() {
        for (std::size_t number = pops_.load();;) {
            Cell& cell = cells_[number % kQueueCapacity];
            const std::size_t turn = cell.turn.load(std::memory_order_acquire);
            if (turn == number + 1) {
                if (!pops_.compare_exchange_weak(number, number + 1)) continue;
                SchedulableEffect* const effect = cell.effect;
                cell.turn.store(number + kQueueCapacity, std::memory_order_release);
                return effect;
            }
            if (turn < number + 1) return nullptr;
            number = pops_.load();
        }
    }

    bool IsEmpty() const { return pops_.load() == pushes_.load(); }

private:
    struct Cell {
        std::atomic<std::size_t> turn;
        SchedulableEffect* effect = nullptr;
    };

    std::array<Cell, kQueueCapacity> cells_;
    std::atomic<std::size_t> pushes_{0};
    std::atomic<std::size_t> pops_{0};
};

/// The queue between audio threads and workers: nothing that can wait on the way in, and a semaphore that is
/// touched only while somebody sleeps at it.
class WorkQueue {
public:
    WorkQueue() { sem_init(&wakeUp_, 0, 0); }
    ~WorkQueue() { sem_destroy(&wakeUp_); }
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    bool Push(SchedulableEffect* effect) {
        if (!entries_.Push(effect)) return false;
        // Should a sleeper just miss the entry, it looks again after at most 50 ms. One that is being
        // woken takes all entries there are.
        if (sleepers_.load() > 0 && !isWaking_.exchange(true)) sem_post(&wakeUp_);
        return true;
    }
    SchedulableEffect* Pop() { return entries_.Pop(); }
    bool IsEmpty() const { return entries_.IsEmpty(); }

    /// Until an entry may have come, or 50 ms.
    void Sleep() {
        sleepers_.fetch_add(1);
        if (entries_.IsEmpty()) {
            timespec until{};
            clock_gettime(CLOCK_REALTIME, &until);
            until.tv_nsec += kIdleWaitNanoseconds;
            until.tv_sec += until.tv_nsec / 1'000'000'000;
            until.tv_nsec %= 1'000'000'000;
            sem_timedwait(&wakeUp_, &until);
        }
        isWaking_.store(false);
        sleepers_.fetch_sub(1);
    }

private:
    Ring entries_;
    std::atomic<int> sleepers_{0};
    std::atomic<bool> isWaking_{false};  // a sleeper has been woken and has not looked yet
    sem_t wakeUp_{};
};

/// Lets `list` grow to `count` entries without asking for memory.
void MakeRoom(std::vector<SchedulableEffect*>& list, std::size_t count) {
    if (list.capacity() < count) list.reserve(2 * count);
}

}  // namespace

// ---- The pool ----

class EffectThreadPool::Impl {
public:
    Impl();
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Schedule(SchedulableEffect* effect) {
        if (!queue_.Push(effect)) droppedCalls_.fetch_add(1);
    }
    void Subscribe(SchedulableEffect* effect);
    void Unsubscribe(SchedulableEffect* effect);
    Statistics GetStatistics() const {
        return {running_.load(), subscribed_.load(), scheduledCalls_.load(), droppedCalls_.load()};
    }

private:
    void StartWorker();
    void RequestTermination();
    void TerminateThread();
    void ThreadLoop();
    bool TakeTerminateFlag();
    SchedulableEffect* Take();
    void ForgetCancelled();
    void DoScheduleEffect(SchedulableEffect* effect);
    void WaitUntilLeft(SchedulableEffect* effect);
    void Drain();

    const kracore::WStr channel_{kPoolChannel};  // kept, so that to unregister it takes no memory
    std::atomic<int> subscribed_{0};
    std::atomic<int> threads_{0};  // workers the pool means to have
    std::atomic<int> running_{0};  // workers whose loop has not ended
    std::atomic<int> pendingTerminations_{0};
    std::atomic<int> terminate_{0};  // 1 makes exactly one worker leave
    std::atomic<unsigned> scheduledCalls_{0};
    std::atomic<unsigned> droppedCalls_{0};
    kracore::threads::Gate threadExit_;
    WorkQueue queue_;

    // Order of locks: subscription before list, never the reverse. Both lists have room made when somebody
    // subscribes, so that neither a worker nor an effect that goes ever needs memory.
    std::recursive_mutex subscriptionMutex_;
    std::recursive_mutex listMutex_;  // guards the lists, and is held while a function runs
    std::vector<SchedulableEffect*>
        cancelled_;  // unsubscribed; entries left in the queue are skipped
    std::vector<SchedulableEffect*> inFlight_;  // taken from the queue and not yet done
    int expected_ = 0;                          // subscribers, with those that are about to be
};

EffectThreadPool::Impl::Impl() {
    kracore::debug::RegisterDebugMonitorCallback(channel_, [this](UTF16StringStream& out) {
        const Statistics now = GetStatistics();
        out << u"Thread Count: " << now.threads << u"\n";
        out << u"Subscribed Effects: " << now.subscribedEffects << u"\n";
        out << u"Total Scheduled Functions Called: " << now.scheduledCalls << u"\n";
    });
}

EffectThreadPool::Impl::~Impl() {
    kracore::debug::UnregisterDebugMonitorCallback(channel_);
    Drain();
    while (threads_.load() > 0) TerminateThread();
    // Workers that were asked to leave earlier may still be on their way out of this object.
    while (running_.load() > 0) std::this_thread::sleep_for(milliseconds(1));
}

void EffectThreadPool::Impl::Subscribe(SchedulableEffect* effect) {
    {
        const std::lock_guard lock(listMutex_);
        std::erase(cancelled_, effect);
        const auto subscribers = static_cast<std::size_t>(std::max(0, expected_)) + 1;
        MakeRoom(cancelled_, cancelled_.size() + subscribers);
        // Each worker has one, and each subscriber may be about to start a worker.
        MakeRoom(inFlight_, static_cast<std::size_t>(running_.load()) + subscribers);
        ++expected_;
    }
    try {
        const std::lock_guard lock(subscriptionMutex_);
        if (subscribed_.load() + 1 > threads_.load() * kSubscribersPerWorker) StartWorker();
        subscribed_.fetch_add(1);
    } catch (...) {
        const std::lock_guard lock(listMutex_);
        --expected_;
        throw;
    }
}

void EffectThreadPool::Impl::Unsubscribe(SchedulableEffect* effect) {
    {
        const std::lock_guard lock(listMutex_);
        cancelled_.push_back(effect);
        --expected_;
    }
    const std::lock_guard lock(subscriptionMutex_);
    WaitUntilLeft(effect);
    if (subscribed_.fetch_sub(1) - 1 <= (threads_.load() - 1) * kSubscribersPerWorker)
        RequestTermination();
}

void EffectThreadPool::Impl::WaitUntilLeft(SchedulableEffect* effect) {
    int failCount = kFirstFailCount;
    for (;;) {
        {
            const std::lock_guard lock(listMutex_);
            if (std::find(inFlight_.begin(), inFlight_.end(), effect) == inFlight_.end()) break;
        }
        std::this_thread::sleep_for(kLeaveWait);
        if (failCount-- <= 0) break;
    }
    // Deliberate: an entry that leaves during the eighth sleep is reported although it left.
    if (failCount <= 0 && danglingAssertion.load())
        kracore::debug::BreakAfterAssertDialog(
            {"failCount > 0",
             "Unsubscribing from Effect Thread Pool while scheduled function is still dangling.",
             "Components/private/EffectThreadPool", 170});
}

void EffectThreadPool::Impl::StartWorker() {
    running_.fetch_add(1);
    threads_.fetch_add(1);
    try {
        PostToEffectThreadQueue([this] { ThreadLoop(); });
    } catch (...) {
        threads_.fetch_sub(1);
        running_.fetch_sub(1);
        throw;
    }
}

void EffectThreadPool::Impl::RequestTermination() {
    if (threads_.fetch_sub(1) - 1 == 0) {
        // Nobody is subscribed: what is queued belongs to effects that are gone.
        const std::lock_guard lock(listMutex_);
        Drain();
        ForgetCancelled();
    }
    pendingTerminations_.fetch_add(1);
    terminate_.store(1);
}

void EffectThreadPool::Impl::TerminateThread() {
    threadExit_.Close();
    RequestTermination();
    threadExit_.Wait();
}

void EffectThreadPool::Impl::Drain() {
    while (queue_.Pop()) {
    }
}

bool EffectThreadPool::Impl::TakeTerminateFlag() {
    int expected = 1;
    return terminate_.compare_exchange_strong(expected, 0);
}

/// Takes the next entry and notes it as in flight in one hold of the mutex: an entry in neither place would
/// let its effect unsubscribe and die before it is called.
SchedulableEffect* EffectThreadPool::Impl::Take() {
    const std::lock_guard lock(listMutex_);
    SchedulableEffect* const effect = queue_.Pop();
    if (effect)
        inFlight_.push_back(effect);
    else
        ForgetCancelled();
    return effect;
}

/// An entry of an effect that is gone may still be queued or in flight; until it has passed its effect must
/// stay known as cancelled. Called with the lists locked.
void EffectThreadPool::Impl::ForgetCancelled() {
    if (inFlight_.empty() && queue_.IsEmpty()) cancelled_.clear();
}

void EffectThreadPool::Impl::DoScheduleEffect(SchedulableEffect* effect) {
    const std::lock_guard lock(listMutex_);
    if (std::find(cancelled_.begin(), cancelled_.end(), effect) == cancelled_.end())
        effect->ScheduledFunction();
    scheduledCalls_.fetch_add(1);
    inFlight_.erase(std::find(inFlight_.begin(), inFlight_.end(), effect));
}

void EffectThreadPool::Impl::ThreadLoop() {
    const kracore::utility::FlushToZeroScope flushToZero;
    while (!TakeTerminateFlag()) {
        SchedulableEffect* effect = Take();
        if (!effect) {
            queue_.Sleep();
            effect = Take();
        }
        if (effect) DoScheduleEffect(effect);
    }
    if (pendingTerminations_.fetch_sub(1) > 1) terminate_.store(1);
    threadExit_.Open();
    running_.fetch_sub(1);  // last: the destructor waits for it
}

// ---- The process's instance ----

EffectThreadPool::EffectThreadPool() : impl_(std::make_unique<Impl>()) {}
EffectThreadPool::~EffectThreadPool() = default;
void EffectThreadPool::Schedule(SchedulableEffect* effect) { impl_->Schedule(effect); }
void EffectThreadPool::SubscribeClient(SchedulableEffect* effect) { impl_->Subscribe(effect); }
void EffectThreadPool::UnsubscribeClient(SchedulableEffect* effect) { impl_->Unsubscribe(effect); }
EffectThreadPool::Statistics EffectThreadPool::GetStatistics() const {
    return impl_->GetStatistics();
}
void EffectThreadPool::SetDanglingAssertion(bool on) { danglingAssertion.store(on); }

void EffectThreadPool::ScheduleEffect(SchedulableEffect* effect) {
    if (EffectThreadPool* pool = GetServices().poolForAudio.load()) pool->Schedule(effect);
}

void EffectThreadPool::SubscribeEffect(SchedulableEffect* effect) {
    if (const auto pool = Fetch(&Services::pool)) pool->SubscribeClient(effect);
}

void EffectThreadPool::UnsubscribeEffect(SchedulableEffect* effect) {
    if (const auto pool = Fetch(&Services::pool)) pool->UnsubscribeClient(effect);
}

void EffectThreadPool::Create() {
    Services& services = GetServices();
    const std::lock_guard lock(services.mutex);
    services.queue = boost::make_shared<EffectThreadQueue>();
    services.pool = boost::make_shared<EffectThreadPool>();
    services.poolForAudio.store(services.pool.get());
}

void EffectThreadPool::Destroy() {
    Services& services = GetServices();
    services.poolForAudio.store(nullptr);
    const auto take = [&services](auto Services::*service) {
        const std::lock_guard lock(services.mutex);
        return std::exchange(services.*service, nullptr);
    };
    // The pool first: its workers run on the queue's threads.
    take(&Services::pool).reset();
    take(&Services::queue).reset();
}

void PostToEffectThreadQueue(boost::function<void()> job) {
    if (const auto queue = Fetch(&Services::queue)) queue->Post(std::move(job));
}

}  // namespace zuc::components
