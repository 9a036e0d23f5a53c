// Utf8Encode.h - Encodes UTF-8, 16 characters at a time.
#pragma once

#include "text/Utf8Sse.h"

#include <cstddef>

#if VX_UTF8_SSE
/// Plain::encodedLength() and Plain::encode() for any input.
namespace Utf8::Sse {

/// Returns the number of bytes that encode() writes for the same characters.
std::size_t encodedLength(const wchar_t* chars, std::size_t count) noexcept;

/// Writes \p length bytes to \p out, as many as encodedLength() returned.
void encode(const wchar_t* chars, std::size_t count, char* out, std::size_t length) noexcept;

} // namespace Utf8::Sse
#endif
