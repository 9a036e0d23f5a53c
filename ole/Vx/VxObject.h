// VxObject.h - the class roots: a virtual destructor, a count, and both.
#pragma once

#include <Vx/VxExport.h>

/// The root of classes that are destroyed through a base: a virtual destructor and
/// nothing else.
class VX_API iVirtual {
public:
    virtual ~iVirtual() = default;
};

namespace Vx {

/// The root of classes that carry their own reference count for Vx::Ptr.
///
/// The count starts at 0 and belongs to the object, not to its value: a copy
/// starts at 0 again, an assignment leaves it alone. Only Vx::Ptr changes it, and
/// only atomically.
class VX_API InternalRefCount {
public:
    /// A count of 0: nobody holds the object yet.
    InternalRefCount() noexcept {}

    /// Leaves the count alone: it belongs to the object.
    InternalRefCount(const InternalRefCount&) noexcept {}
    InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; }
    virtual ~InternalRefCount() = default;

private:
    friend struct InternalRefCountTraits;

    unsigned int refCount_ = 0;
};
static_assert(sizeof(InternalRefCount) == 16,
              "a virtual-table pointer and a 32-bit count are part of the binary interface");

} // namespace Vx

/// The root of shared interfaces: a count and a virtual destructor, joined by
/// virtual inheritance so that an object has one of each however it inherits.
class VX_API iObject : public virtual Vx::InternalRefCount, public virtual iVirtual {};
