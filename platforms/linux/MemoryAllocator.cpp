#include "MemoryAllocator.h"

#include <cstdlib>
#include <new>

void* MemoryAllocator::allocate(unsigned long size)
{
    // malloc may answer null for size 0, which would read as exhaustion.
    void* block = std::malloc(size != 0 ? size : 1);
    if (__builtin_expect(block == nullptr, false))
        throw std::bad_alloc();
    return block;
}

void MemoryAllocator::deallocate(void* block) { std::free(block); }
