// Threading.h - Makes recursive locks and identifies threads.
#pragma once

#include <Vx/VxPtr.h>
#include <Vx/detail/Inspect.h>
#include <Vx/platform/iThreading.h>

/// Locks from the C library's mutex, thread identifiers from the kernel.
///
/// Fork: a thread that forks keeps the locks it holds in both processes. In the child, its
///   identifier is the one that the kernel gave the child. A lock that another thread held at
///   that moment stays held in the child, where its owner does not exist.
/// A thread that ends while it holds a lock leaves it held: no other thread ever gets it.
/// Errors: createLock() throws std::bad_alloc on memory exhaustion.
class Threading final : public iThreading {
public:
    /// Ignores \p flags: every lock is recursive.
    Vx::Ptr<iLock> createLock(unsigned int flags) override;

    /// Returns the kernel's thread identifier, as debuggers and /proc show it.
    unsigned int currentThreadId() override;

    /// How the locks are laid out, for diagnostic tools.
    static const Vx::detail::InspectPlatformLocks lockLayout;
};
