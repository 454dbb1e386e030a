#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace dsp {

/// Allocates on cache lines, which vector loads want.
template <typename T>
struct AlignedAllocator {
    using value_type = T;  // NOLINT(readability-identifier-naming): the standard's name
    static constexpr std::align_val_t kAlignment{64};

    AlignedAllocator() = default;
    template <typename U>
    explicit AlignedAllocator(const AlignedAllocator<U>&) {}

    T* allocate(std::size_t count) {  // NOLINT(readability-identifier-naming)
        return static_cast<T*>(::operator new(count * sizeof(T), kAlignment));
    }
    void deallocate(T* memory, std::size_t) {  // NOLINT(readability-identifier-naming)
        ::operator delete(memory, kAlignment);
    }
    template <typename U>
    bool operator==(const AlignedAllocator<U>&) const {
        return true;
    }
};

/// A vector whose elements start on a cache line.
template <typename T>
using AlignedVector = std::vector<T, AlignedAllocator<T>>;

}  // namespace dsp
