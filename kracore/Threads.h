#pragma once

#include <mutex>

namespace kracore::threads {

/// A lock that its owner may take again; it opens with as many calls of unlock as of lock. Fits
/// std::unique_lock and its kin, hence the names. A thread that has the lock by try_lock may call what
/// takes it again without any risk to wait.
class RecursiveMutex {
public:
    void lock() {  // NOLINT(readability-identifier-naming) [any, may block]
        if (!mutex_.try_lock()) mutex_.lock();
    }
    /// Never waits; false while another thread holds the lock.
    bool try_lock() { return mutex_.try_lock(); }  // NOLINT(readability-identifier-naming) [any]
    void unlock() { mutex_.unlock(); }             // NOLINT(readability-identifier-naming) [any]

private:
    std::recursive_mutex mutex_;
};

}  // namespace kracore::threads
