// detail/ShortCopy.h - Copies characters up to the first zero and writes zeros from there on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace Vx {
namespace detail {

/// Writes \p count characters as strncpy and wcsncpy do. Reads nothing after the first zero.
template <class Ch>
inline void copyUpToZeroPlain(Ch* to, const Ch* from, std::size_t count) noexcept
{
    using Traits = std::char_traits<Ch>;
    const Ch* const zero = Traits::find(from, count, Ch(0));
    const std::size_t kept = zero != nullptr ? static_cast<std::size_t>(zero - from) : count;
    Traits::copy(to, from, kept);
    Traits::assign(to + kept, count - kept, Ch(0));
}

#ifndef VX_PLAIN
/// \p kBytes bytes of characters as one value.
template <class Ch, std::size_t kBytes> struct Chunk {
    typedef Ch Type __attribute__((vector_size(kBytes)));
};

/// Copies \p count characters, at least a chunk of them, without calling a function.
/// \returns false if one of them is zero
template <std::size_t kBytes, class Ch>
inline bool copyChunks(Ch* to, const Ch* from, std::size_t count) noexcept
{
    using Chars = typename Chunk<Ch, kBytes>::Type;
    static_assert(sizeof(Chars) == kBytes);
    constexpr std::size_t kStep = kBytes / sizeof(Ch);
    constexpr std::size_t kWords = kBytes / sizeof(std::uint64_t);
    const auto copyAt = [=](std::size_t at) {
        Chars chars;
        std::memcpy(&chars, from + at, kBytes);
        std::memcpy(to + at, &chars, kBytes);
        return chars == Ch(0);
    };
    const std::size_t last = count - kStep; // overlaps the chunk before it
    auto zeros = copyAt(last);
    for (std::size_t at = 0; at < last; at += kStep)
        zeros |= copyAt(at);
    std::uint64_t words[kWords];
    std::memcpy(words, &zeros, kBytes);
    return (words[0] | words[kWords - 1]) == 0;
}
#endif

/// The same for the characters of a string: all \p count can be read, and they do not overlap
/// the destination.
template <class Ch> inline void copyUpToZero(Ch* to, const Ch* from, std::size_t count) noexcept
{
#ifndef VX_PLAIN
    const std::size_t bytes = sizeof(Ch) * count;
    if (bytes >= 8 && bytes < 16 && copyChunks<8>(to, from, count))
        return;
    if (bytes >= 16 && bytes <= 64 && copyChunks<16>(to, from, count))
        return;
#endif
    copyUpToZeroPlain(to, from, count);
}

} // namespace detail
} // namespace Vx
