// Threading.h - recursive locks and thread identity.
#pragma once

#include <Vx/VxPtr.h>
#include <Vx/platform/iThreading.h>

/// Locks by the C library, thread identifiers by the kernel.
///
/// Fork: a thread that forks keeps the locks it holds on both sides; in the child it has
///   the identifier that the kernel gave the child. A lock that another thread held at that
///   moment stays held in the child, where that thread does not exist.
/// Errors: createLock() passes on the exception of memory exhaustion.
class Threading final : public iThreading {
public:
    /// \p flags is not used: every lock is recursive.
    Vx::Ptr<iLock> createLock(unsigned int flags) override;

    /// The kernel's thread number: what debuggers and /proc show.
    unsigned int currentThreadId() override;
};
