// Utf8Vector.h - the fast methods of text conversion, 16 bytes at a time.
#pragma once

#include <cstddef>

// The plain methods in Utf8.h are the portable twins: without SSE4.1 they do all the work.
#ifdef __SSE4_1__
#define VX_UTF8_VECTOR 1
#else
#define VX_UTF8_VECTOR 0
#endif

#if VX_UTF8_VECTOR
namespace Utf8::Vector {

/// What one pass over UTF-8 text finds out.
struct Scan {
    bool wellFormed;        ///< no byte of the text needs to be replaced
    std::size_t codePoints; ///< their number; meaningless unless wellFormed
};
Scan scan(const char* bytes, std::size_t count) noexcept;

/// Writes the \p codePoints code points of well-formed text, not one slot more.
void decodeWellFormed(const char* bytes, std::size_t count, wchar_t* out) noexcept;

/// Bytes that the UTF-8 form of any \p count characters takes, replacements included.
std::size_t encodedLength(const wchar_t* chars, std::size_t count) noexcept;

/// Writes the UTF-8 form of any characters: exactly the bytes from \p out to \p outEnd,
/// which are as many as encodedLength() says.
void encode(const wchar_t* chars, std::size_t count, char* out, const char* outEnd) noexcept;

/// Writes each byte as a wide character.
void widen(const char* bytes, std::size_t count, wchar_t* out) noexcept;

} // namespace Utf8::Vector
#endif
