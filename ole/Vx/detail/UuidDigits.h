// detail/UuidDigits.h - Reads the plain form of a UUID, also in constant expressions.
#pragma once

#include <Vx/VxExport.h>
#include <cstddef>
#include <cstdint>
#include <utility>

// Marks inline functions of UUID that the library exports as well. UUID.cpp, which emits them,
// defines it differently.
#ifndef VX_UUID_API
#define VX_UUID_API VX_API
#endif

namespace Vx {
namespace detail {

/// The stored byte of each pair of digits, and where the pair is printed.
inline constexpr int kUuidBytes[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
inline constexpr int kUuidOffsets[16] = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};

/// The value of each hexadecimal digit; kNoDigit for any other character.
inline constexpr unsigned int kNoDigit = 0x80;
struct HexDigits {
    constexpr HexDigits() : value{}
    {
        for (unsigned int c = 0; c < 256; ++c)
            value[c] = static_cast<unsigned char>(c >= '0' && c <= '9'   ? c - '0'
                                                  : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                  : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                                         : kNoDigit);
    }
    unsigned char value[256];
};
inline constexpr HexDigits kHexDigits;

template <class Ch> constexpr unsigned int hexDigit(Ch c) noexcept
{
    const unsigned int code = static_cast<unsigned int>(c); // large for a negative char
    return code < 256 ? kHexDigits.value[code] : kNoDigit;
}

/// Reads one pair of digits, and the hyphen before a group.
template <std::size_t I, class Ch>
constexpr bool readUuidByte(const Ch* text, unsigned char (&bytes)[16]) noexcept
{
    const Ch* const pair = text + kUuidOffsets[I];
    if constexpr (I == 4 || I == 6 || I == 8 || I == 10)
        if (pair[-1] != '-')
            return false;
    const unsigned int high = hexDigit(pair[0]);
    if (high == kNoDigit)
        return false;
    const unsigned int low = hexDigit(pair[1]);
    if (low == kNoDigit)
        return false;
    bytes[kUuidBytes[I]] = static_cast<unsigned char>(high << 4 | low);
    return true;
}

/// Reads 36 characters of the plain form. False, with \p bytes unspecified, for any other string;
/// looks at no character after the first that is wrong.
template <class Ch, std::size_t... I>
constexpr bool readUuid(const Ch* text, unsigned char (&bytes)[16],
                        std::index_sequence<I...>) noexcept
{
    return (readUuidByte<I>(text, bytes) && ...);
}
template <class Ch> constexpr bool readUuid(const Ch* text, unsigned char (&bytes)[16]) noexcept
{
    return readUuid(text, bytes, std::make_index_sequence<16>());
}

/// Reads a whole NUL-terminated string in the plain form, with or without braces.
///
/// Out of line, or compilers warn about the characters that a short literal does not have: with
/// sanitizers they do not see that reading ends before them.
template <class Ch>
[[gnu::noinline]] constexpr bool readWholeUuid(const Ch* text, unsigned char (&bytes)[16]) noexcept
{
    if (text == nullptr)
        return false;
    const int braces = *text == '{' ? 1 : 0;
    return readUuid(text + braces, bytes) && (braces == 0 || text[37] == '}') &&
           text[36 + 2 * braces] == 0;
}

/// Eight bytes as a number that orders as memcmp() orders them.
constexpr std::uint64_t bigEndian(const unsigned char* b) noexcept
{
    return std::uint64_t(b[0]) << 56 | std::uint64_t(b[1]) << 48 | std::uint64_t(b[2]) << 40 |
           std::uint64_t(b[3]) << 32 | std::uint64_t(b[4]) << 24 | std::uint64_t(b[5]) << 16 |
           std::uint64_t(b[6]) << 8 | std::uint64_t(b[7]);
}

} // namespace detail
} // namespace Vx
