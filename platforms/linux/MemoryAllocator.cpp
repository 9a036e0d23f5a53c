#include "MemoryAllocator.h"

#include <cstdlib>
#include <new>

void* MemoryAllocator::allocate(unsigned long size)
{
    void* block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void MemoryAllocator::deallocate(void* block) { std::free(block); }
