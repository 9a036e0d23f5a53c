// Floors.h - The least code that keeps a documented guarantee.
#pragma once

#include "Table.h"

#include <cstdlib>
#include <utility>
#include <vector>

namespace bench {

/// A benchmark body that allocates blocks of these sizes with malloc and frees them.
inline auto blocks(std::vector<std::size_t> sizes)
{
    return [sizes = std::move(sizes)](State& state) {
        std::vector<void*> made(sizes.size());
        run(state, true, [&] {
            for (std::size_t i = 0; i < sizes.size(); ++i)
                keep(made[i] = std::malloc(sizes[i]));
            for (void* const block : made)
                std::free(block);
        });
    };
}
inline auto blocks(std::size_t count, std::size_t size)
{
    return blocks(std::vector<std::size_t>(count, size));
}

/// The size of a string's block: its header and its capacity.
template <class String> std::size_t blockSize(const String& text)
{
    return sizeof(typename String::Impl) + text.capacity() * sizeof(typename String::value_type);
}

} // namespace bench
