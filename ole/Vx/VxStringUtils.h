// VxStringUtils.h - case, trimming, substitution, and the way between the two widths.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

// Everywhere below: a function that changes a string in place returns that string and takes
// a private copy first when the block is shared, so no other string sees the change.
//
// Errors: only what the platform throws when memory is short; the string then keeps its old
//   value.
// Threads: any; the strings themselves are plain values.

namespace Vx {

/// Converts byte by byte with tolower() or toupper() of the current LC_CTYPE locale.
///
/// Deliberate: a byte is passed as a signed char, and UTF-8 sequences are not understood, so
/// in a UTF-8 locale only ASCII letters change.
VX_API LightweightString<char>& toLower(LightweightString<char>& text);
VX_API LightweightString<char>& toUpper(LightweightString<char>& text);
VX_API LightweightString<char> toLower(const LightweightString<char>& text);
VX_API LightweightString<char> toUpper(const LightweightString<char>& text);

/// Converts code point by code point with towlower() or towupper() of the current LC_CTYPE
/// locale. The length never changes.
VX_API LightweightString<wchar_t>& toLower(LightweightString<wchar_t>& text);
VX_API LightweightString<wchar_t>& toUpper(LightweightString<wchar_t>& text);
VX_API LightweightString<wchar_t> toLower(const LightweightString<wchar_t>& text);
VX_API LightweightString<wchar_t> toUpper(const LightweightString<wchar_t>& text);

/// Removes the run of \p c at the start.
///
/// Deliberate: a text made of \p c only is left as it is, not emptied.
VX_API LightweightString<wchar_t>& stripLeadingChars(LightweightString<wchar_t>& text, wchar_t c);

/// Removes the run of \p c at the end; in place when the block is not shared.
///
/// Deliberate: a text made of \p c only is left as it is, not emptied.
VX_API LightweightString<wchar_t>& stripTrailingChars(LightweightString<wchar_t>& text, wchar_t c);

/// Whether the last character is \p c; unless \p caseSensitive, whether towupper() makes
/// both the same. False for the empty text.
VX_API bool endsWith(const LightweightString<wchar_t>& text, wchar_t c, bool caseSensitive);

/// \p text with every occurrence of \p pattern, whatever its case, replaced by
/// \p replacement as it stands. Two characters match when towlower() makes them the same.
///
/// Works from the right: of overlapping occurrences the rightmost is replaced, so "aaa" with
/// "aa" -> "b" gives "ab". An empty pattern, or one that does not occur, gives \p text
/// itself, its block shared. Time grows with the lengths of text, pattern and result.
/// \throws std::length_error for a result of 2^31 characters or more
VX_API LightweightString<wchar_t>
substituteCaseInsensitive(const LightweightString<wchar_t>& text,
                          const LightweightString<wchar_t>& pattern,
                          const LightweightString<wchar_t>& replacement);

/// The wide form of a zero-terminated text, byte by byte; null reads as empty.
VX_API LightweightString<wchar_t> WStringFromAscii(const char* text);

namespace StringDetail {

/// Keeps the first \p length characters, at most those there are: in place in a block of
/// its own, in a new block otherwise.
template <class Ch> void truncate(LightweightString<Ch>& text, unsigned int length)
{
    if (text.useCount() > 1)
        text = LightweightString<Ch>(text.c_str(), length);
    else
        text.resizeFor(length);
}

} // namespace StringDetail
} // namespace Vx

/// True for the empty text and for one made of ' ' only; any other white space counts as
/// content.
VX_API bool isEssentiallyEmpty(const LightweightString<char>& text);

/// Removes the ' ' at the end, and only those; in place when the block is not shared. A text
/// of ' ' only becomes empty.
template <class String> String& trimTrailingSpaces(String& text)
{
    unsigned int kept = text.length();
    while (kept != 0 && text[kept - 1] == ' ')
        --kept;
    if (kept != text.length())
        Vx::StringDetail::truncate(text, kept);
    return text;
}
extern template VX_API LightweightString<char>&
trimTrailingSpaces<LightweightString<char>>(LightweightString<char>& text);

/// The UTF-8 form of all characters, zeros included.
VX_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);

/// Decodes all bytes of \p text, zeros included. The platform replaces what is malformed.
VX_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);

/// Decodes \p length bytes; -1 means up to the terminator. Null reads as empty.
VX_API LightweightString<wchar_t> fromUTF8(const char* bytes, int length);
