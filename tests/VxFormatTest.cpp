#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fmt/xchar.h>
// fmt comes first, for the header to see it.
#include <Vx/VxFormat.h>

#include <gtest/gtest.h>
#include <string>

namespace {

const LightweightString<char> kClip("clip");
const LightweightString<wchar_t> kWide(L"Z\u00FCrich");
const LightweightString<char> kZeros("a\0b", 3);
const Vx::AttribValuePair kPair("rate=25", '=');
const Vx::UUID kId("0123ABCD-4567-89EF-0123-456789ABCDEF");
const Vx::Image::FormatUID kFormat(25u);

TEST(VxFormat, FmtWritesTextsAsStringViews)
{
    EXPECT_EQ(fmt::format("[{}] [{:>6}] [{:.2}] [{:*^8}]", kClip, kClip, kClip, kClip),
              "[clip] [  clip] [cl] [**clip**]");
    EXPECT_EQ(fmt::format("{}", LightweightString<char>()), "");
    EXPECT_EQ(fmt::format("{}", kZeros), std::string("a\0b", 3));
    EXPECT_EQ(fmt::format(L"[{:<8}]", kWide), L"[Z\u00FCrich  ]");
}

TEST(VxFormat, FmtWritesIdentifiersAndPairs)
{
    EXPECT_EQ(fmt::format("{} {:>9} {:>4}", kId, kPair, kFormat),
              "0123abcd-4567-89ef-0123-456789abcdef   rate=25   25");
    Vx::AttribValuePair changed(kPair);
    changed.form = 2;
    changed.value = "50";
    EXPECT_EQ(fmt::format("{}", changed), "rate=50");
}

// In the ranges of fmt, too, a string is a text and not a list of characters.
TEST(VxFormat, FmtWritesListsOfTexts)
{
    const std::vector<Vx::AttribValuePair> pairs{kPair, kPair};
    EXPECT_EQ(fmt::format("{}", fmt::join(pairs, "; ")), "rate=25; rate=25");
}

#ifdef __cpp_lib_format
TEST(VxFormat, StdWritesTextsAsStringViews)
{
    EXPECT_EQ(std::format("[{}] [{:>6}] [{:.2}] [{:*^8}]", kClip, kClip, kClip, kClip),
              "[clip] [  clip] [cl] [**clip**]");
    EXPECT_EQ(std::format("{}", kZeros), std::string("a\0b", 3));
    EXPECT_EQ(std::format(L"[{:<8}]", kWide), L"[Z\u00FCrich  ]");
    EXPECT_EQ(std::format("{} {:>9} {:>4}", kId, kPair, kFormat),
              "0123abcd-4567-89ef-0123-456789abcdef   rate=25   25");
}
#endif

} // namespace
