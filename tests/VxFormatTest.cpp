#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fmt/xchar.h>
// Included after fmt, so that it defines the formatters of fmt, too.
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

// What both libraries write; \p LIBRARY is fmt or std.
#define EXPECT_FORMATS(LIBRARY)                                                                    \
    EXPECT_EQ(LIBRARY::format("[{}] [{:>6}] [{:.2}] [{:*^8}]", kClip, kClip, kClip, kClip),        \
              "[clip] [  clip] [cl] [**clip**]");                                                  \
    EXPECT_EQ(LIBRARY::format("{}", LightweightString<char>()), "");                               \
    EXPECT_EQ(LIBRARY::format("{}", kZeros), std::string("a\0b", 3));                              \
    EXPECT_EQ(LIBRARY::format(L"[{:<8}]", kWide), L"[Z\u00FCrich  ]");                             \
    EXPECT_EQ(LIBRARY::format("{} {:>9} {:>4}", kId, kPair, kFormat),                              \
              "0123abcd-4567-89ef-0123-456789abcdef   rate=25   25")

TEST(VxFormat, FmtWritesStringsPairsAndIdentifiers)
{
    EXPECT_FORMATS(fmt);
    Vx::AttribValuePair changed(kPair);
    changed.form = 2;
    changed.value = "50";
    const std::vector<Vx::AttribValuePair> pairs{kPair, changed};
    EXPECT_EQ(fmt::format("{}", fmt::join(pairs, "; ")), "rate=25; rate=50");
}

#ifdef __cpp_lib_format
TEST(VxFormat, StdWritesStringsPairsAndIdentifiers) { EXPECT_FORMATS(std); }
#endif

} // namespace
