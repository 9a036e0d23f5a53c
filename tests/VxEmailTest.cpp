#include <Vx/VxEmail.h>

#include <Testing.h>
#include <Vx/LightweightString.h>

TEST(IsAcceptableEmailAddress, AsksForOneAtAndADotWithTwoBytesBehindIt)
{
    const struct {
        const char* name;
        const wchar_t* address;
        bool acceptable;
    } rows[] = {
        {"ordinary", L"ab@cd.ef", true},
        {"shortest", L"a@b.cc", true},
        {"domain may begin with its dot", L"a@.cc", true},
        {"last dot counts", L"a@b.cc.d", false},
        {"blanks pass", L"a b@c d.ef", true},
        {"dots in a row and in front pass", L".a..b@c..de", true},
        {"two bytes may be one letter", L"a@b.\u00E9", true},
        {"empty", L"", false},
        {"no at", L"ab.cdef", false},
        {"at only", L"@", false},
        {"at first", L"@cd.ef", false},
        {"at last", L"ab@", false},
        {"two ats", L"a@b@cd.ef", false},
        {"one letter behind the dot", L"a@b.c", false},
        {"dot at the end", L"a@b.", false},
        {"dot before the at only", L"a.bc@def", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Vx::isAcceptableEmailAddress(row.address), row.acceptable);
    }
}

TEST(IsAcceptableEmailAddress, RefusesSevenCharactersAnywhere)
{
    for (wchar_t c = 0x20; c < 0x7F; ++c) {
        SCOPED_TRACE(static_cast<int>(c));
        const bool refused = std::wcschr(L"\"():;,\\@", c) != nullptr;
        LightweightString<wchar_t> local(L"a");
        local += c;
        LightweightString<wchar_t> domain(L"a@b");
        domain += c;
        EXPECT_EQ(Vx::isAcceptableEmailAddress(local + L"b@cd.ef"), !refused);
        EXPECT_EQ(Vx::isAcceptableEmailAddress(domain + L".ef"), !refused);
    }
}

TEST(IsAcceptableEmailAddress, AnswersForTextThatIsNoText)
{
    EXPECT_FALSE(Vx::isAcceptableEmailAddress(LightweightString<wchar_t>(L"a\0@b.cc", 7)))
        << "what stands behind a zero is not split";
    const wchar_t lone[] = {L'a', L'@', L'b', L'.', wchar_t(0xD800), wchar_t(0x7FFFFFFF), 0};
    EXPECT_TRUE(Vx::isAcceptableEmailAddress(lone)) << "no Unicode, but two bytes and more";
}
