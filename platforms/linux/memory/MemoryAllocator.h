// MemoryAllocator.h - The memory service of the Linux platform.
#pragma once

#include <Vx/platform/iMemoryAllocator.h>

/// Allocates small blocks from SmallBlocks and everything else with the C library's malloc, or
/// whatever the host has put in its place. In a process with a sanitizer or under Valgrind, and
/// built with VX_PLAIN or without VX_SMALL_BLOCKS, it uses malloc only.
///
/// Errors: throws std::bad_alloc when memory is exhausted. Freeing keeps errno. Freeing the wrong
///   address aborts, see SmallBlocks. Built with VX_HARDENED, freed blocks of malloc are
///   overwritten, too.
/// Thread safety: any thread, as early, as late and as soon after a fork as malloc itself.
class MemoryAllocator final : public iMemoryAllocator {
public:
    void* allocate(unsigned long size) override;
    void deallocate(void* block) override;
};
