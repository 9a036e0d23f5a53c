// platform/iMemoryAllocator.h - where all memory comes from.
#pragma once

/// The allocator behind the allocation operators, StdAllocator and the strings.
///
/// Threads: both operations may be called from any thread at any time, static
///   initialisation, fork and process exit included.
class iMemoryAllocator {
public:
    /// At least \p size bytes, aligned for any fundamental type; a distinct block
    /// even for size 0. Never null: exhaustion is reported by an exception
    /// (std::bad_alloc in the reference platform). Callers do not test the result.
    virtual void* allocate(unsigned long size) = 0;

    /// Returns a block of allocate(). Null is allowed and ignored. Must not throw:
    /// callers are release paths, where an escaping exception ends the process.
    virtual void deallocate(void* block) = 0;

protected:
    ~iMemoryAllocator() = default;
};
