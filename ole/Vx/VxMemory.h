// VxMemory.h - all memory through the platform: the allocation operators and StdAllocator.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <cstddef>
#include <limits>
#include <new>

// Loading the library replaces the process's `operator new` and `operator delete`, in
// the plain, array and nothrow forms, by calls of OS()->memoryAllocator(). They are
// declared by <new>; the sized and aligned forms stay the standard library's.
//
// Errors: what the platform throws passes through (std::bad_alloc in the reference
//   platform), the nothrow forms turn it into null. There is no retry and no
//   new-handler.
// Threads: any, before the first static constructor and after the last destructor.

/// A standard-library allocator that draws from the platform like the strings do.
/// It has no state: any two are equal, whatever their type.
///
///     std::vector<int, StdAllocator<int>> numbers;
template <class T> class StdAllocator {
public:
    /// The standard library's name for what is allocated.
    using value_type = T;

    StdAllocator() noexcept = default;
    /// The same allocator for another type.
    template <class U> StdAllocator(const StdAllocator<U>&) noexcept {}

    /// Room for \p count objects.
    /// \throws std::bad_array_new_length when the size in bytes has no number;
    ///   otherwise whatever the platform throws
    T* allocate(std::size_t count)
    {
        static_assert(alignof(T) <= alignof(std::max_align_t),
                      "the platform aligns for fundamental types only");
        if (count > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T))
            throw std::bad_array_new_length();
        return static_cast<T*>(OS()->memoryAllocator()->allocate(count * sizeof(T)));
    }

    /// Gives a block of allocate() back.
    void deallocate(T* block, std::size_t) noexcept { OS()->memoryAllocator()->deallocate(block); }

    /// Any two are equal: what one has allocated any other may give back.
    template <class U> bool operator==(const StdAllocator<U>&) const noexcept { return true; }
    template <class U> bool operator!=(const StdAllocator<U>&) const noexcept { return false; }
};
