#pragma once

#include <atomic>

namespace zuc::cli {

/// From now on SIGINT and SIGTERM end the process with exit code 128 + signal: at once, or, while an
/// InterruptibleJob lives, when the job has removed what it had begun. A second signal, or a job that
/// does not stop within ten seconds because it waits for a device, ends the process at once. [host]
void WatchSignals();

/// While it lives, a signal only sets the number that GetInterruption returns. [host]
class InterruptibleJob {
public:
    InterruptibleJob();
    ~InterruptibleJob();
    InterruptibleJob(const InterruptibleJob&) = delete;
    InterruptibleJob& operator=(const InterruptibleJob&) = delete;
};

/// 0, or the signal that came. [any]
const std::atomic<int>& GetInterruption();

}  // namespace zuc::cli
