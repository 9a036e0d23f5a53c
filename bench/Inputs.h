// Inputs.h - Inputs that are equal for all peers and in every run.
#pragma once

#include <Vx/LightweightString.h>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <string_view>

namespace bench {

/// A fixed pseudo-random sequence (xorshift64*).
class Numbers {
public:
    explicit Numbers(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}

    std::uint64_t next()
    {
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        return state_ * 0x2545F4914F6CDD1Du;
    }

    /// Below \p bound.
    std::uint32_t below(std::uint32_t bound)
    {
        return static_cast<std::uint32_t>((next() >> 32) * bound >> 32);
    }

private:
    std::uint64_t state_;
};

/// \p length characters of upper- and lower-case words.
inline std::string letters(std::size_t length, std::uint64_t seed = 1)
{
    Numbers numbers(seed);
    std::string text(length, ' ');
    for (char& c : text)
        if (const std::uint32_t n = numbers.below(60); n < 52)
            c = static_cast<char>(n < 26 ? 'a' + n : 'A' + (n - 26));
    return text;
}

inline std::wstring widened(std::string_view text) { return {text.begin(), text.end()}; }

inline LightweightString<char> narrow(std::string_view text)
{
    return LightweightString<char>(text);
}
inline LightweightString<wchar_t> wide(std::wstring_view text)
{
    return LightweightString<wchar_t>(text);
}

/// Allocates with malloc. Vx replaces `operator new` for the whole process, so std::string
/// otherwise uses the platform's allocator here, as it does in a host.
template <class T> struct MallocAllocator {
    using value_type = T;

    MallocAllocator() = default;
    template <class U> MallocAllocator(const MallocAllocator<U>&) {}

    T* allocate(std::size_t count)
    {
        void* const block = std::malloc(count * sizeof(T));
        if (block == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* block, std::size_t) { std::free(block); }

    template <class U> bool operator==(const MallocAllocator<U>&) const { return true; }
};
using MallocString = std::basic_string<char, std::char_traits<char>, MallocAllocator<char>>;

} // namespace bench
