#include <atomic>
#include <cstdlib>
#include <new>

#include "rtguard/RealTimeGuard.h"

namespace rtguard {
namespace {

std::atomic<long> newsUntilFailure{0};

bool TakeFailure() {
    long left = newsUntilFailure.load(std::memory_order_relaxed);
    while (left > 0)
        if (newsUntilFailure.compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
            return left == 1;
    return false;
}

/// `block`, or what operator new does without one.
void* Require(void* block) {
    if (!block) throw std::bad_alloc();
    return block;
}

}  // namespace

long FailNewAfter(long n) { return newsUntilFailure.exchange(n, std::memory_order_relaxed); }

}  // namespace rtguard

// All forms that share a delete: a sanitizer brings those that are missing, and takes the pairs as wrong.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return rtguard::TakeFailure() ? nullptr : std::malloc(bytes > 0 ? bytes : 1);
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    const auto step = static_cast<std::size_t>(alignment);
    const std::size_t rounded = (bytes + step - 1) / step * step;
    return rtguard::TakeFailure() ? nullptr : std::aligned_alloc(step, rounded);
}
void* operator new(std::size_t bytes) {
    return rtguard::Require(operator new(bytes, std::nothrow));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return rtguard::Require(operator new(bytes, alignment, std::nothrow));
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }

// A sanitizer's own would not go together with those above.
void* operator new[](std::size_t bytes) { return operator new(bytes); }
void* operator new[](std::size_t bytes, std::align_val_t alignment) {
    return operator new(bytes, alignment);
}
void* operator new[](std::size_t bytes, const std::nothrow_t& nothrow) noexcept {
    return operator new(bytes, nothrow);
}
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
