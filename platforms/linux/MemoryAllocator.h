// MemoryAllocator.h - the process's heap.
#pragma once

#include <Vx/platform/iMemoryAllocator.h>

class MemoryAllocator final : public iMemoryAllocator {
public:
    void* allocate(unsigned long size) override;
    void deallocate(void* block) override;
};
