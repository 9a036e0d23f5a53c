// Reclaimable.h - objects that the platform may ask to give memory back.
#pragma once

#include <Vx/VxExport.h>

/// What the platform's reclaim registry calls when memory grows short.
class VX_API iReclaimable {
public:
    virtual ~iReclaimable() = default;

    /// Bytes that reclaim() could free now; a cheap estimate.
    virtual unsigned long reclaimableBytes() = 0;

    /// Frees up to \p bytes bytes of what the object can do without.
    /// \returns the bytes freed
    virtual unsigned long reclaim(unsigned long bytes) = 0;

    /// How dear the content is: the registry asks objects of low priority first. It may be
    /// locked meanwhile, so this creates and destroys no Reclaimable, and throws nothing.
    virtual int reclaimPriority() = 0;
};

/// The base of reclaimable objects: known to the platform's reclaim registry from
/// its construction to its destruction, by exactly one call each.
///
/// Errors: what the registry throws leaves the constructor; from the destructor it
///   ends the process.
/// Threads: as the registry, which must take calls from any thread.
class VX_API Reclaimable : public iReclaimable {
public:
    /// Enters the registry. The derived part does not exist yet.
    Reclaimable();

    /// Leaves the registry. The derived part is gone.
    ~Reclaimable() override;

    Reclaimable(const Reclaimable&) = delete;
    Reclaimable& operator=(const Reclaimable&) = delete;
};
static_assert(sizeof(Reclaimable) == sizeof(void*), "a virtual-table pointer and nothing else");
