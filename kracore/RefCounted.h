#pragma once

#include <atomic>

#include "kracore/Export.h"

namespace kracore::utility {

/// What boost::intrusive_ptr needs of an object. Nobody deletes such an object directly.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release deletes
class ZUC_API RefCountedInterface {
public:
    virtual void AddRef() const noexcept = 0;   // [any]
    virtual void Release() const noexcept = 0;  // [any]; deletes the object with the last reference

protected:
    RefCountedInterface() = default;
    RefCountedInterface(const RefCountedInterface&) = default;
    RefCountedInterface& operator=(const RefCountedInterface&) = default;
    virtual ~RefCountedInterface();
};

/// The count itself. Derived classes take it as a virtual base. A copy starts with no references.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release deletes
class ZUC_API RefCountedObject : public RefCountedInterface {
public:
    void AddRef() const noexcept final;
    void Release() const noexcept final;

protected:
    RefCountedObject() = default;
    RefCountedObject(const RefCountedObject& other) noexcept : RefCountedInterface(other) {}
    RefCountedObject& operator=(const RefCountedObject&) noexcept { return *this; }
    ~RefCountedObject() override;

private:
    mutable std::atomic<long> referenceCount_{0};
};

inline void intrusive_ptr_add_ref(  // NOLINT(readability-identifier-naming): Boost's name
    const RefCountedInterface* object) noexcept {
    object->AddRef();
}
inline void intrusive_ptr_release(  // NOLINT(readability-identifier-naming): Boost's name
    const RefCountedInterface* object) noexcept {
    object->Release();
}

}  // namespace kracore::utility
