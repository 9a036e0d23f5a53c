// platform/OS.h - The platform library's root.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

/// Hands out the platform's services.
///
///     const double now = OS()->systemUtils()->msecsNow();
///
/// Ownership: the root and the services belong to the platform and live as long as the process.
///   Do not free or keep them: call OS() and the accessor at every use, since a host may replace
///   a service at any time.
/// Objects: files, locks and settings are handed out as Vx::Ptr(count, object). The count of a new
///   object starts at 0, and the last holder deletes the object.
/// Thread safety: every accessor and every service may be called from any thread.
/// Lifetime: memoryAllocator() is called before the first static constructor has run and after
///   the last destructor has. The root and the allocator must work throughout.
class iPlatformServices {
public:
    /// Each returns the service of that name, never null.
    virtual iMemoryAllocator* memoryAllocator() = 0;
    virtual iReclaimRegistry* reclaimRegistry() = 0;
    virtual iSystemUtils* systemUtils() = 0;
    virtual iFileSystem* fileSystem() = 0;
    virtual iThreading* threading() = 0;
    virtual iSystemInfo* systemInfo() = 0;
    virtual iShell* shell() = 0;

protected:
    // Not virtual: the library never deletes a platform, and a constant-initialised root must
    // not register a destructor.
    ~iPlatformServices() = default;
};

/// Returns the platform of this process, never null. Defined by libOS.so, or by a host that
/// brings its own platform.
VX_API iPlatformServices* OS();
