#include <Vx/VxStringUtils.h>

#include <cctype>
#include <clocale>
#include <cwctype>
#include <dlfcn.h>
#include <locale.h>

#include <Texts.h>
#include <Vx/testing/ScriptedPlatform.h>

// Replaces the case mapping of the C library by one that can become Turkish, with or without a
// mapping table at another address.

namespace {

bool turkish = false;
const int otherTables[4] = {};
const int* otherTable = nullptr;

template <class Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" VX_API std::wint_t towlower(std::wint_t c) noexcept
{
    static auto* const plain = real<std::wint_t(std::wint_t)>("towlower");
    return turkish && c == L'I' ? L'\u0131' : plain(c);
}
extern "C" VX_API std::wint_t towupper(std::wint_t c) noexcept
{
    static auto* const plain = real<std::wint_t(std::wint_t)>("towupper");
    return turkish && c == L'i' ? L'\u0130' : plain(c);
}
extern "C" VX_API std::wctrans_t wctrans(const char* name) noexcept
{
    static auto* const plain = real<std::wctrans_t(const char*)>("wctrans");
    return otherTable != nullptr ? otherTable : plain(name);
}

namespace {

Wide make(const std::wstring& text) { return Wide(std::wstring_view(text)); }

/// The C library, character by character.
std::wstring plainLower(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), towlower);
    return text;
}
std::wstring plainUpper(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), towupper);
    return text;
}
void expectPlainCases(const std::wstring& text)
{
    EXPECT_TRUE(str(Vx::toLower(make(text))) == plainLower(text));
    EXPECT_TRUE(str(Vx::toUpper(make(text))) == plainUpper(text));
}

/// What substituteCaseInsensitive() does, step by step.
std::wstring plainSubstitute(const std::wstring& text, const std::wstring& pattern,
                             const std::wstring& replacement)
{
    if (pattern.empty())
        return text;
    std::wstring result = text;
    const std::wstring lowered = plainLower(text), wanted = plainLower(pattern);
    for (long at = long(text.size()) - long(pattern.size()); at >= 0; --at)
        if (lowered.compare(std::size_t(at), pattern.size(), wanted) == 0) {
            result.replace(std::size_t(at), pattern.size(), replacement);
            at -= long(pattern.size()) - 1;
        }
    return result;
}

} // namespace

TEST(NarrowCase, ConvertsBytesAsSignedCharsByTheLocale)
{
    for (const char* locale : {"C", "C.UTF-8"}) {
        SCOPED_TRACE(locale);
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        for (int i = -128; i < 128; ++i) {
            const char c = static_cast<char>(i);
            const Narrow text(&c, 1);
            EXPECT_EQ(Vx::toLower(text)[0], static_cast<char>(std::tolower(i))) << i;
            EXPECT_EQ(Vx::toUpper(text)[0], static_cast<char>(std::toupper(i))) << i;
        }
    }
    EXPECT_EQ(Vx::toLower(Narrow("MiX\0\xC3\x84", 6)), Narrow("mix\0\xC3\x84", 6));
    EXPECT_EQ(Vx::toUpper(Narrow("MiX\0\xC3\xA4", 6)), Narrow("MIX\0\xC3\xA4", 6));
}

TEST(WideCase, FollowsTheCLibraryForEveryCodePointAndLength)
{
    for (const char* locale : {"C", "C.UTF-8"}) {
        SCOPED_TRACE(locale);
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        std::wstring text;
        for (wchar_t c = 0; c < 0x110100; ++c)
            text += c;
        for (wchar_t c : {0x7FFFFFFF, -1, -100, int(0x80000000), int(0x80000041)})
            text += c;
        expectPlainCases(text);
    }
    Seeded random;
    for (unsigned int length = 0; length < 200; ++length)
        for (unsigned int rare : {1u, 4u, 30u, 1000u}) {
            std::wstring text;
            for (unsigned int i = 0; i < length; ++i)
                text += static_cast<wchar_t>(random() % (random() % rare == 0 ? 0xA00 : 0x80));
            expectPlainCases(text);
            ASSERT_FALSE(HasFailure()) << Narrow(toUTF8(make(text)));
        }
}

TEST(WideCase, FollowsTheLocaleWhenItBecomesTurkish)
{
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    const std::wstring text = L"It Is The Dog, THE DOG! In \u0130stanbul; \u0391\u0392 IIII iiii";
    const auto expectPlain = [&](const char* when) {
        SCOPED_TRACE(when);
        expectPlainCases(text);
    };
    expectPlain("before");
    turkish = true;
    ASSERT_NE(plainLower(L"I"), L"i");
    for (const int& table : otherTables) { // more than there are tables
        otherTable = &table;
        expectPlain("Turkish");
        expectPlain("Turkish still");
    }
    turkish = false;
    otherTable = nullptr;
    expectPlain("after");

    // A locale of the thread may be freed and another allocated at its address: it has no table.
    const locale_t own = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
    const locale_t old = uselocale(own);
    expectPlain("own locale");
    turkish = true;
    expectPlain("own locale, Turkish");
    turkish = false;
    uselocale(old);
    freelocale(own);
    expectPlain("at the end");
}

TEST(Case, ConvertsInPlaceAndLeavesSharersUnchanged)
{
    const auto check = [](auto text, auto upper, auto lower) {
        const auto sharer(text);
        EXPECT_EQ(&Vx::toUpper(text), &text);
        EXPECT_EQ(text, upper);
        const auto* const block = text.c_str();
        EXPECT_EQ(&Vx::toLower(text), &text);
        EXPECT_EQ(text, lower);
        EXPECT_EQ(text.c_str(), block) << "in place if unshared";
        EXPECT_NE(sharer, lower);
    };
    check(Narrow("MiX"), Narrow("MIX"), Narrow("mix"));
    check(Wide(L"MiX"), Wide(L"MIX"), Wide(L"mix"));

    const Wide constant(L"abc");
    EXPECT_NE(Vx::toLower(constant).c_str(), constant.c_str());
    EXPECT_EQ(constant.useCount(), 1u);
    EXPECT_EQ(Vx::toLower(Wide()).capacity(), 0u);
}

TEST(Strip, RemovesTheRunAtOneEnd)
{
    const struct {
        const wchar_t *text, *withoutLeading, *withoutTrailing;
    } rows[] = {
        {L"", L"", L""},
        {L"xxxxxxabcxxxxxxx", L"abcxxxxxxx", L"xxxxxxabc"},
        {L"XaxbX", L"XaxbX", L"XaxbX"},
        {L"xxx", L"xxx", L"xxx"}, // deliberately kept if there is nothing else
    };
    for (const auto& row : rows) {
        const Wide text(row.text);
        SCOPED_TRACE(toUTF8(text));
        Wide leading(text), trailing(text), alone(row.text);
        const wchar_t* const block = alone.c_str();
        EXPECT_EQ(&Vx::stripLeadingChars(leading, L'x'), &leading);
        EXPECT_EQ(&Vx::stripTrailingChars(trailing, L'x'), &trailing);
        EXPECT_EQ(Vx::stripTrailingChars(alone, L'x').c_str(), block) << "in place";
        for (const auto& [stripped, expected] : {std::pair(leading, Wide(row.withoutLeading)),
                                                 std::pair(trailing, Wide(row.withoutTrailing))}) {
            EXPECT_EQ(stripped, expected);
            EXPECT_EQ(stripped.capacity(), expected.capacity());
            EXPECT_EQ(stripped.c_str() == text.c_str(), expected == text) << "nothing to copy";
        }
        EXPECT_EQ(text, row.text);
    }
}

TEST(EndsWith, LooksAtTheLastCharacter)
{
    std::setlocale(LC_ALL, "C.UTF-8");
    const Wide name(L"File.TXT");
    EXPECT_FALSE(Vx::endsWith(name, L't', true));
    EXPECT_TRUE(Vx::endsWith(name, L'T', true));
    EXPECT_TRUE(Vx::endsWith(Wide(L"\u00E9"), L'\u00C9', false));
    EXPECT_FALSE(Vx::endsWith(Wide(), L't', false));
    EXPECT_FALSE(Vx::endsWith(Wide(), L'\0', true)) << "the terminator does not count";
}

TEST(SubstituteCaseInsensitive, FollowsTheRuleForRandomStrings)
{
    Seeded random;
    const auto text = [&](std::size_t length) {
        std::wstring result;
        for (std::size_t i = 0; i < length; ++i)
            result += L"aAbB"[random() % 5]; // zeros are characters, too
        return result;
    };
    for (int i = 0; i < 20000; ++i) {
        const std::wstring where = text(random() % 40), what = text(random() % 6),
                           with = text(random() % 4);
        const Wide source = make(where), pattern = make(what);
        const Wide result = Vx::substituteCaseInsensitive(source, pattern, make(with));
        const Wide expected = make(plainSubstitute(where, what, with));
        SCOPED_TRACE(testing::Message() << toUTF8(source) << " " << toUTF8(pattern));
        ASSERT_EQ(result, expected);
        ASSERT_EQ(result.capacity(), expected.capacity());
        ASSERT_TRUE((!what.empty() && what.size() <= where.size()) ||
                    result.c_str() == source.c_str());
    }
}

TEST(SubstituteCaseInsensitive, HostileInputTakesNoLonger)
{
    // Comparing at every position would take 10^11 steps.
    const std::wstring half(100000, L'a');
    const Wide text = make(std::wstring(1000000, L'A'));
    const Wide result = Vx::substituteCaseInsensitive(text, make(half + L'b' + half), Wide(L"x"));
    EXPECT_EQ(result.c_str(), text.c_str());
}

TEST(SubstituteCaseInsensitive, RefusesATooLongResult)
{
    const Wide text = make(std::wstring(40000, L'a'));
    for (const std::size_t length : {60000u, 120000u}) { // 2^31 and 2^32 characters
        const Wide with = make(std::wstring(length, L'b'));
        EXPECT_THROW(Vx::substituteCaseInsensitive(text, Wide(L"a"), with), std::length_error);
    }
}

TEST(Spaces, AreTrimmedAtTheEndAndCountAsEmpty)
{
    const std::pair<Narrow, Narrow> rows[] = {
        {{}, ""}, {"   ", ""}, {"  a b  ", "  a b"}, {"\t ", "\t"}, {{" \0", 2}, {" \0", 2}}};
    for (const auto& [given, trimmed] : rows) {
        SCOPED_TRACE(given);
        Narrow shared(given), text(given.c_str(), given.length());
        const char* const block = text.c_str();
        EXPECT_EQ(isEssentiallyEmpty(given), trimmed.empty());
        EXPECT_EQ(&trimTrailingSpaces(text), &text);
        EXPECT_EQ(text, trimmed);
        EXPECT_TRUE(text.c_str() == block || text.capacity() == 0) << "in place, or no block";
        EXPECT_EQ(trimTrailingSpaces(shared), trimmed);
        EXPECT_EQ(shared.capacity() == 0, trimmed.empty());
    }
    Wide wide(L"ab ");
    EXPECT_EQ(trimTrailingSpaces(wide), L"ab") << "a template over the string type";
}

TEST(WidthConversion, CallsThePlatformOnce)
{
    ScriptedPlatform platform;
    platform.logCalls();
    EXPECT_EQ(toUTF8(Wide(L"a\0\u00E9", 3)), Narrow("a\0\xC3\xA9", 4));
    EXPECT_EQ(platform.takeLog(), "toUTF8");
    EXPECT_EQ(fromUTF8(Narrow("a\0\xC3\xA9", 4)), Wide(L"a\0\u00E9", 3));
    EXPECT_EQ(fromUTF8("a\xC3\xA9z", 3), Wide(L"a\u00E9"));
    EXPECT_EQ(platform.takeLog(), "fromUTF8 fromUTF8");
    EXPECT_EQ(fromUTF8("a\xC3\xA9\0z", -1), Wide(L"a\u00E9"));
    EXPECT_EQ(platform.takeLog(), "fromUTF8(-1)");
    EXPECT_EQ(Vx::WStringFromAscii("plain"), L"plain");
    EXPECT_EQ(platform.takeLog(), "wideFromAscii");
    EXPECT_EQ(fromUTF8(Narrow()).capacity() + toUTF8(Wide()).capacity(), 0u);
}
