// Text conversion.
#include "Check.h"

#include <Vx/platform/iSystemUtils.h>
#include <cstdio>

namespace {

using Wide = LightweightString<wchar_t>;
using Narrow = LightweightString<char>;

iSystemUtils* utils() { return OS()->systemUtils(); }

std::string shown(const Wide& text)
{
    std::string numbers;
    for (wchar_t c : text) {
        char number[16];
        std::snprintf(number, sizeof number, " U+%04X", static_cast<unsigned int>(c));
        numbers += number;
    }
    return numbers.empty() ? " nothing" : numbers;
}

void expectDecoded(const std::string& bytes, const std::wstring& expected)
{
    const Wide decoded = utils()->fromUTF8(bytes.data(), static_cast<unsigned int>(bytes.size()));
    if (decoded == Wide(expected))
        return;
    std::string hex;
    for (char byte : bytes) {
        char number[8];
        std::snprintf(number, sizeof number, " %02X",
                      static_cast<unsigned int>(static_cast<unsigned char>(byte)));
        hex += number;
    }
    throw Failure{"the bytes" + hex + " give" + shown(decoded) + ", expected" +
                  shown(Wide(expected))};
}

void ascii()
{
    require(utils()->wideFromAscii(nullptr).empty(), "null is not empty");
    require(utils()->wideFromAscii("").empty(), "\"\" is not empty");
    char all[256];
    for (int i = 0; i < 255; ++i)
        all[i] = static_cast<char>(i + 1);
    all[255] = 0;
    const Wide wide = utils()->wideFromAscii(all);
    require(wide.length() == 255, "255 characters became " + std::to_string(wide.length()));
    for (unsigned int i = 0; i < 255; ++i)
        require(wide[i] == static_cast<wchar_t>(i + 1),
                "the byte " + std::to_string(i + 1) + " became" + shown(Wide(&wide[i], 1)));
}

void everyScalar()
{
    for (unsigned int c = 1; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        const Wide one(std::wstring(1, static_cast<wchar_t>(c)));
        const Narrow bytes = utils()->toUTF8(one);
        const unsigned int size = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        require(bytes.length() == size, "not the shortest form:" + shown(one));
        require(utils()->fromUTF8(bytes.c_str(), bytes.length()) == one,
                "does not survive:" + shown(one));
    }
}

void malformed()
{
    constexpr wchar_t r = 0xFFFD;
    expectDecoded("a\x80z", {L'a', r, L'z'});
    expectDecoded("\xC0\xAF", {r, r});
    expectDecoded("\xE0\x9F\x80", {r, r, r});
    expectDecoded("\xED\xA0\x80", {r, r, r});
    expectDecoded("\xF4\x90\x80\x80", {r, r, r, r});
    expectDecoded("\xF8\x88\x80\x80\x80", {r, r, r, r, r});
    expectDecoded("\xE2\x82", {r});
    expectDecoded("\xE2\x82zz", {r, L'z', L'z'});
    expectDecoded("\xF0\x9F\x98", {r});
    expectDecoded("\xF0\x9F\x98\xF0\x9F\x98\x80", {r, 0x1F600});
    expectDecoded("\xF1\x80\x80\xE1\x80\xC2z", {r, r, r, L'z'});
}

void lengths()
{
    require(utils()->fromUTF8(nullptr, iSystemUtils::kUpToTerminator).empty(), "null is not empty");
    require(utils()->fromUTF8("abc", 0).empty(), "length 0 is not empty");
    require(utils()->fromUTF8("abc", 2) == L"ab", "the length is ignored");
    require(utils()->fromUTF8("abc", iSystemUtils::kUpToTerminator) == L"abc",
            "all bits set does not mean up to the terminator");
    expectDecoded(std::string("a\0b", 3), std::wstring(L"a\0b", 3));
    const Wide wide(L"a\0b", 3);
    require(utils()->toUTF8(wide) == Narrow("a\0b", 3), "an embedded NUL ends the string");
    require(utils()->toUTF8(Wide()).empty(), "the empty string is not empty");
}

void noCodePoints()
{
    for (unsigned int c : {0xD800u, 0xDFFFu, 0x110000u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        require(utils()->toUTF8(Wide(std::wstring(1, static_cast<wchar_t>(c)))) == "\xEF\xBF\xBD",
                "the value " + std::to_string(c) + " is not a code point and must become U+FFFD");
}

} // namespace

std::vector<Check> textChecks()
{
    return {
        {"text.ascii", "wideFromAscii widens byte by byte", ascii},
        {"text.scalars", "every code point survives UTF-8 and back", everyScalar},
        {"text.malformed", "each maximal ill-formed part becomes one U+FFFD", malformed},
        {"text.lengths", "lengths, terminators and embedded NULs are respected", lengths},
        {"text.no-code-points", "values that are not code points become U+FFFD", noCodePoints},
    };
}
