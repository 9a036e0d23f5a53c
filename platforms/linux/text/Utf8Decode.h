// Utf8Decode.h - Validates and decodes UTF-8, 16 bytes at a time.
#pragma once

#include "text/Utf8Sse.h"

#include <cstddef>
#include <cstdint>

#if VX_UTF8_SSE
/// Plain::decodedLength() and Plain::decode() for well-formed input.
namespace Utf8::Sse {

constexpr std::size_t kMalformed = SIZE_MAX;

/// Returns the number of code points in \p bytes, or kMalformed if any sequence is ill-formed.
std::size_t countWellFormed(const char* bytes, std::size_t count) noexcept;

/// Writes exactly countWellFormed() code points to \p out. Undefined for malformed input.
void decodeWellFormed(const char* bytes, std::size_t count, wchar_t* out) noexcept;

} // namespace Utf8::Sse
#endif
