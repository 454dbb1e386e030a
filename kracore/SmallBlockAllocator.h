#pragma once

#include <cstddef>
#include <limits>
#include <new>

#include "kracore/Export.h"

namespace kracore::utility {

/// Where the many short blocks of names, labels and messages come from: the heap, which keeps lists of
/// short blocks for each thread. The standard library's pools do not survive an allocation that fails.
/// Never used on an audio thread. [any, may block]
class ZUC_API SmallBlockAllocator {
public:
    /// At least `bytes` bytes, aligned for every fundamental type. Throws std::bad_alloc.
    static void* Allocate(std::size_t bytes);
    /// Gives back a block of Allocate; `bytes` must be the size that was asked for.
    static void Free(void* block, std::size_t bytes) noexcept;

    /// Standard allocator over it; all instances are equal.
    template <class T>
    class STLAllocator {
    public:
        using value_type = T;

        STLAllocator() noexcept = default;
        template <class U>
        STLAllocator(const STLAllocator<U>&) noexcept {}  // NOLINT(google-explicit-constructor)

        // NOLINTBEGIN(readability-identifier-naming): the names of the standard
        T* allocate(std::size_t count) {
            static_assert(alignof(T) <= alignof(std::max_align_t));
            if (count > std::numeric_limits<std::size_t>::max() / sizeof(T))
                throw std::bad_array_new_length();
            return static_cast<T*>(Allocate(count * sizeof(T)));
        }
        void deallocate(T* block, std::size_t count) noexcept { Free(block, count * sizeof(T)); }
        // NOLINTEND(readability-identifier-naming)

        template <class U>
        bool operator==(const STLAllocator<U>&) const noexcept {
            return true;
        }
    };
};

}  // namespace kracore::utility
