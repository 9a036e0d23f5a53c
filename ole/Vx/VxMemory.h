// VxMemory.h - All memory comes from the platform: allocation operators and StdAllocator.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <cstddef>
#include <limits>
#include <new>

// Loading the library replaces the process's `operator new` and `operator delete` in their
// plain, array and nothrow forms. They call OS()->memoryAllocator(). The sized forms of the
// standard library forward to them; the aligned forms do not.
//
// Errors: the exception of the platform passes through (std::bad_alloc from the reference
//   platform); the nothrow forms return null instead. No new-handler is called.
// Thread safety: may be called from any thread, also before the first static constructor and
//   after the last static destructor.

/// A standard-library allocator that takes its memory from the platform.
///
///     std::vector<int, StdAllocator<int>> numbers;
///
/// It has no state: any two are equal, whatever their types.
template <class T> class StdAllocator {
public:
    using value_type = T;

    StdAllocator() noexcept = default;
    template <class U> StdAllocator(const StdAllocator<U>&) noexcept {}

    /// Returns uninitialised memory for \p count objects.
    /// \throws std::bad_array_new_length if the size exceeds PTRDIFF_MAX bytes; otherwise what
    ///   the platform throws
    T* allocate(std::size_t count)
    {
        static_assert(alignof(T) <= alignof(std::max_align_t),
                      "the platform aligns for fundamental types only");
        if (count > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T))
            throw std::bad_array_new_length();
        return static_cast<T*>(OS()->memoryAllocator()->allocate(count * sizeof(T)));
    }

    /// Frees a block that any StdAllocator allocated.
    void deallocate(T* block, std::size_t) noexcept { OS()->memoryAllocator()->deallocate(block); }

    template <class U> bool operator==(const StdAllocator<U>&) const noexcept { return true; }
    template <class U> bool operator!=(const StdAllocator<U>&) const noexcept { return false; }
};
