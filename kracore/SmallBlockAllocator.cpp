#include "kracore/SmallBlockAllocator.h"

#include <memory_resource>

namespace kracore::utility {
namespace {

// Longer blocks go straight to the heap: they are rare, and a pool keeps them in one sorted list.
constexpr std::size_t kLargestPooledBytes = 512;

std::pmr::memory_resource& Pool() {
    // Deliberate: never destroyed. Strings that live until the end of the process still give their
    // blocks back, in whatever order the static objects go.
    static auto* const pool = new std::pmr::synchronized_pool_resource(
        std::pmr::pool_options{.max_blocks_per_chunk = 0,
                               .largest_required_pool_block = kLargestPooledBytes},
        std::pmr::new_delete_resource());
    return *pool;
}

/// What the pool is asked for. Its blocks lie side by side, in libstdc++ 12 also those of a size that
/// the alignment does not divide.
std::size_t PooledBytes(std::size_t bytes) {
    constexpr std::size_t kAlignment = alignof(std::max_align_t);
    return (bytes + kAlignment - 1) / kAlignment * kAlignment;
}

}  // namespace

void* SmallBlockAllocator::Allocate(std::size_t bytes) {
    return bytes <= kLargestPooledBytes ? Pool().allocate(PooledBytes(bytes))
                                        : ::operator new(bytes);
}

void SmallBlockAllocator::Free(void* block, std::size_t bytes) noexcept {
    if (bytes <= kLargestPooledBytes)
        Pool().deallocate(block, PooledBytes(bytes));
    else
        ::operator delete(block);
}

}  // namespace kracore::utility
