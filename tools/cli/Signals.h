#pragma once

#include <atomic>

namespace zuc::cli {

/// From now on SIGINT and SIGTERM set the number that GetInterruption returns instead of ending the
/// process, so that a job can remove what it has begun. A second signal, or a job that does not stop
/// within ten seconds because it waits for a device, ends the process at once. [host]
void WatchSignals();
/// 0, or the signal that came. [any]
const std::atomic<int>& GetInterruption();

}  // namespace zuc::cli
