// platform/iMemoryAllocator.h - The source of all memory that the library uses.
#pragma once

/// Serves the global allocation operators, StdAllocator and string blocks.
///
/// Thread safety: both operations may be called from any thread at any time, including static
///   initialisation, process exit and a child right after fork.
class iMemoryAllocator {
public:
    /// Returns at least \p size bytes, aligned for any fundamental type. Size 0 also yields a
    /// block of its own. Never returns null, and callers do not test for it: exhaustion is
    /// reported by an exception, std::bad_alloc in the reference platform.
    virtual void* allocate(unsigned long size) = 0;

    /// Frees a block of allocate(), on any thread. Ignores null. Must not throw: callers are
    /// release paths, where an escaping exception terminates the process.
    virtual void deallocate(void* block) = 0;

protected:
    ~iMemoryAllocator() = default;
};
