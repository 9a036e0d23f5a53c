// Reclaimable.h - Objects that the platform may ask to give memory back.
#pragma once

#include <Vx/VxExport.h>

/// The operations that a platform's reclaim registry calls when memory runs short, on any thread.
/// The reference platform only keeps the list of objects: it calls none of them.
class VX_API iReclaimable {
public:
    virtual ~iReclaimable() = default;

    /// Returns a cheap estimate of the bytes that reclaim() could free now.
    virtual unsigned long reclaimableBytes() = 0;

    /// Frees up to \p bytes bytes of expendable memory.
    /// \returns the number of bytes freed
    virtual unsigned long reclaim(unsigned long bytes) = 0;

    /// Returns how valuable the content is; objects of low priority are asked first. The
    /// registry may be locked meanwhile, so an implementation must not throw, nor construct or
    /// destroy a Reclaimable.
    virtual int reclaimPriority() = 0;
};

/// The base of reclaimable objects. Its constructor registers the object with the platform's
/// reclaim registry, its destructor removes it, each by exactly one call.
///
///     class ThumbnailCache : public Reclaimable { ... };
///
/// Errors: an exception of the registry leaves the constructor; in the destructor it
///   terminates the process.
/// Thread safety: that of the registry, which accepts calls from any thread.
class VX_API Reclaimable : public iReclaimable {
public:
    /// Registers the object, whose derived part is not constructed yet.
    Reclaimable();

    /// Removes the object, whose derived part is already destroyed.
    ~Reclaimable() override;

    Reclaimable(const Reclaimable&) = delete;
    Reclaimable& operator=(const Reclaimable&) = delete;
};
static_assert(sizeof(Reclaimable) == sizeof(void*), "a virtual-table pointer and nothing else");
