#include "kracore/SmallBlockAllocator.h"

namespace kracore::utility {

void* SmallBlockAllocator::Allocate(std::size_t bytes) { return ::operator new(bytes); }
void SmallBlockAllocator::Free(void* block, std::size_t) noexcept { ::operator delete(block); }

}  // namespace kracore::utility
