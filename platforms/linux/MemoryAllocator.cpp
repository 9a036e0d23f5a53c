#include "MemoryAllocator.h"

#include "SmallBlocks.h"

#include <cstdlib>
#include <new>

namespace {

// Kept apart, so that small blocks pass through without a frame of their own.
[[gnu::noinline]] void* allocateFromHeap(std::size_t size)
{
    // malloc may answer null for size 0, which would read as exhaustion.
    void* block = std::malloc(size != 0 ? size : 1);
    if (__builtin_expect(block == nullptr, false))
        throw std::bad_alloc();
    return block;
}

} // namespace

#if VX_SMALL_BLOCKS

void* MemoryAllocator::allocate(unsigned long size)
{
    if (void* const block = SmallBlocks::allocate(size); __builtin_expect(block != nullptr, true))
        return block;
    return allocateFromHeap(size);
}

void MemoryAllocator::deallocate(void* block)
{
    if (!SmallBlocks::deallocate(block))
        std::free(block);
}

#else

void* MemoryAllocator::allocate(unsigned long size) { return allocateFromHeap(size); }

void MemoryAllocator::deallocate(void* block) { std::free(block); }

#endif
