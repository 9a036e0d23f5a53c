// VxStringNumbers.h - numbers from text, and text from numbers.
//
// Parsing never fails loudly: a default of the caller's stands in for what cannot be
// read. Formatting writes a '.' for the decimal point: when it finds a ',' in its own
// output it sets the process's numeric locale right and formats again.
//
//     int width = Vx::IntFromString(value, 1920);
//     text += width;                              // "1920"
//     LightweightString<char> rate = Vx::StringFromFloat(29.97);   // "29.970000"
//
// Errors: none; memory exhaustion passes through as from LightweightString.
// Threads: any; but see setNumericLocale(), which formatting may call.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

namespace Vx {

// Parsing.
//
// Leading white space is skipped, the number ends at the first character that cannot
// continue it, and the rest is ignored: "  12abc" is 12. The text ends at its first 0.

/// The number as `sscanf` reads it with "%d"; \p def when the text holds none. A number
/// that an int cannot hold loses its upper bits, as `sscanf` has it.
VX_API int IntFromString(const LightweightString<char>& text, int def);
VX_API int IntFromWString(const LightweightString<wchar_t>& text, int def);

/// The number as `sscanf` reads it with "%u"; \p def when the text holds none. A minus
/// sign wraps: "-1" is 4294967295.
VX_API unsigned int UIntFromString(const LightweightString<char>& text, unsigned int def);
VX_API unsigned int UIntFromWString(const LightweightString<wchar_t>& text, unsigned int def);

/// The number as `strtoll` reads it in base 10, saturated at the ends of the range.
///
/// Deliberate: only an empty text gives \p def. Any other text without a number is 0.
VX_API long Int64FromString(const LightweightString<char>& text, long def);
VX_API long Int64FromWString(const LightweightString<wchar_t>& text, long def);

/// The number as `sscanf` reads it with "%lf", its decimal point the one of the current
/// numeric locale; \p def when the text holds none.
VX_API double FloatFromString(const LightweightString<char>& text, double def);
VX_API double FloatFromWString(const LightweightString<wchar_t>& text, double def);

/// The number as `strtod` reads it, in the current numeric locale; 0.0 when the text
/// holds none.
VX_API double asDouble(const LightweightString<char>& text);

// Formatting.

/// The decimal digits of \p value, behind a '-' when it is negative.
VX_API LightweightString<char> StringFromInteger(int value);
VX_API LightweightString<wchar_t> WStringFromInteger(long value);

/// \p value with six decimals, as `operator+=` below appends it.
VX_API LightweightString<char> StringFromFloat(double value);

/// \p value with \p precision decimals, at most 9; a negative precision counts as 0. The
/// text is cut at 255 characters. \p trimZeros removes the zeros at its end; a '.' that
/// then stands last is removed in either case: 1.5 with 3 decimals is "1.5" when trimmed,
/// 2 with 2 decimals is "2".
///
/// Deliberate: zeros go even without a decimal point, so 100 with no decimals becomes
/// "1". A text of zeros only stays as it is.
VX_API LightweightString<wchar_t> WStringFromFloat(double value, char precision, bool trimZeros);

} // namespace Vx

/// Appends the decimal digits of \p value, behind a '-' when it is negative.
VX_API LightweightString<char>& operator+=(LightweightString<char>& to, int value);
VX_API LightweightString<char>& operator+=(LightweightString<char>& to, unsigned int value);

/// Appends \p value with six decimals, as `printf` writes "%f".
///
/// Deliberate: at most 126 characters are kept, so a magnitude from 1e119 on (1e118 for a
/// negative one) loses its tail.
VX_API LightweightString<char>& operator+=(LightweightString<char>& to, double value);

/// Makes libc's LC_NUMERIC category "C". When it is not, says so once on standard output:
/// "Fixing numeric locale (%s)\n" with the name that it had. Formatting calls this when it
/// has written a ','; a host may call it at start-up.
///
/// Deliberate: only "C" counts as "C"; "POSIX" is replaced like any other name.
///
/// Threads: changes a setting of the whole process without a lock. A locale that a thread
///   has chosen for itself is not touched.
VX_API void setNumericLocale();
