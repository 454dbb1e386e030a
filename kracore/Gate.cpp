#include "kracore/Gate.h"

namespace kracore::threads {

void Gate::Open() {
    // Told under the lock: whoever comes through may destroy the gate as soon as the lock is free.
    const std::lock_guard lock(mutex_);
    open_ = true;
    opened_.notify_all();
}

void Gate::Close() {
    const std::lock_guard lock(mutex_);
    open_ = false;
}

bool Gate::IsOpen() const {
    const std::lock_guard lock(mutex_);
    return open_;
}

void Gate::Wait() const {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
}

bool Gate::WaitFor(std::chrono::milliseconds time) const {
    std::unique_lock lock(mutex_);
    return opened_.wait_for(lock, time, [this] { return open_; });
}

}  // namespace kracore::threads
