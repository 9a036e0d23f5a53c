#include <Vx/VxMemory.h>

// Deliberate: the sized forms are not replaced. Those of the standard library forward to the
// plain forms below, and hosts rely on exactly these eight being exported.
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wsized-deallocation"
#endif

// Deliberate: no null check and no new-handler loop. The platform decides how to report
// exhausted memory; hosts replace the platform, not these operators.

VX_API void* operator new(std::size_t size) { return OS()->memoryAllocator()->allocate(size); }

VX_API void* operator new[](std::size_t size) { return operator new(size); }

VX_API void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return operator new(size);
    } catch (...) {
        return nullptr;
    }
}

VX_API void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

// Null is passed on, too; the platform must ignore it.
VX_API void operator delete(void* block) noexcept { OS()->memoryAllocator()->deallocate(block); }

VX_API void operator delete[](void* block) noexcept { operator delete(block); }

VX_API void operator delete(void* block, const std::nothrow_t&) noexcept { operator delete(block); }

VX_API void operator delete[](void* block, const std::nothrow_t& tag) noexcept
{
    operator delete(block, tag);
}
