// Text conversion of the Linux platform against two independent codecs: ICU defines what
// malformed text decodes to, utfcpp what well-formed text is. Every input and output ends right
// before an inaccessible page. platform-check converts every character both ways, the fuzz target
// utf8 random text.

#include "SystemUtils.h"
#include "text/Utf8.h"
#include "text/Utf8Decode.h"
#include "text/Utf8Encode.h"
#include "text/Utf8Plain.h"

#include "GuardedBlock.h"

#include <Testing.h>
#include <iterator>
#include <unicode/utf8.h>
#include <utf8.h>

namespace {

using Wide = std::u32string;

Wide toWide(const LightweightString<wchar_t>& string) { return Wide(string.begin(), string.end()); }

LightweightString<wchar_t> fromWide(const Wide& text)
{
    std::wstring wide(text.begin(), text.end());
    return LightweightString<wchar_t>(std::wstring_view(wide));
}

Wide decodeByIcu(const std::string& text)
{
    Wide decoded;
    const int length = static_cast<int>(text.size());
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (int i = 0; i < length;) {
        UChar32 codePoint;
        U8_NEXT_OR_FFFD(bytes, i, length, codePoint);
        decoded += static_cast<char32_t>(codePoint);
    }
    return decoded;
}

std::string encodeByUtfcpp(const Wide& text)
{
    Wide valid;
    for (char32_t c : text)
        valid += c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF) ? U'\xFFFD' : c;
    std::string encoded;
    utf8::utf32to8(valid.begin(), valid.end(), std::back_inserter(encoded));
    return encoded;
}

// The service, the plain code and the kernel must all agree with ICU.
void expectDecodes(const std::string& text)
{
    const Wide expected = decodeByIcu(text);
    const std::string shown = testing::PrintToString(text);
    const GuardedBlock<char> input(text.data(), text.size());
    SystemUtils utils;
    ASSERT_EQ(toWide(utils.fromUTF8(input.begin(), static_cast<unsigned int>(text.size()))),
              expected)
        << shown;

    ASSERT_EQ(Utf8::Plain::decodedLength(input.begin(), text.size()), expected.size()) << shown;
    const GuardedBlock<wchar_t> plain(nullptr, expected.size());
    Utf8::Plain::decode(input.begin(), text.size(), plain.begin());
    ASSERT_EQ(Wide(plain.begin(), plain.end()), expected) << shown;

#if VX_UTF8_SSE
    const bool wellFormed = utf8::is_valid(text.begin(), text.end());
    ASSERT_EQ(Utf8::Sse::countWellFormed(input.begin(), text.size()),
              wellFormed ? expected.size() : Utf8::Sse::kMalformed)
        << shown;
    if (!wellFormed)
        return;
    const GuardedBlock<wchar_t> fast(nullptr, expected.size());
    Utf8::Sse::decodeWellFormed(input.begin(), text.size(), fast.begin());
    ASSERT_EQ(Wide(fast.begin(), fast.end()), expected) << shown;
#endif
}

void expectEncodes(const Wide& text)
{
    const std::string expected = encodeByUtfcpp(text);
    SystemUtils utils;
    ASSERT_EQ(std::string_view(utils.toUTF8(fromWide(text))), expected);

    const std::wstring chars(text.begin(), text.end());
    const GuardedBlock<wchar_t> input(chars.data(), chars.size());
    ASSERT_EQ(Utf8::Plain::encodedLength(input.begin(), chars.size()), expected.size());
    const GuardedBlock<char> plain(nullptr, expected.size());
    ASSERT_EQ(Utf8::Plain::encode(input.begin(), chars.size(), plain.begin()), plain.end());
    ASSERT_EQ(std::string(plain.begin(), plain.end()), expected);

#if VX_UTF8_SSE
    ASSERT_EQ(Utf8::Sse::encodedLength(input.begin(), chars.size()), expected.size());
    const GuardedBlock<char> fast(nullptr, expected.size());
    Utf8::Sse::encode(input.begin(), chars.size(), fast.begin(), expected.size());
    ASSERT_EQ(std::string(fast.begin(), fast.end()), expected);
#endif
}

// Alone, cut off by the end of the text, and inside texts long enough for the kernels.
void expectDecodesEverywhere(const std::string& sequence)
{
    expectDecodes(sequence);
    expectDecodes(std::string(61, 'a') + sequence + "\xC3\xA9 \xE2\x82\xAC bbbbbbb" + sequence +
                  std::string(45, 'c'));
}

TEST(Utf8, DecodesShortSequencesAsIcuDoes)
{
    for (int first = 0; first < 0x100 && !HasFatalFailure(); ++first) {
        expectDecodesEverywhere({char(first)});
        for (int second = 0; second < 0x100; ++second)
            expectDecodesEverywhere({char(first), char(second)});
    }
    // Both sides of every limit in the definition of UTF-8.
    const std::string trails = "\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xE1\xF1";
    for (char a : std::string("\x7F\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF"))
        for (char b : trails)
            for (char c : trails) {
                expectDecodesEverywhere({a, b, c});
                for (char d : trails)
                    expectDecodesEverywhere({a, b, c, d});
                if (HasFatalFailure())
                    return;
            }
}

TEST(Utf8, FindsAnIncompleteSequenceAtEveryPositionInAscii)
{
    for (const std::string part : {"\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xA9"})
        for (std::size_t before = 0; before < 70 && !HasFatalFailure(); ++before)
            for (std::size_t after : {0u, 1u, 40u})
                expectDecodes(std::string(before, 'a') + part + std::string(after, 'b'));
}

TEST(Utf8, EncodesValuesThatAreNoScalarsAsReplacements)
{
    const char32_t odd[] = {0xD7FF, 0xD800,   0xDBFF,   0xDC00,     0xDFFF,     0xE000,
                            0xFFFE, 0x10FFFF, 0x110000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (char32_t c : odd)
        for (unsigned int before : {0u, 1u, 17u, 63u})
            for (unsigned int after : {0u, 40u}) {
                SCOPED_TRACE(static_cast<unsigned int>(c));
                expectEncodes(Wide(before, U'é') + c + Wide(after, U'世'));
            }
}

TEST(SystemUtils, GivesResultsTheSmallestPowerOfTwoAboveTheirLength)
{
    SystemUtils utils;
    for (unsigned int length = 0; length < 300; ++length) {
        SCOPED_TRACE(length);
        unsigned int capacity = length != 0; // an empty result has no block
        while (length != 0 && capacity <= length)
            capacity *= 2;
        const std::string bytes(length, '\xE4'), malformed(length, '\xC3');
        const std::string accents = encodeByUtfcpp(Wide(length, U'é'));
        const LightweightString<wchar_t> widened = utils.wideFromAscii(bytes.c_str());
        EXPECT_EQ(toWide(widened), Wide(length, U'ä'));
        EXPECT_EQ(widened.capacity(), capacity);
        EXPECT_EQ(utils.fromUTF8(accents.data(), 2 * length).capacity(), capacity);
        EXPECT_EQ(utils.fromUTF8(malformed.data(), length).capacity(), capacity);
        EXPECT_EQ(utils.toUTF8(fromWide(Wide(length, U'x'))).capacity(), capacity);
    }
    EXPECT_EQ(utils.fromUTF8("z\0z", iSystemUtils::kUpToTerminator).length(), 1u);
    EXPECT_TRUE(utils.fromUTF8(nullptr, iSystemUtils::kUpToTerminator).empty());
    EXPECT_TRUE(utils.fromUTF8(nullptr, 7).empty());
    EXPECT_TRUE(utils.wideFromAscii(nullptr).empty());
}

} // namespace
