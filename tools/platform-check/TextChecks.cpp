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

// A check of its own: a platform that reads through null crashes.
void null()
{
    require(utils()->wideFromAscii(nullptr).empty(), "wideFromAscii does not give nothing");
    require(utils()->fromUTF8(nullptr, iSystemUtils::kUpToTerminator).empty(),
            "fromUTF8 does not give nothing");
}

void ascii()
{
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
    require(utils()->fromUTF8("abc", 0).empty(), "length 0 is not empty");
    require(utils()->fromUTF8("abc", 2) == L"ab", "the length is ignored");
    require(utils()->fromUTF8("abc", iSystemUtils::kUpToTerminator) == L"abc",
            "all bits set does not mean up to the terminator");
}

void embeddedZeros()
{
    for (unsigned int before : {0u, 1u, 7u, 16u, 100u})
        for (unsigned int after : {0u, 1u, 9u, 64u}) {
            const std::string bytes = std::string(before, 'a') + '\0' + std::string(after, 'b');
            const std::wstring wide(bytes.begin(), bytes.end());
            expectDecoded(bytes, wide);
            require(utils()->toUTF8(Wide(std::wstring_view(wide))) ==
                        Narrow(std::string_view(bytes)),
                    "toUTF8: a zero after " + std::to_string(before) + " characters and before " +
                        std::to_string(after) + " ends the string");
        }
}

// Sizes on both sides of those of usual buffers and vectors.
void sizes()
{
    require(utils()->toUTF8(Wide()).empty(), "the empty string is not empty");
    for (const unsigned int around : {16u, 32u, 64u, 256u, 1024u, 4096u, 65536u, 1u << 20})
        for (unsigned int size = around - 1; size <= around + 1; ++size)
            for (const std::wstring& end : {std::wstring(L"z"), std::wstring(L"\x20AC")}) {
                const std::wstring wide = std::wstring(size - 1, L'x') + end;
                const std::string bytes =
                    std::string(size - 1, 'x') + (end == L"z" ? "z" : "\xE2\x82\xAC");
                require(utils()->toUTF8(Wide(std::wstring_view(wide))) ==
                            Narrow(std::string_view(bytes)),
                        "toUTF8 changes a string of " + std::to_string(size) + " characters");
                require(utils()->fromUTF8(bytes.data(), static_cast<unsigned int>(bytes.size())) ==
                            Wide(std::wstring_view(wide)),
                        "fromUTF8 changes a string of " + std::to_string(size) + " characters");
            }
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
    static constexpr char kUtils[] = "iSystemUtils.h";
    return {
        {"text.ascii", Contract, kUtils,
         "Widens a NUL-terminated string: each byte becomes the code point of the same number.",
         ascii},
        {"text.null", Contract, kUtils, "Null is treated as empty.", null},
        {"text.scalars", Contract, kUtils, "narrow strings are UTF-8, wide strings UTF-32.",
         everyScalar},
        {"text.zeros", Contract, kUtils,
         "Returns all characters of wide in UTF-8, embedded zeros included.", embeddedZeros},
        {"text.sizes", Contract, kUtils,
         "Returns all characters of wide in UTF-8, embedded zeros included.", sizes},
        {"text.no-code-points", Contract, kUtils,
         "A value that is not a code point becomes U+FFFD.", noCodePoints},
        {"text.lengths", Contract, kUtils,
         "Decodes length bytes of UTF-8, or up to the terminator if length is kUpToTerminator.",
         lengths},
        {"text.malformed", Contract, kUtils, "Each maximal ill-formed part becomes one U+FFFD.",
         malformed},
    };
}
