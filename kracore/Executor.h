#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/function.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include "kracore/Export.h"

namespace kracore::threads {

/// Runs posted jobs on threads of its own. A job never waits for another to end: when every thread is
/// busy a new one is started, because a job may run for as long as the process (the workers of the effect
/// thread pool do) and a fixed number of threads would starve the rest. Threads stay until the executor
/// ends.
class ZUC_API AsyncExecutor {
public:
    AsyncExecutor() = default;
    /// Terminate().
    ~AsyncExecutor();
    AsyncExecutor(const AsyncExecutor&) = delete;
    AsyncExecutor& operator=(const AsyncExecutor&) = delete;

    /// Posts a job; dropped after Terminate. What it throws ends the process. `priority` is kept for the
    /// host and has no effect. Throws std::bad_alloc or std::system_error when there is no memory or thread
    /// for it; then it is not posted. [any, may block]
    void AsyncCall(boost::function<void()> job, int priority = 0);
    /// Lets the posted jobs end, then joins the threads. Never called from a job. [host]
    void Terminate();

    std::size_t GetThreadCount() const;  // [any, may block]
    bool IsTerminated() const;           // [any, may block]

private:
    void Work();

    mutable std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<boost::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;
    bool terminated_ = false;
};

/// An executor that several owners share. [host]
ZUC_API boost::shared_ptr<AsyncExecutor> CreateCPUBoundExecutor();

/// Calls task(0) to task(count - 1), spread over the processors, and returns when all have ended. The
/// calling thread takes its share. Calls from several threads at once are allowed, calls from inside a
/// task are run by that thread alone. [any, may block]
ZUC_API void ExecuteCPUBoundTaskOnAllProcessors(const boost::function<void(int)>& task, int count);

}  // namespace kracore::threads
