#include "memory/MemoryAllocator.h"

#include "memory/SmallBlocks.h"

#include <cstdlib>
#include <new>

namespace {

void* allocateFromHeap(std::size_t size)
{
    // malloc may answer null for size 0, which would read as exhaustion.
    void* block = std::malloc(size != 0 ? size : 1);
    if (__builtin_expect(block == nullptr, false))
        throw std::bad_alloc();
    return block;
}

#if VX_SMALL_BLOCKS
// Kept apart, so that what a thread has at hand needs no frame.
[[gnu::noinline]] void* allocateMore(std::size_t size)
{
    void* const block = SmallBlocks::allocateMore(size);
    return block != nullptr ? block : allocateFromHeap(size);
}
#endif

} // namespace

#if VX_SMALL_BLOCKS

void* MemoryAllocator::allocate(unsigned long size)
{
    void* const block = SmallBlocks::take(size);
    return __builtin_expect(block != nullptr, true) ? block : allocateMore(size);
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
