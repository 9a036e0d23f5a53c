#include "memory/MemoryAllocator.h"

#include "memory/SmallBlocks.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>

namespace {

void* allocateFromHeap(std::size_t size)
{
    // malloc may return null for size 0, which would look like exhaustion.
    void* block = std::malloc(size != 0 ? size : 1);
    if (__builtin_expect(block == nullptr, false))
        throw std::bad_alloc();
    return block;
}

void freeToHeap(void* block)
{
#if VX_HARDENED && VX_SMALL_BLOCKS
    if (block != nullptr) {
        std::memset(block, SmallBlocks::kScrub, malloc_usable_size(block));
        asm volatile("" ::"r"(block) : "memory"); // or the compiler would leave this out
    }
#endif
    std::free(block);
}

#if VX_SMALL_BLOCKS
// Slow paths, out of line so that the cached case needs no stack frame.
[[gnu::noinline]] void* allocateMore(std::size_t size)
{
    void* const block = SmallBlocks::allocateMore(size);
    return block != nullptr ? block : allocateFromHeap(size);
}

[[gnu::noinline]] void deallocateMore(void* block)
{
    // Freeing may make system calls that fail, and memory is often freed between an error and the
    // report of its errno.
    const int savedErrno = errno;
    if (!SmallBlocks::deallocateMore(block))
        freeToHeap(block);
    errno = savedErrno;
}
#endif

} // namespace

#if VX_SMALL_BLOCKS

// Aligned to cache lines: splitting a string into ten is 4 % slower otherwise.
[[gnu::aligned(64)]] void* MemoryAllocator::allocate(unsigned long size)
{
    void* const block = SmallBlocks::take(size);
    return __builtin_expect(block != nullptr, true) ? block : allocateMore(size);
}

[[gnu::aligned(64)]] void MemoryAllocator::deallocate(void* block)
{
    if (!SmallBlocks::put(block))
        deallocateMore(block);
}

#else

void* MemoryAllocator::allocate(unsigned long size) { return allocateFromHeap(size); }

void MemoryAllocator::deallocate(void* block) { freeToHeap(block); }

#endif
