// Floors.h - The least code that keeps a documented guarantee.
#pragma once

#include "Table.h"

#include <Vx/LightweightString.h>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
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

/// The least string that keeps the guarantees of LightweightString: its layout; a block from
/// the platform for any length but 0, with the smallest power of two of characters greater than the
/// length; copies that share the block, which only a sole owner writes to; counts that change by
/// atomic read-modify-writes.
template <class Ch> class LeastString {
public:
    LeastString() = default;
    LeastString(const Ch* chars, unsigned int count)
    {
        if (count == 0)
            return;
        install(newBlock(count));
        std::memcpy(block_->data, chars, sizeof(Ch) * count);
        block_->data[count] = 0;
    }
    LeastString(LeastString&& other) noexcept
        : count_(std::exchange(other.count_, nullptr)), block_(std::exchange(other.block_, nullptr))
    {}
    LeastString(const LeastString& other) : count_(other.count_), block_(other.block_)
    {
        if (block_ != nullptr)
            __atomic_fetch_add(count_, 1u, __ATOMIC_SEQ_CST);
    }
    LeastString& operator=(const LeastString&) = delete;
    ~LeastString() { release(); }

    const Ch* c_str() const { return block_ != nullptr ? block_->data : kNone; }
    const Ch* data() const { return c_str(); }
    std::size_t size() const { return block_ != nullptr ? block_->length : 0; }

    LeastString& append(const Ch* chars, unsigned int count)
    {
        std::memcpy(extend(count), chars, sizeof(Ch) * count);
        return *this;
    }
    LeastString& operator+=(const Ch* chars)
    {
        return append(chars, static_cast<unsigned int>(Traits::length(chars)));
    }
    LeastString& operator+=(Ch character)
    {
        *extend(1) = character;
        return *this;
    }

    /// Makes the string longer; returns the first new character.
    Ch* extend(unsigned int count)
    {
        Block* block = block_;
        if (block == nullptr || __atomic_load_n(count_, __ATOMIC_ACQUIRE) != 1 ||
            count >= block->capacity - block->length)
            block = grow(count);
        Ch* const end = block->data + block->length;
        block->length += count;
        end[count] = 0;
        return end;
    }

private:
    using Block = typename LightweightString<Ch>::Impl;
    using Traits = std::char_traits<Ch>;
    static constexpr Ch kNone[1] = {};

    static Block* newBlock(unsigned int length)
    {
        const unsigned int capacity = 1u << (32 - __builtin_clz(length));
        auto* const block =
            static_cast<Block*>(operator new(sizeof(Block) + sizeof(Ch) * capacity));
        *block = {reinterpret_cast<Ch*>(block + 1), length, capacity, 1};
        return block;
    }
    void install(Block* block)
    {
        count_ = &block->refCount;
        block_ = block;
    }
    [[gnu::noinline]] Block* grow(unsigned int count)
    {
        const unsigned int length = static_cast<unsigned int>(size());
        Block* const grown = newBlock(length + count);
        grown->length = length;
        std::memcpy(grown->data, c_str(), sizeof(Ch) * length);
        release();
        install(grown);
        return grown;
    }
    void release()
    {
        if (block_ != nullptr && __atomic_sub_fetch(count_, 1u, __ATOMIC_SEQ_CST) == 0)
            operator delete(block_);
    }

    unsigned int* count_ = nullptr;
    Block* block_ = nullptr;
};

inline LeastString<char> operator+(const char* left, const LeastString<char>& right)
{
    // One block for both parts.
    const std::size_t length = std::strlen(left);
    LeastString<char> joined;
    char* const chars = joined.extend(static_cast<unsigned int>(length + right.size()));
    std::memcpy(chars, left, length);
    std::memcpy(chars + length, right.data(), right.size());
    return joined;
}

} // namespace bench
