#pragma once

#include <algorithm>
#include <cstddef>
#include <mutex>

namespace zuc::components {

/// For effects whose parameter updates hold a mutex while they replace what processing reads: runs
/// `process()` when the mutex is free, and otherwise gives silence for this block without waiting and
/// without consuming input. Returns whether it ran. [audio]
template <class Mutex, class Process>
bool ProcessOrSilence(
    Mutex& processingMutex, float** out, std::size_t channels, int frames, Process&& process) {
    const std::unique_lock lock(processingMutex, std::try_to_lock);
    if (!lock.owns_lock()) {
        for (std::size_t c = 0; c < channels; ++c) std::fill_n(out[c], frames, 0.0f);
        return false;
    }
    process();
    return true;
}

}  // namespace zuc::components
