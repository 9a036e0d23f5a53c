// Floors.h - The least code that keeps a documented guarantee.
#pragma once

#include "Table.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
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

/// The least string that keeps the guarantees of LightweightString<char>: a block from the
/// platform for any length but 0, with the smallest power of two of characters greater than the
/// length; copies that share the block, which only a sole owner writes to; counts that change by
/// atomic read-modify-writes.
class LeastString {
public:
    LeastString() = default;
    LeastString(const char* chars, unsigned int count) { append(chars, count); }
    LeastString(const LeastString& other) : block_(other.block_)
    {
        if (block_ != nullptr)
            __atomic_fetch_add(&block_->strings, 1u, __ATOMIC_SEQ_CST);
    }
    LeastString& operator=(const LeastString&) = delete;
    ~LeastString() { release(block_); }

    const char* c_str() const { return block_ != nullptr ? block_->chars() : ""; }
    const char* data() const { return c_str(); }
    std::size_t size() const { return block_ != nullptr ? block_->length : 0; }

    LeastString& append(const char* chars, unsigned int count)
    {
        std::memcpy(extend(count), chars, count);
        return *this;
    }
    LeastString& operator+=(const char* chars)
    {
        return append(chars, static_cast<unsigned int>(std::strlen(chars)));
    }
    LeastString& operator+=(char character)
    {
        *extend(1) = character;
        return *this;
    }

    /// Makes the string longer; returns the first new character.
    char* extend(unsigned int count)
    {
        Block* block = block_;
        if (block == nullptr || __atomic_load_n(&block->strings, __ATOMIC_ACQUIRE) != 1 ||
            count >= block->capacity - block->length)
            block = grow(count);
        char* const end = block->chars() + block->length;
        block->length += count;
        end[count] = 0;
        return end;
    }

private:
    struct Block {
        unsigned int length;
        unsigned int capacity;
        unsigned int strings;

        char* chars() { return reinterpret_cast<char*>(this + 1); }
    };

    [[gnu::noinline]] Block* grow(unsigned int count)
    {
        const unsigned int length = static_cast<unsigned int>(size());
        const unsigned int capacity = 1u << (32 - __builtin_clz(length + count));
        auto* const grown = static_cast<Block*>(operator new(sizeof(Block) + capacity));
        *grown = {length, capacity, 1};
        std::memcpy(grown->chars(), c_str(), length);
        release(block_);
        return block_ = grown;
    }
    static void release(Block* block)
    {
        if (block != nullptr && __atomic_sub_fetch(&block->strings, 1u, __ATOMIC_SEQ_CST) == 0)
            operator delete(block);
    }

    Block* block_ = nullptr;
};

inline LeastString operator+(const char* left, const LeastString& right)
{
    // One block for both parts.
    const std::size_t length = std::strlen(left);
    LeastString joined;
    char* const chars = joined.extend(static_cast<unsigned int>(length + right.size()));
    std::memcpy(chars, left, length);
    std::memcpy(chars + length, right.data(), right.size());
    return joined;
}

} // namespace bench
