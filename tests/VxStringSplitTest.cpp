#include <Vx/VxStringSplit.h>

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

// The fuzz target "split-pack" tests any string.

TYPED_TEST(SplitOf, DeliberatelyYieldsNoEmptyPiecesAtTheEnds)
{
    EXPECT_EQ(split<TypeParam>(",a,", ',', 0), "<a>");
    EXPECT_EQ(split<TypeParam>(",a,,b,", ',', Vx::KeepSeparator), "<a,><,><b,>");
    EXPECT_EQ(split<TypeParam>(",", ',', 0), "<>");
    EXPECT_EQ(split<TypeParam>("\"x\\\",y\",z", ',', Vx::RespectQuotes), "<\"x\\\",y\"><z>");
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

TYPED_TEST(SplitOf, FindsOneCharacterAsAnyOtherMatcherDoes)
{
    using Vx::detail::findMatches;
    const std::string sources[] = {"", ",", ",,", "a", "a,b,,c,", {"\0,\0", 3}};
    for (const std::string& source : sources)
        for (const char separator : {',', 'c', '\0'}) {
            const auto text = widen<TypeParam>(source);
            const auto length = static_cast<unsigned int>(text.size());
            const auto c = static_cast<TypeParam>(separator);
            std::vector<unsigned int> positions{7}, plain{7};
            findMatches(text.data(), length, Vx::IsMatchingChar<TypeParam>(c), positions);
            findMatches(
                text.data(), length, [c](TypeParam other) { return other == c; }, plain);
            EXPECT_EQ(positions, plain) << source << " at " << separator;
        }
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
    const std::vector<std::string> rows[] = {
        {},
        {""},
        {"", ""},
        {"a;b", "", "c"},
        {"abc", "def"},     // seven characters fill a block of eight
        {{"a\0b", 3}, "c"}, // deliberately zeros after a zero
    };
    for (const auto& row : rows)
        for (const wchar_t separator : {L';', L'\0'}) {
            WideVec items;
            Wide appended;
            for (const std::string& item : row) {
                if (separator != 0 && !items.empty())
                    appended.append(&separator, 1);
                appended += items.emplace_back(make<wchar_t>(item));
            }
            SCOPED_TRACE(show(items));
            const Wide packed = Vx::pack(items, separator);
            EXPECT_EQ(packed, appended);
            EXPECT_EQ(packed.capacity(), appended.capacity());
            for (const Wide& item : items)
                EXPECT_LE(item.useCount(), 1u) << "no block is shared";
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
}

TEST(Unpack, SplitsAsSplitIfDoes)
{
    for (unsigned int bits = 1; bits < 256; ++bits) {
        std::string text; // every combination of up to seven characters
        for (unsigned int rest = bits; rest != 1; rest /= 2)
            text += rest % 2 != 0 ? ';' : 'a';
        EXPECT_EQ(show(Vx::unpack(make<wchar_t>(text), L';')),
                  split<wchar_t>(text, ';', Vx::SkipEmpty))
            << text;
    }
    const Wide whole(L"whole");
    EXPECT_EQ(Vx::unpack(whole, L';').front().c_str(), whole.c_str()) << "shares its block";
}

TEST(SplitFilename, IsTheLastPieceThatIsNotEmpty)
{
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"", L""},           {L"/", L""},
        {L"//", L""},         {L"/a", L"a"},
        {L"a/", L"a"},        {L"a//b", L"b"},
        {L"a/bcd//", L"bcd"}, {L"/x/dir\\name.ext//", L"dir\\name.ext"},
    };
    for (const auto& [path, expected] : rows) {
        const Wide name = Vx::splitFilename(path);
        EXPECT_EQ(name, expected) << plain(Wide(path));
        EXPECT_EQ(name.capacity(), Wide(expected).capacity());
    }
    const Wide whole(L"name");
    EXPECT_EQ(Vx::splitFilename(whole).c_str(), whole.c_str()) << "shares its block";
    ScriptedPlatform platform;
    platform.logCalls();
    Vx::splitFilename(Wide());
    EXPECT_EQ(platform.takeLog(), "pathSeparator");
}
