// Utf8.h - UTF-8 as a platform must read and write it: whatever the input, with a result.
#pragma once

#include <string>
#include <string_view>

/// Encodes every character; one that is not a code point becomes U+FFFD.
inline std::string encodeUTF8(std::wstring_view wide)
{
    std::string text;
    for (const wchar_t each : wide) {
        auto c = static_cast<unsigned int>(each);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            c = 0xFFFD;
        const unsigned int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        constexpr unsigned int kLead[] = {0, 0xC0, 0xE0, 0xF0};
        text += static_cast<char>(kLead[more] | c >> 6 * more);
        for (unsigned int i = more; i-- > 0;)
            text += static_cast<char>(0x80 | (c >> 6 * i & 0x3F));
    }
    return text;
}

/// The bytes of a code point that begins with \p lead; 0 if none does.
inline unsigned int sizeFrom(unsigned int lead)
{
    if (lead < 0x80)
        return 1;
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

/// Removes the first code point from \p text and returns it, or U+FFFD for the longest beginning
/// of a code point that is there instead, or for one byte that begins none.
inline wchar_t takeCodePoint(std::string_view& text)
{
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned int lead = at(0);
    const unsigned int size = sizeFrom(lead);
    unsigned int c = size < 2 ? lead : lead & (0x7Fu >> size);
    unsigned int taken = 1;
    // The second byte shows a form that is not the shortest, a surrogate, or more than U+10FFFF.
    unsigned int low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned int high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    while (taken < size && taken < text.size() && at(taken) >= low && at(taken) <= high) {
        c = c << 6 | (at(taken++) & 0x3Fu);
        low = 0x80;
        high = 0xBF;
    }
    text.remove_prefix(taken);
    return static_cast<wchar_t>(taken == size ? c : 0xFFFD);
}

/// Decodes every byte.
inline std::wstring decodeUTF8(std::string_view text)
{
    std::wstring wide;
    while (!text.empty())
        wide += takeCodePoint(text);
    return wide;
}
