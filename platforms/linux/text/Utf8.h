// Utf8.h - UTF-8 to UTF-32 and back.
#pragma once

#include <Vx/LightweightString.h>
#include <cstddef>

/// Text conversion of the platform.
///
/// Malformed input: each maximal subpart of an ill-formed sequence becomes one U+FFFD, as
///   the Unicode standard recommends; a wide value that is a surrogate or lies past
///   U+10FFFF becomes U+FFFD too. Nothing is reported.
/// Reading: exactly the bytes or characters given, never one more.
/// Errors: memory exhaustion passes through; a result of 2^31 characters or more is a
///   std::length_error.
/// Threads: any; there is no state.
namespace Utf8 {

/// The code points of \p count bytes, zeros included, in a block of their own.
LightweightString<wchar_t> decode(const char* bytes, std::size_t count);

/// The UTF-8 form of \p count wide characters, zeros included, in a block of its own.
LightweightString<char> encode(const wchar_t* chars, std::size_t count);

/// Each byte as the code point of the same number.
LightweightString<wchar_t> widen(const char* bytes, std::size_t count);

/// The plain methods: character by character, for any input. They say what is right; the
/// fast ones of Utf8Vector.h serve well-formed text and must agree with them.
namespace Plain {

/// Code points that decode() of the same bytes writes.
std::size_t decodedLength(const char* bytes, std::size_t count) noexcept;

/// Writes decodedLength() code points to \p out.
void decode(const char* bytes, std::size_t count, wchar_t* out) noexcept;

/// Bytes that encode() of the same characters writes.
std::size_t encodedLength(const wchar_t* chars, std::size_t count) noexcept;

/// Writes encodedLength() bytes to \p out.
void encode(const wchar_t* chars, std::size_t count, char* out) noexcept;

} // namespace Plain
} // namespace Utf8
