#include "kracore/Executor.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>

#include <boost/smart_ptr/make_shared.hpp>

namespace kracore::threads {

AsyncExecutor::~AsyncExecutor() { Terminate(); }

void AsyncExecutor::AsyncCall(boost::function<void()> job, int) {
    {
        const std::lock_guard lock(mutex_);
        if (terminated_) return;
        // The thread first: should it not start, or the job find no place, no job was posted.
        if (jobs_.size() >= idle_) threads_.emplace_back([this] { Work(); });
        jobs_.push_back(std::move(job));
    }
    posted_.notify_one();
}

void AsyncExecutor::Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        posted_.wait(lock, [this] { return terminated_ || !jobs_.empty(); });
        --idle_;
        if (jobs_.empty()) return;
        const boost::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job();
        lock.lock();
    }
}

void AsyncExecutor::Terminate() {
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(mutex_);
        terminated_ = true;
        threads.swap(threads_);
    }
    posted_.notify_all();
    for (std::thread& thread : threads) thread.join();
}

std::size_t AsyncExecutor::GetThreadCount() const {
    const std::lock_guard lock(mutex_);
    return threads_.size();
}

bool AsyncExecutor::IsTerminated() const {
    const std::lock_guard lock(mutex_);
    return terminated_;
}

boost::shared_ptr<AsyncExecutor> CreateCPUBoundExecutor() {
    return boost::make_shared<AsyncExecutor>();
}

// ---- The parallel call ----

namespace {

thread_local bool insideTask = false;

/// One parallel call. Helpers that come late hold it by shared pointer and find nothing left to claim.
class ParallelCall {
public:
    ParallelCall(const boost::function<void(int)>& task, int count) : task_(task), count_(count) {}

    void ClaimAndRun() {
        insideTask = true;
        int done = 0;
        for (int i = next_.fetch_add(1); i < count_; i = next_.fetch_add(1)) {
            task_(i);
            ++done;
        }
        insideTask = false;
        if (done == 0) return;
        const std::lock_guard lock(mutex_);
        done_ += done;
        if (done_ == count_) allDone_.notify_one();
    }

    void WaitForAll() {
        std::unique_lock lock(mutex_);
        allDone_.wait(lock, [this] { return done_ == count_; });
    }

private:
    const boost::function<void(int)>& task_;  // the caller's; used only while a claim is open
    const int count_;
    std::atomic<int> next_{0};
    std::mutex mutex_;
    std::condition_variable allDone_;
    int done_ = 0;
};

/// Helpers of all parallel calls: one a processor besides the caller, started when first needed.
class ParallelHelpers {
public:
    void Post(const std::shared_ptr<ParallelCall>& call, int helpers) {
        for (int i = 0; i < helpers; ++i) executor_.AsyncCall([call] { call->ClaimAndRun(); });
    }

private:
    AsyncExecutor executor_;
};

void RunAlone(const boost::function<void(int)>& task, int count) {
    for (int i = 0; i < count; ++i) task(i);
}

}  // namespace

void ExecuteCPUBoundTaskOnAllProcessors(const boost::function<void(int)>& task, int count) {
    static const int processors =
        std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    const int helpers = std::min(count, processors) - 1;
    if (helpers <= 0 || insideTask) return RunAlone(task, count);
    std::shared_ptr<ParallelCall> call;
    try {
        static ParallelHelpers shared;
        call = std::make_shared<ParallelCall>(task, count);
        shared.Post(call, helpers);
    } catch (const std::exception&) {
        // No memory or no thread for a helper: those that there are, or none, do the work.
        if (!call) return RunAlone(task, count);
    }
    call->ClaimAndRun();
    call->WaitForAll();
}

}  // namespace kracore::threads
