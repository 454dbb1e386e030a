#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "kracore/Export.h"

namespace kracore::threads {

/// A door that threads wait at: open lets everyone through until it is closed again.
class ZUC_API Gate {
public:
    explicit Gate(bool open = false) : open_(open) {}

    void Open();          // [any, may block]; wakes everyone who waits
    void Close();         // [any, may block]
    bool IsOpen() const;  // [any, may block]

    /// Returns once the gate is open. [any, may block]
    void Wait() const;
    /// False when the gate stayed closed for that long. [any, may block]
    bool WaitFor(std::chrono::milliseconds time) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable opened_;
    bool open_;
};

}  // namespace kracore::threads
