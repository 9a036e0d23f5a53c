#include <Vx/VxEmail.h>

#include <Testing.h>
#include <Vx/LightweightString.h>

TEST(IsAcceptableEmailAddress, NeedsOneAtAndADotWithTwoBytesAfterIt)
{
    const struct {
        const char* name;
        const wchar_t* address;
        bool acceptable;
    } rows[] = {
        {"ordinary", L"ab@cd.ef", true},
        {"shortest", L"a@b.cc", true},
        {"the domain may begin with the dot", L"a@.cc", true},
        {"the last dot counts", L"a@b.cc.d", false},
        {"spaces are accepted", L"a b@c d.ef", true},
        {"consecutive and leading dots are accepted", L".a..b@c..de", true},
        {"two bytes of one letter", L"a@b.\u00E9", true},
        {"empty", L"", false},
        {"no at", L"ab.cdef", false},
        {"at only", L"@", false},
        {"at first", L"@cd.ef", false},
        {"at last", L"ab@", false},
        {"two ats", L"a@b@cd.ef", false},
        {"one letter after the dot", L"a@b.c", false},
        {"dot at the end", L"a@b.", false},
        {"a dot before the at only", L"a.bc@def", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Vx::isAcceptableEmailAddress(row.address), row.acceptable);
    }
}

TEST(IsAcceptableEmailAddress, RejectsSevenCharactersAndASecondAtAnywhere)
{
    for (wchar_t c = 0x20; c < 0x7F; ++c) {
        SCOPED_TRACE(static_cast<int>(c));
        const bool rejected = std::wcschr(L"\"():;,\\@", c) != nullptr;
        LightweightString<wchar_t> local(L"a");
        local += c;
        LightweightString<wchar_t> domain(L"a@b");
        domain += c;
        EXPECT_EQ(Vx::isAcceptableEmailAddress(local + L"b@cd.ef"), !rejected);
        EXPECT_EQ(Vx::isAcceptableEmailAddress(domain + L".ef"), !rejected);
    }
}

TEST(IsAcceptableEmailAddress, AcceptsAnyString)
{
    EXPECT_FALSE(Vx::isAcceptableEmailAddress(LightweightString<wchar_t>(L"a\0@b.cc", 7)))
        << "the domain ends at a zero";
    const wchar_t lone[] = {L'a', L'@', L'b', L'.', wchar_t(0xD800), wchar_t(0x7FFFFFFF), 0};
    EXPECT_TRUE(Vx::isAcceptableEmailAddress(lone)) << "not Unicode, but two bytes and more";
}
