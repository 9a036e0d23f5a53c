// VxStringUtils.h - Case, trimming, substitution, and conversion between the two widths.
//
//     LightweightString<wchar_t> name = fromUTF8(utf8);
//     Vx::stripTrailingChars(Vx::toLower(name), L'/'); // changes name
//     if (Vx::endsWith(name, L'v', true)) ...
//
// Functions that take a non-const string change it in place and return it. If the block is
//   shared they copy it first, so no other string changes.
// Errors: only exhausted memory, which throws what the platform throws; the string then keeps
//   its value.
// Thread safety: any thread, provided that no other thread calls std::setlocale at the same time.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

namespace Vx {

/// Converts byte by byte with tolower() or toupper() in the current LC_CTYPE locale.
///
/// Deliberate: passes each byte as a signed char and does not decode UTF-8, so in a UTF-8
/// locale only ASCII letters change.
VX_API LightweightString<char>& toLower(LightweightString<char>& text);
VX_API LightweightString<char>& toUpper(LightweightString<char>& text);
VX_API LightweightString<char> toLower(const LightweightString<char>& text);
VX_API LightweightString<char> toUpper(const LightweightString<char>& text);

/// Converts code point by code point with towlower() or towupper() in the current LC_CTYPE
/// locale. The length never changes.
VX_API LightweightString<wchar_t>& toLower(LightweightString<wchar_t>& text);
VX_API LightweightString<wchar_t>& toUpper(LightweightString<wchar_t>& text);
VX_API LightweightString<wchar_t> toLower(const LightweightString<wchar_t>& text);
VX_API LightweightString<wchar_t> toUpper(const LightweightString<wchar_t>& text);

/// Removes all \p c at the start, or at the end.
///
/// Deliberate: leaves a string that consists only of \p c unchanged.
VX_API LightweightString<wchar_t>& stripLeadingChars(LightweightString<wchar_t>& text, wchar_t c);
VX_API LightweightString<wchar_t>& stripTrailingChars(LightweightString<wchar_t>& text, wchar_t c);

/// Returns whether the last character is \p c; unless \p caseSensitive, whether towupper()
/// returns the same for both. False for the empty string.
VX_API bool endsWith(const LightweightString<wchar_t>& text, wchar_t c, bool caseSensitive);

/// Replaces every occurrence of \p pattern by \p replacement. Characters match if towlower()
/// returns the same for them.
///
/// Searches from the right; of overlapping occurrences it replaces the rightmost, so "aaa" with
/// "aa" -> "b" becomes "ab". If the pattern is empty or does not occur, the result shares the
/// block of \p text. Takes time linear in the lengths of text, pattern and result.
/// \throws std::length_error if the result has 2^31 characters or more
VX_API LightweightString<wchar_t>
substituteCaseInsensitive(const LightweightString<wchar_t>& text,
                          const LightweightString<wchar_t>& pattern,
                          const LightweightString<wchar_t>& replacement);

/// Widens a NUL-terminated ASCII string byte by byte; null is treated as empty.
VX_API LightweightString<wchar_t> WStringFromAscii(const char* text);

namespace detail {

/// Keeps the first \p length characters: in place if the block is unshared, else in a new one.
template <class Ch> void truncate(LightweightString<Ch>& text, unsigned int length)
{
    if (text.useCount() > 1)
        text = LightweightString<Ch>(text.c_str(), length);
    else
        text.resizeFor(length);
}

} // namespace detail
} // namespace Vx

/// Returns whether the string is empty or consists only of ' '; other white space counts as
/// content.
VX_API bool isEssentiallyEmpty(const LightweightString<char>& text);

/// Removes all ' ' at the end, and no other white space. A string of ' ' only becomes empty.
template <class String> String& trimTrailingSpaces(String& text)
{
    unsigned int kept = text.length();
    while (kept != 0 && text[kept - 1] == ' ')
        --kept;
    if (kept != text.length())
        Vx::detail::truncate(text, kept);
    return text;
}
extern template VX_API LightweightString<char>&
trimTrailingSpaces<LightweightString<char>>(LightweightString<char>& text);

/// Encodes all characters as UTF-8, zeros included.
VX_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);

/// Decodes all bytes of \p text, zeros included. The platform replaces malformed sequences.
VX_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);

/// Decodes \p length bytes, or up to the terminator if it is -1; it must not be another negative
/// number. Null is treated as empty.
VX_API LightweightString<wchar_t> fromUTF8(const char* bytes, int length);
