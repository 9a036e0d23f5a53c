// VxStringNumbers.h - Numbers from strings, and strings from numbers.
//
//     int width = Vx::IntFromString(value, 1920);                  // 1920 if there is no number
//     text += width;                                               // "1920"
//     LightweightString<char> rate = Vx::StringFromFloat(29.97);   // "29.970000"
//
// Parsing skips leading white space, ends at the first character that cannot continue the number
// and ignores the rest: "  12abc" is 12. A string ends at its first NUL. Where there is no number,
// the result is the caller's default.
//
// Formatting writes '.' as the decimal point. If the process's numeric locale has ',', formatting
// sets the locale to "C" and tries again: see setNumericLocale().
//
// Errors: only exhausted memory, which throws what the platform throws.
// Thread safety: any thread, provided that no other thread calls std::setlocale at the same time.
//   Start threads only after the locale is set: see setNumericLocale().
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

namespace Vx {

/// Returns the number that `sscanf` reads with "%d", or \p def if it reads none. A number that
/// does not fit loses its upper bits, after being limited to the range of a long: "4294967297" is
/// 1, but anything from 2^63 on is -1.
VX_API int IntFromString(const LightweightString<char>& text, int def);
VX_API int IntFromWString(const LightweightString<wchar_t>& text, int def);

/// Returns the number that `sscanf` reads with "%u", or \p def if it reads none. A minus sign
/// wraps: "-1" is 4294967295. A number that does not fit loses its upper bits, after being limited
/// to the range of an unsigned long.
VX_API unsigned int UIntFromString(const LightweightString<char>& text, unsigned int def);
VX_API unsigned int UIntFromWString(const LightweightString<wchar_t>& text, unsigned int def);

/// Returns the number that `strtoll` reads in base 10, limited to the range of a long.
///
/// Deliberate: only an empty string gives \p def. Any other string without a number gives 0.
VX_API long Int64FromString(const LightweightString<char>& text, long def);
VX_API long Int64FromWString(const LightweightString<wchar_t>& text, long def);

/// Returns the number that `sscanf` reads with "%lf", or \p def if it reads none. The decimal
/// point is that of the current numeric locale.
VX_API double FloatFromString(const LightweightString<char>& text, double def);
VX_API double FloatFromWString(const LightweightString<wchar_t>& text, double def);

/// Returns the number that `strtod` reads in the current numeric locale, or 0.0 if it reads none.
VX_API double asDouble(const LightweightString<char>& text);

/// Returns the decimal digits of \p value, after a '-' if it is negative.
VX_API LightweightString<char> StringFromInteger(int value);
VX_API LightweightString<wchar_t> WStringFromInteger(long value);

/// Returns \p value with six decimals, as the `operator+=` below appends it.
VX_API LightweightString<char> StringFromFloat(double value);

/// Returns \p value with \p precision decimals: at most 9, and none if it is negative. At most
/// 255 characters are kept. \p trimZeros removes trailing zeros, and a trailing '.' is removed in
/// any case: 1.5 with 3 decimals is "1.5" when trimmed, 2 with 2 decimals is "2".
///
/// Deliberate: zeros are trimmed even without a decimal point, so 100 with no decimals becomes
/// "1" and -0.3 becomes "-". A string that has nothing but zeros stays as it is.
VX_API LightweightString<wchar_t> WStringFromFloat(double value, char precision, bool trimZeros);

} // namespace Vx

/// Appends the decimal digits of \p value, after a '-' if it is negative.
VX_API LightweightString<char>& operator+=(LightweightString<char>& to, int value);
VX_API LightweightString<char>& operator+=(LightweightString<char>& to, unsigned int value);

/// Appends \p value with six decimals, as `printf` writes "%f".
///
/// Deliberate: at most 126 characters are kept, so magnitudes from 1e119 (1e118 if negative) lose
/// their tail.
VX_API LightweightString<char>& operator+=(LightweightString<char>& to, double value);

/// Sets libc's LC_NUMERIC category to "C". If it is another one, prints "Fixing numeric locale
/// (%s)\n" with its name to standard output. Formatting calls this after it has written a ','.
///
///     std::setlocale(LC_ALL, "");   // a host that wants the user's language
///     setNumericLocale();           // before it starts any thread
///
/// Deliberate: only "C" counts as "C". "POSIX" is replaced like any other name.
///
/// Thread safety: threads that call this together repair the locale once. `std::setlocale` itself
///   is not safe to call while other threads use the locale, so a host calls this once, before it
///   starts threads, and never sets the locale again. A locale that a thread has chosen for
///   itself with `uselocale` is not changed.
VX_API void setNumericLocale();
