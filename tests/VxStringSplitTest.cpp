#include <Vx/VxStringSplit.h>

#include <Reference.h>
#include <Texts.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

using WideVec = Vx::StringToVec<Wide>::VecT;

template <class Ch> std::string plain(const LightweightString<Ch>& text)
{
    std::string result;
    for (Ch c : text)
        result += static_cast<char>(c);
    return result;
}
const std::string& plain(const std::string& text) { return text; }

/// The pieces in angle brackets, which no test string contains.
template <class Vec> std::string show(const Vec& pieces)
{
    std::string result;
    for (const auto& piece : pieces)
        result += "<" + plain(piece) + ">";
    return result;
}

template <class Ch> std::string split(const std::string& text, char separator, unsigned int flags)
{
    typename Vx::StringToVec<LightweightString<Ch>>::VecT pieces;
    const LightweightString<Ch> source = make<Ch>(text);
    const unsigned int count =
        Vx::splitIf(source, Vx::IsMatchingChar<Ch>(static_cast<Ch>(separator)), pieces, flags);
    EXPECT_EQ(count, pieces.size());
    for (const LightweightString<Ch>& piece : pieces)
        EXPECT_EQ(piece.capacity(), make<Ch>(plain(piece)).capacity());
    return show(pieces);
}

template <class Ch> struct SplitOf : testing::Test {};
TYPED_TEST_SUITE(SplitOf, Widths);

} // namespace

TYPED_TEST(SplitOf, DeliberatelyYieldsNoEmptyPiecesAtTheEnds)
{
    EXPECT_EQ(split<TypeParam>(",a,", ',', 0), "<a>");
    EXPECT_EQ(split<TypeParam>(",a,,b,", ',', Vx::KeepSeparator), "<a,><,><b,>");
    EXPECT_EQ(split<TypeParam>(",", ',', 0), "<>");
    EXPECT_EQ(split<TypeParam>(R"("x\",y",z)", ',', Vx::RespectQuotes), R"(<"x\",y"><z>)");
}

TYPED_TEST(SplitOf, FollowsTheRulesForRandomStrings)
{
    Seeded random;
    for (int i = 0; i < 30000; ++i) {
        std::string text;
        for (std::size_t length = random() % 40; length != 0; --length)
            text += std::string("a,\"\\\0", 5)[random() % 5];
        const char separator = std::string(",\"\\\0", 4)[random() % 4];
        const unsigned int flags = static_cast<unsigned int>(random() % 8);
        ASSERT_EQ(split<TypeParam>(text, separator, flags),
                  show(reference::pieces(text, separator, flags)))
            << text << " at " << separator << " with " << flags;
    }
}

TYPED_TEST(SplitOf, AppendsToWhatIsThere)
{
    using String = LightweightString<TypeParam>;
    typename Vx::StringToVec<String>::VecT pieces(1, make<TypeParam>("old"));
    const String whole = make<TypeParam>("a");
    const Vx::IsMatchingChar<TypeParam> comma(',');
    EXPECT_EQ(Vx::splitIf(whole, comma, pieces, 0), 2u);
    EXPECT_EQ(pieces.back().c_str(), whole.c_str())
        << "a string without separators shares its block";
    EXPECT_EQ(Vx::splitIf(make<TypeParam>("b,c"), comma, pieces, 0), 4u);
    EXPECT_EQ(show(pieces), "<old><a><b><c>");

    std::vector<unsigned int> positions{77};
    Vx::findSeparators(make<TypeParam>(",a,"), comma, positions, 0);
    EXPECT_EQ(positions, (std::vector<unsigned int>{77, 0, 2}));
}

TYPED_TEST(SplitOf, SplitsAnElementOfItsOwnOutput)
{
    using String = LightweightString<TypeParam>;
    for (const char* text : {"a,b,c,d,e,f,g,h", "whole"})
        for (std::size_t spare = 0; spare < 12;
             ++spare) { // so that each piece in turn makes it grow
            typename Vx::StringToVec<String>::VecT pieces(3, make<TypeParam>("old"));
            pieces[1] = make<TypeParam>(text);
            pieces.reserve(3 + spare);
            Vx::splitIf(pieces[1], Vx::IsMatchingChar<TypeParam>(','), pieces, 0);
            EXPECT_EQ(show(pieces),
                      std::string("<old><") + text + "><old>" + split<TypeParam>(text, ',', 0));
        }
}

TYPED_TEST(SplitOf, PositionsMayLieBeyondTheEnd)
{
    using String = LightweightString<TypeParam>;
    constexpr unsigned int kMost = 0xFFFFFFFFu;
    const struct {
        const char* name;
        std::vector<unsigned int> positions;
        const char *pieces, *kept;
    } rows[] = {
        {"at the last character", {2}, "<ab>", "<abc>"},
        {"at the end", {3}, "<abc><>", "<abc><>"},
        {"at 2^32 - 1", {kMost}, "<abc><>", "<abc><>"},
        {"after one inside", {1, 7}, "<a><c><>", "<ab><c><>"},
        {"two beyond", {1, 7, kMost}, "<a><c><><>", "<ab><c><><>"},
    };
    const String text = make<TypeParam>("abc");
    for (const auto& row : rows)
        for (const bool keep : {false, true}) {
            SCOPED_TRACE(row.name);
            typename Vx::StringToVec<String>::VecT pieces;
            Vx::SplitOutputBuilder<String> builder(pieces, text);
            Vx::convertIndicesToSubStrings(text, row.positions, builder, keep ? 4 : 0);
            EXPECT_EQ(show(pieces), keep ? row.kept : row.pieces);
        }
}

TYPED_TEST(SplitOf, TakesOtherMatchersAndOutputs)
{
    using String = LightweightString<TypeParam>;
    struct Counter {
        void add(unsigned int, unsigned int count) { total += count, ++pieces; }
        unsigned int pieces = 0, total = 0;
    } counter;
    const String text = make<TypeParam>("a1bb2cc");
    std::vector<unsigned int> positions;
    Vx::findSeparators(
        text, [](TypeParam c) { return c >= '0' && c <= '9'; }, positions, Vx::RespectQuotes);
    Vx::convertIndicesToSubStrings(text, positions, counter, 0);
    EXPECT_EQ(counter.pieces, 3u);
    EXPECT_EQ(counter.total, 5u);
}

TYPED_TEST(SplitOf, BuilderStopsAtTheEndOfTheString)
{
    using String = LightweightString<TypeParam>;
    typename Vx::StringToVec<String>::VecT out;
    const String text = make<TypeParam>("abc");
    Vx::SplitOutputBuilder<String> builder(out, text);
    builder.add(1, 1);
    builder.add(1, 0xFFFFFFFFu);
    builder.add(3, 1);
    builder.add(0xFFFFFFFFu, 5);
    builder.add(0, 0);
    EXPECT_EQ(show(out), "<b><bc><><><>");
}

TEST(Pack, JoinsAsAppendingDoes)
{
    const struct {
        const char* name;
        std::vector<std::string> items;
        std::string packed;
    } rows[] = {
        {"nothing", {}, ""},
        {"one empty", {""}, ""},
        {"two empty", {"", ""}, ";"},
        {"the separator is not escaped", {"a;b", "", "c"}, "a;b;;c"},
        {"seven characters fill a block of eight", {"abc", "def"}, "abc;def"},
        {"deliberately zeros after a zero", {{"a\0b", 3}, "c"}, {"a\0\0;c", 5}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WideVec items;
        for (const std::string& item : row.items)
            items.push_back(make<wchar_t>(item));
        for (wchar_t separator : {L';', L'\0'}) {
            const Wide packed = Vx::pack(items, separator);
            EXPECT_TRUE(separator == 0 || plain(packed) == row.packed);
            Wide appended;
            for (std::size_t i = 0; i < items.size(); ++i) {
                appended += items[i];
                if (separator != 0 && i + 1 != items.size())
                    appended.append(&separator, 1);
            }
            EXPECT_EQ(packed, appended);
            EXPECT_EQ(packed.capacity(), appended.capacity());
            for (const Wide& item : items)
                EXPECT_LE(item.useCount(), 1u) << "no block is shared";
        }
    }
}

TEST(Pack, RefusesTooManyCharacters)
{
    Wide piece;
    piece.resizeFor(1u << 20);
    const WideVec items(1u << 12, piece); // one block, 2^32 characters
    EXPECT_THROW(Vx::pack(items, 0), std::length_error);
}

TEST(Unpack, DeliberatelyLosesEmptyItems)
{
    EXPECT_EQ(show(Vx::unpack(Wide(L"a;;b"), L';')), "<a><b>");
    EXPECT_EQ(show(Vx::unpack(Wide(L";a"), L';')), "<a>");
    EXPECT_EQ(show(Vx::unpack(Wide(), L';')), "<>");
    EXPECT_EQ(show(Vx::unpack(Wide(L"\"a;b\""), L';')), "<\"a><b\">") << "quotes have no meaning";
}

TEST(SplitFilename, IsTheLastPieceOfASplit)
{
    EXPECT_EQ(Vx::splitFilename(L"/x/dir\\name.ext//"), L"dir\\name.ext");
    const Wide whole(L"name");
    EXPECT_EQ(Vx::splitFilename(whole).c_str(), whole.c_str()) << "shares its block";
    ScriptedPlatform platform;
    platform.logCalls();
    Vx::splitFilename(Wide());
    EXPECT_EQ(platform.takeLog(), "pathSeparator");
    Seeded random;
    for (int i = 0; i < 5000; ++i) {
        Wide path;
        for (std::size_t length = random() % 8; length != 0; --length)
            path += L"ab//"[random() % 4];
        WideVec pieces;
        Vx::splitIf(path, Vx::IsMatchingChar<wchar_t>(L'/'), pieces, Vx::SkipEmpty);
        const Wide expected = pieces.empty() ? Wide() : pieces.back();
        const Wide name = Vx::splitFilename(path);
        ASSERT_EQ(name, expected) << plain(path);
        ASSERT_EQ(name.capacity(), expected.capacity());
    }
}
