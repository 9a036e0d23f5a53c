// Utf8.h - Converts strings between UTF-8 and UTF-32.
#pragma once

#include <Vx/LightweightString.h>
#include <cstddef>

/// The platform's text conversion.
///
/// Malformed input: each maximal subpart of an ill-formed sequence becomes one U+FFFD, as
///   the Unicode standard recommends. So does a wide value that is a surrogate or above
///   U+10FFFF. Nothing is reported.
/// Results: a string with a block of its own, or without a block if it is empty.
/// Errors: throws std::bad_alloc on memory exhaustion and std::length_error for a result
///   of 2^31 characters or more.
/// Thread safety: stateless; any thread.
namespace Utf8 {

/// Decodes \p count bytes of UTF-8, embedded zeros included. Never reads past them.
LightweightString<wchar_t> decode(const char* bytes, std::size_t count);

/// Encodes \p count wide characters, embedded zeros included. Never reads past them.
LightweightString<char> encode(const wchar_t* chars, std::size_t count);

/// Converts each byte to the code point of the same number (Latin-1).
LightweightString<wchar_t> widen(const char* bytes, std::size_t count);

} // namespace Utf8
