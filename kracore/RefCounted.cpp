#include "kracore/RefCounted.h"

namespace kracore::utility {

RefCountedInterface::~RefCountedInterface() = default;

RefCountedObject::~RefCountedObject() = default;

void RefCountedObject::AddRef() const noexcept {
    referenceCount_.fetch_add(1, std::memory_order_relaxed);
}

void RefCountedObject::Release() const noexcept {
    // The last owner must see what every other owner wrote before it let go.
    if (referenceCount_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

}  // namespace kracore::utility
