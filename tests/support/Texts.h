// Texts.h - strings of both widths made of plain ones, and plain ones made of them.
#pragma once

#include "Testing.h"
#include <Vx/LightweightString.h>

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

/// The same bytes, each a character of the other width.
template <class Ch> std::basic_string<Ch> widen(const std::string& text)
{
    std::basic_string<Ch> wide;
    for (const char c : text)
        wide += static_cast<Ch>(static_cast<unsigned char>(c));
    return wide;
}

/// A string of this text, embedded zeros included.
template <class Ch> LightweightString<Ch> make(const std::string& text)
{
    return LightweightString<Ch>(std::basic_string_view<Ch>(widen<Ch>(text)));
}

/// What the string holds, embedded zeros included.
template <class Ch> std::basic_string<Ch> str(const LightweightString<Ch>& text)
{
    return std::basic_string<Ch>(text.c_str(), text.length());
}

/// For what must hold in both widths.
using Widths = testing::Types<char, wchar_t>;
