#include <Vx/Image/FormatUID.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

using Text = LightweightString<char>;
using Vx::Image::FormatUID;

TEST(FormatUID, TellsStandardCustomAndNone)
{
    const struct {
        FormatUID id;
        const char* text;
        bool valid, custom;
    } rows[] = {
        {FormatUID(), "0", false, false},
        {FormatUID(0u), "0", false, false},
        {FormatUID(7u), "7", true, false},
        {FormatUID(12345u), "12345", true, true},
        {FormatUID(Text("00")), "00", true, false},
        {FormatUID(Text("abcd")), "abcd", true, false},
        {FormatUID(Text("abcde")), "abcde", true, true},
        {FormatUID(Text()), "", false, false},
        {FormatUID(Text("0\0", 2)), "0", true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_STREQ(row.id.text().c_str(), row.text);
        EXPECT_EQ(row.id.valid(), row.valid);
        EXPECT_EQ(row.id.isCustom(), row.custom);
    }
}

TEST(FormatUID, DeliberatelyPassesNumbersThroughTheSignedForm)
{
    EXPECT_EQ(FormatUID(4294967295u).text(), Text("-1"));
    EXPECT_TRUE(FormatUID(4294967295u) == 4294967295u);
    EXPECT_EQ(FormatUID(2147483648u).text(), Text("-2147483648"));
    EXPECT_TRUE(FormatUID(2147483648u) != 2147483648u) << "too long for a number";
    std::ostringstream out;
    out << FormatUID(25u);
    EXPECT_EQ(out.str(), "25");
}

TEST(FormatUID, DeliberatelyEqualsNumbersOfThreeCharactersOnly)
{
    const struct {
        const char* text;
        unsigned int id;
        bool equal;
    } rows[] = {
        {"7", 7, true},  {"007", 7, true},   {"1a", 1, true},         {"abc", 0, true},
        {" 7", 7, true}, {"999", 999, true}, {"0042", 42, false},     {"1000", 1000, false},
        {"", 0, false},  {"7", 8, false},    {"12345", 12345, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const FormatUID id{Text(row.text)};
        EXPECT_EQ(id == row.id, row.equal);
        EXPECT_EQ(row.id == id, row.equal);
        EXPECT_EQ(id != row.id, !row.equal);
    }
}

TEST(FormatUID, DeliberatelyOrdersByText)
{
    // Ascending; the texts of one row are equal.
    const std::vector<std::vector<Text>> rows = {
        {Text()},
        {Text("\0", 1), Text("\0x", 2)}, // not empty, though nothing is seen of it
        {Text("0"), Text("0\0z", 3)},
        {Text("10")},
        {Text("9")},
        {Text("A")},
        {Text("a")},
        {Text("\xE9")},
    };
    for (std::size_t i = 0; i < rows.size(); ++i)
        for (std::size_t j = 0; j < rows.size(); ++j)
            for (const Text& left : rows[i])
                for (const Text& right : rows[j]) {
                    SCOPED_TRACE(std::to_string(i) + " and " + std::to_string(j));
                    const FormatUID a(left), b(right);
                    expectOrder(a, b, i, j);
                    EXPECT_EQ(a == right, i == j);
                    EXPECT_EQ(left == b, i == j);
                    EXPECT_TRUE(i != j || std::hash<FormatUID>()(a) == std::hash<FormatUID>()(b));
                }
}

TEST(FormatUID, SharesItsTextAndKeepsItWhenAssignedAnEqualOne)
{
    const Text text("abcde");
    FormatUID id(text);
    EXPECT_EQ(text.useCount(), 2u);
    const FormatUID equal{Text("abcde")}, other{Text("abcdf")};
    id = equal;
    EXPECT_EQ(id.text().c_str(), text.c_str()) << "nothing changes";
    id = other;
    EXPECT_EQ(id.text().c_str(), other.text().c_str());
    EXPECT_EQ(text.useCount(), 1u);
}
