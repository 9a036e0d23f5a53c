// MemoryAllocator.h - the process's memory.
#pragma once

#include <Vx/platform/iMemoryAllocator.h>

/// Small blocks from memory of our own (SmallBlocks.h), all others from the C library's
/// malloc, or whatever the host has put in its place. A build under a sanitizer, or with
/// VX_SMALL_BLOCKS off, leaves everything to malloc, so that memory checkers see each block.
///
/// Errors: std::bad_alloc when memory is exhausted.
/// Threads: any; as early, as late and as soon after a fork as malloc itself.
class MemoryAllocator final : public iMemoryAllocator {
public:
    void* allocate(unsigned long size) override;
    void deallocate(void* block) override;
};
