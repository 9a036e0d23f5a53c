// Texts.h - Conversions between strings of the library and of the standard library.
#pragma once

#include "Testing.h"
#include <Vx/LightweightString.h>

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

/// Converts each byte to one character.
template <class Ch> std::basic_string<Ch> widen(const std::string& text)
{
    std::basic_string<Ch> wide;
    for (const char c : text)
        wide += static_cast<Ch>(static_cast<unsigned char>(c));
    return wide;
}

/// Converts each byte to one character of a library string, embedded NULs included.
template <class Ch> LightweightString<Ch> make(const std::string& text)
{
    return LightweightString<Ch>(std::basic_string_view<Ch>(widen<Ch>(text)));
}

/// Converts to a standard string, embedded NULs included.
template <class Ch> std::basic_string<Ch> str(const LightweightString<Ch>& text)
{
    return std::basic_string<Ch>(text.c_str(), text.length());
}

/// For typed tests that cover both widths.
using Widths = testing::Types<char, wchar_t>;
