#include "kracore/SmallBlockAllocator.h"

namespace kracore::utility {

void* SmallBlockAllocator::Allocate(std::size_t bytes) { return ::operator new(bytes); }

void SmallBlockAllocator::Free(void* block, std::size_t bytes) noexcept {
    ::operator delete(block, bytes);
}

}  // namespace kracore::utility
