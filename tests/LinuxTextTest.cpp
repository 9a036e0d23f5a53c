// Text conversion of the Linux platform, held against two independent codecs: ICU says what
// malformed text decodes to, utfcpp what well-formed text is. Every input and output ends
// right before a page that cannot be touched.

#include "SystemUtils.h"
#include "text/Utf8.h"
#include "text/Utf8Vector.h"

#include "GuardedBlock.h"

#include <Testing.h>
#include <unicode/utf8.h>
#include <utf8.h>

namespace {

using Wide = std::u32string;

Wide toWide(const LightweightString<wchar_t>& text) { return Wide(text.begin(), text.end()); }

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
    return utf8::utf32to8(valid);
}

// Decodes through every way there is; all must agree with ICU.
void expectDecodes(const std::string& text)
{
    const Wide expected = decodeByIcu(text);
    const GuardedBlock<char> input(text.data(), text.size());
    const unsigned int length = static_cast<unsigned int>(text.size());
    SystemUtils utils;
    ASSERT_EQ(toWide(utils.fromUTF8(input.begin(), length)), expected)
        << testing::PrintToString(text);

    ASSERT_EQ(Utf8::Plain::decodedLength(input.begin(), text.size()), expected.size())
        << testing::PrintToString(text);
    const GuardedBlock<wchar_t> plain(nullptr, expected.size());
    Utf8::Plain::decode(input.begin(), text.size(), plain.begin());
    ASSERT_EQ(Wide(plain.begin(), plain.end()), expected) << testing::PrintToString(text);

#if VX_UTF8_VECTOR
    const Utf8::Vector::Scan scan = Utf8::Vector::scan(input.begin(), text.size());
    ASSERT_EQ(scan.wellFormed, utf8::is_valid(text)) << testing::PrintToString(text);
    if (!scan.wellFormed)
        return;
    ASSERT_EQ(scan.codePoints, expected.size()) << testing::PrintToString(text);
    const GuardedBlock<wchar_t> fast(nullptr, expected.size());
    Utf8::Vector::decodeWellFormed(input.begin(), text.size(), fast.begin());
    ASSERT_EQ(Wide(fast.begin(), fast.end()), expected) << testing::PrintToString(text);
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
    Utf8::Plain::encode(input.begin(), chars.size(), plain.begin());
    ASSERT_EQ(std::string(plain.begin(), plain.end()), expected);

#if VX_UTF8_VECTOR
    ASSERT_EQ(Utf8::Vector::encodedLength(input.begin(), chars.size()), expected.size());
    const GuardedBlock<char> fast(nullptr, expected.size());
    Utf8::Vector::encode(input.begin(), chars.size(), fast.begin(), fast.end());
    ASSERT_EQ(std::string(fast.begin(), fast.end()), expected);
#endif
}

struct Random : Seeded {
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>((*this)() % limit); }
};

// Characters of one length, of mixed lengths, and runs of ASCII: what the fast methods
// tell apart.
char32_t randomScalar(Random& random, unsigned int bytes)
{
    static constexpr char32_t kFirst[] = {0, 0, 0x80, 0x800, 0x10000};
    static constexpr char32_t kLast[] = {0, 0x7F, 0x7FF, 0xFFFF, 0x10FFFF};
    for (;;) {
        const char32_t c = kFirst[bytes] + random.below(kLast[bytes] - kFirst[bytes] + 1);
        if (c < 0xD800 || c > 0xDFFF)
            return c;
    }
}

Wide randomText(Random& random)
{
    Wide text;
    for (unsigned int runs = random.below(6); runs > 0; --runs) {
        const unsigned int bytes = random.below(5); // 0: mixed
        for (unsigned int count = random.below(70); count > 0; --count)
            text += randomScalar(random, bytes != 0 ? bytes : 1 + random.below(4));
    }
    return text;
}

TEST(Utf8, EveryScalarValueGoesBothWays)
{
    Wide all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c == 0xD800)
            c = 0xE000;
        all += c;
        const Wide one(1, c);
        const std::string bytes = encodeByUtfcpp(one);
        if (Utf8::Plain::encodedLength(fromWide(one).c_str(), 1) != bytes.size() ||
            std::string_view(Utf8::encode(fromWide(one).c_str(), 1)) != bytes ||
            toWide(Utf8::decode(bytes.data(), bytes.size())) != one)
            FAIL() << "U+" << std::hex << static_cast<unsigned int>(c);
    }
    expectEncodes(all);
    expectDecodes(encodeByUtfcpp(all));
}

// Alone, so that the end cuts it off, and inside texts long enough for every fast method.
void expectDecodesEverywhere(const std::string& sequence)
{
    expectDecodes(sequence);
    expectDecodes(std::string(61, 'a') + sequence + "\xC3\xA9 \xE2\x82\xAC bbbbbbb" + sequence +
                  std::string(45, 'c'));
}

TEST(Utf8, ShortSequencesDecodeAsByIcu)
{
    for (int first = 0; first < 0x100 && !HasFatalFailure(); ++first) {
        expectDecodesEverywhere({char(first)});
        for (int second = 0; second < 0x100; ++second)
            expectDecodesEverywhere({char(first), char(second)});
    }
    // Both sides of every border that the definition of UTF-8 draws.
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

TEST(Utf8, NoticesAGapAtEveryPlaceInAscii)
{
    for (const std::string part : {"\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xA9"})
        for (std::size_t before = 0; before < 150 && !HasFatalFailure(); ++before)
            for (std::size_t behind : {0u, 1u, 90u})
                expectDecodes(std::string(before, 'a') + part + std::string(behind, 'b'));
}

TEST(Utf8, RandomTextGoesBothWaysAndItsFaultsDecodeAsByIcu)
{
    Random random;
    for (int round = 0; round < 4000 && !HasFatalFailure(); ++round) {
        const Wide wellFormed = randomText(random);
        expectEncodes(wellFormed);
        std::string text = encodeByUtfcpp(wellFormed);
        expectDecodes(text);
        for (unsigned int faults = random.below(4); faults > 0 && !text.empty(); --faults) {
            char& byte = text[random.below(static_cast<unsigned int>(text.size()))];
            byte = static_cast<char>(random.below(2) != 0 ? random.below(256)
                                                          : 0x80u + random.below(64));
        }
        expectDecodes(text);
    }
}

TEST(Utf8, EncodesNoCodePointsAsReplacements)
{
    const char32_t odd[] = {0xD7FF, 0xD800,   0xDBFF,   0xDC00,     0xDFFF,     0xE000,
                            0xFFFE, 0x10FFFF, 0x110000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (char32_t c : odd)
        for (unsigned int before : {0u, 1u, 17u, 63u})
            for (unsigned int behind : {0u, 40u}) {
                SCOPED_TRACE(static_cast<unsigned int>(c));
                expectEncodes(Wide(before, U'é') + c + Wide(behind, U'世'));
            }
}

TEST(SystemUtils, EmptyTextHasNoBlock)
{
    SystemUtils utils;
    EXPECT_EQ(utils.fromUTF8(nullptr, 7).capacity(), 0u);
    EXPECT_EQ(utils.fromUTF8(nullptr, iSystemUtils::kUpToTerminator).capacity(), 0u);
    EXPECT_EQ(utils.fromUTF8("abc", 0).capacity(), 0u);
    EXPECT_EQ(utils.wideFromAscii(nullptr).capacity(), 0u);
    EXPECT_EQ(utils.wideFromAscii("").capacity(), 0u);
    EXPECT_EQ(utils.toUTF8({}).capacity(), 0u);
}

TEST(SystemUtils, ResultsHaveTheSmallestPowerOfTwoAboveTheirLength)
{
    SystemUtils utils;
    for (unsigned int length = 1; length < 300; ++length) {
        SCOPED_TRACE(length);
        unsigned int capacity = 1;
        while (capacity <= length)
            capacity *= 2;
        const std::string bytes(length, 'x'), twice(2 * length, '\xC3');
        std::string accents;
        for (unsigned int i = 0; i < length; ++i)
            accents += "é";
        EXPECT_EQ(utils.wideFromAscii(bytes.c_str()).capacity(), capacity);
        EXPECT_EQ(utils.fromUTF8(bytes.data(), length).capacity(), capacity);
        EXPECT_EQ(utils.fromUTF8(accents.data(), 2 * length).capacity(), capacity);
        EXPECT_EQ(utils.fromUTF8(twice.data(), length).capacity(), capacity) << "malformed";
        EXPECT_EQ(utils.toUTF8(fromWide(Wide(length, U'x'))).capacity(), capacity);
    }
}

} // namespace
