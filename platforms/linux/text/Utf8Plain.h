// Utf8Plain.h - Converts between UTF-8 and UTF-32 one character at a time, for any input.
#pragma once

#include <cstddef>

/// The reference for the kernels in Utf8Decode.h and Utf8Encode.h, which must agree with it,
/// and the method for whatever those leave over.
namespace Utf8::Plain {

/// Returns the number of code points that decode() writes for the same bytes.
std::size_t decodedLength(const char* bytes, std::size_t count) noexcept;

/// Writes decodedLength() code points to \p out.
void decode(const char* bytes, std::size_t count, wchar_t* out) noexcept;

/// Returns the number of bytes that encode() writes for the same characters.
std::size_t encodedLength(const wchar_t* chars, std::size_t count) noexcept;

/// Writes encodedLength() bytes to \p out.
/// \returns the end of what it wrote
char* encode(const wchar_t* chars, std::size_t count, char* out) noexcept;

} // namespace Utf8::Plain
