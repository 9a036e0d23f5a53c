// VxObject.h - The root classes: a virtual destructor, a reference count, and both.
#pragma once

#include <Vx/VxExport.h>

/// The root of classes that are destroyed through a base. Only a virtual destructor.
class VX_API iVirtual {
public:
    virtual ~iVirtual() = default;
    iVirtual() = default;
    iVirtual(const iVirtual&) = default;
    iVirtual& operator=(const iVirtual&) = default;
};

namespace Vx {

/// The root of classes that store their own reference count for Vx::Ptr.
///
/// The count belongs to the object, not to its value: a copy starts at 0, and assignment does
/// not change it. Only Vx::Ptr changes it, atomically.
class VX_API InternalRefCount {
public:
    InternalRefCount() noexcept {}
    InternalRefCount(const InternalRefCount&) noexcept {}
    // cppcheck-suppress operatorEqVarError ; the count stays, on purpose
    InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; }
    virtual ~InternalRefCount() = default;

private:
    friend struct InternalRefCountTraits;

    unsigned int refCount_ = 0;
};
static_assert(sizeof(InternalRefCount) == 16,
              "a virtual-table pointer and a 32-bit count are part of the binary interface");

} // namespace Vx

/// The root of shared interfaces: a reference count and a virtual destructor, inherited
/// virtually so that an object has one of each.
///
///     struct Callback : iObject { void call(); };
///     Vx::Ptr<Callback> callback(new Callback);
class VX_API iObject : public virtual Vx::InternalRefCount, public virtual iVirtual {};
