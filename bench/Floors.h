// Floors.h - what the stated behaviour costs, whoever keeps it.
#pragma once

#include "Table.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <vector>

namespace bench {

/// A body that makes \p count blocks and then frees them, as strings must: each of the two by
/// three calls into the platform, which may have been replaced since the last.
inline auto blocks(std::size_t count, std::size_t size)
{
    return [=](State& state) {
        std::vector<void*> made(count);
        run(state, true, [&] {
            for (void*& block : made)
                block = OS()->memoryAllocator()->allocate(size);
            for (void* const block : made)
                OS()->memoryAllocator()->deallocate(block);
        });
    };
}

/// The size of the block of a string: header and a power of two of characters.
template <class String> std::size_t blockSize(const String& text)
{
    return sizeof(typename String::Impl) + text.capacity() * sizeof(typename String::value_type);
}

} // namespace bench
