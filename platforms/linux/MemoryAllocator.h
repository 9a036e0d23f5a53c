// MemoryAllocator.h - the process's heap.
#pragma once

#include <Vx/platform/iMemoryAllocator.h>

/// The C library's malloc, or whatever the host has put in its place.
///
/// Errors: std::bad_alloc when memory is exhausted.
/// Threads: any; as early, as late and as soon after a fork as malloc itself.
class MemoryAllocator final : public iMemoryAllocator {
public:
    void* allocate(unsigned long size) override;
    void deallocate(void* block) override;
};
