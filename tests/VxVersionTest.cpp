#include <Vx/VxVersion.h>

#include <Vx/VxApplication.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

struct Named : Vx::Application {
    Named(const wchar_t* name, const wchar_t* version) : Application(name, version) {}
    void run() override {}
};

} // namespace

TEST(Version, LibraryVersionIsAConstant)
{
    EXPECT_STREQ(vxDllVersionStr(), "17.2.0.56356");
    EXPECT_EQ(vxDllVersionStr(), vxDllVersionStr());
}

TEST(Version, LabelNamesApplicationBuildAndDate)
{
    ScriptedPlatform platform;
    Named editor(L"Editor", L"1.0");
    EXPECT_EQ(Vx::getVersionLabel(), L"Editor 1.0 (56356) - Jan  8 2026");
    EXPECT_EQ(editor.getName(), L"Editor") << "shared at first, then copied";
    Named nameless(L"", L"2\x00e4");
    EXPECT_EQ(Vx::getVersionLabel(), L" 2\x00e4 (56356) - Jan  8 2026");

    struct Renumbered : Named {
        using Named::Named;
        LightweightString<wchar_t> getVersion() const override { return L"own"; }
    } own(L"N", L"1");
    EXPECT_EQ(Vx::getVersionLabel(), L"N own (56356) - Jan  8 2026");
}

TEST(Version, DisplayYearIsForTheExactMajorVersion)
{
    const struct {
        LightweightString<char> major;
        const wchar_t* year;
    } rows[] = {
        {"14", L"2020"}, {"15", L"2022"}, {"16", L"2023"}, {"17", L"2025"},
        {"", L""},       {"13", L""},     {"18", L""},     {"016", L""},
        {" 16", L""},    {"16 ", L""},    {"17.2", L""},   {{"16\0", 3}, L""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.major);
        const LightweightString<wchar_t> year = Vx::getVersionDisplayString(row.major);
        EXPECT_EQ(year, row.year);
        EXPECT_EQ(year.capacity(), year.empty() ? 0u : 8u);
    }
}
