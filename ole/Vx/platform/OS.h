// platform/OS.h - the one door to the operating system.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

/// The root of the platform library: hands out the sub-services.
///
/// Ownership: the root and every sub-service belong to the platform and live as
///   long as the process. A caller never frees them, takes no reference and keeps
///   no copy of the pointers: it calls OS() and the accessor again at every use,
///   so a host may replace a service at any time.
/// Threads: every accessor and every service may be called from any thread.
/// Start and end: memoryAllocator() is called before the first static constructor
///   has run and after the last destructor has; the root and the allocator must be
///   usable throughout.
class iPlatformServices {
public:
    /// The service of that name, never null.
    virtual iMemoryAllocator* memoryAllocator() = 0;
    virtual iReclaimRegistry* reclaimRegistry() = 0;
    virtual iSystemUtils* systemUtils() = 0;
    virtual iFileSystem* fileSystem() = 0;
    virtual iThreading* threading() = 0;
    virtual iSystemInfo* systemInfo() = 0;
    virtual iShell* shell() = 0;

protected:
    // No virtual destructor: nobody deletes a platform, and a constant-initialised
    // root must not register one.
    ~iPlatformServices() = default;
};

/// The platform of this process, never null. Defined by libOS.so, or by the host
/// itself when it brings a platform of its own.
VX_API iPlatformServices* OS();
