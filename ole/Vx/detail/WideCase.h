// detail/WideCase.h - Converts code points as towlower() and towupper() of the current locale do.
#pragma once

#include <cstddef>

namespace Vx {
namespace detail {

void lowerPlain(wchar_t* chars, std::size_t count);
void raisePlain(wchar_t* chars, std::size_t count);

#ifdef VX_PLAIN
inline void lower(wchar_t* chars, std::size_t count) { lowerPlain(chars, count); }
inline void raise(wchar_t* chars, std::size_t count) { raisePlain(chars, count); }
#else
/// Asks the C library once for the scripts from Latin to Arabic, and remembers its answers.
void lower(wchar_t* chars, std::size_t count);
void raise(wchar_t* chars, std::size_t count);
#endif

} // namespace detail
} // namespace Vx
