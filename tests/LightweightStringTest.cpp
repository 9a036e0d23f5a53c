#include <Vx/LightweightString.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <sys/mman.h>

// A text that the function below takes to be longer than 32 bits can count. Not constant, or
// compilers count for themselves.
extern wchar_t longText[];
wchar_t longText[] = L"a";

// In place of libc's: nobody has the memory for a text of that length.
extern "C" std::size_t wcslen(const wchar_t* text) noexcept
{
    if (text == longText)
        return (std::size_t(1) << 32) + 1;
    const wchar_t* end = text;
    while (*end != 0)
        ++end;
    return static_cast<std::size_t>(end - text);
}

namespace {

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

template <class Ch> std::basic_string<Ch> widen(const std::string& text)
{
    return std::basic_string<Ch>(text.begin(), text.end());
}

/// A string of this text, embedded zeros included.
template <class Ch> LightweightString<Ch> make(const std::string& text)
{
    return LightweightString<Ch>(std::basic_string_view<Ch>(widen<Ch>(text)));
}

/// What the string holds, after a look at everything that must hold at all times.
template <class Ch> std::basic_string<Ch> read(const LightweightString<Ch>& text)
{
    if (text.capacity() == 0) {
        EXPECT_EQ(text.length(), 0u);
        EXPECT_EQ(text.useCount(), 0u);
    } else {
        EXPECT_GT(text.length(), 0u) << "an empty string has no block";
        EXPECT_LT(text.length(), text.capacity());
        EXPECT_GE(text.useCount(), 1u);
    }
    EXPECT_EQ(text.c_str()[text.length()], Ch(0));
    return std::basic_string<Ch>(text.c_str(), text.length());
}

template <class Ch> struct LightweightStringOf : testing::Test {
    using String = LightweightString<Ch>;
};
struct WidthNames {
    template <class Ch> static std::string GetName(int)
    {
        return std::is_same_v<Ch, char> ? "narrow" : "wide";
    }
};
using Widths = testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(LightweightStringOf, Widths, WidthNames);

} // namespace

TYPED_TEST(LightweightStringOf, EmptyStringsHaveNoBlock)
{
    using String = LightweightString<TypeParam>;
    const TypeParam none[] = {0};
    ScriptedPlatform platform;
    String strings[] = {
        String(),        String(none), String(static_cast<const TypeParam*>(nullptr)),
        String(none, 0), String(),     String()};
    strings[4].createImpl(0, true);
    strings[5] = String() + none + String();
    EXPECT_EQ(platform.allocations(), 0u);
    for (const String& text : strings) {
        EXPECT_EQ(text.capacity(), 0u);
        EXPECT_EQ(*text.c_str(), TypeParam(0));
        EXPECT_EQ(text.begin(), text.end());
        EXPECT_TRUE(text.empty() && text == none);
    }
    String text = make<TypeParam>("abc");
    text.resizeFor(0);
    EXPECT_EQ(text.capacity(), 0u);
    text = make<TypeParam>("abc");
    text.clear();
    EXPECT_EQ(text.capacity(), 0u);
    EXPECT_EQ(platform.liveBlocks(), 0);
}

TYPED_TEST(LightweightStringOf, CapacityIsTheNextPowerOfTwoOrExact)
{
    const struct {
        unsigned int length, powerOfTwo;
    } rows[] = {{1, 2},  {2, 4},   {3, 4},   {4, 8},       {7, 8},
                {8, 16}, {15, 16}, {16, 32}, {1023, 1024}, {1024, 2048}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.length);
        LightweightString<TypeParam> rounded, exact, resized;
        rounded.createImpl(row.length, true);
        exact.createImpl(row.length, false);
        resized.resizeFor(row.length);
        EXPECT_EQ(rounded.capacity(), row.powerOfTwo);
        EXPECT_EQ(exact.capacity(), row.length + 1);
        EXPECT_EQ(resized.capacity(), row.powerOfTwo);
        EXPECT_EQ(make<TypeParam>(std::string(row.length, 'x')).capacity(), row.powerOfTwo);
        EXPECT_EQ(exact.length(), row.length);
        EXPECT_EQ(exact.c_str()[row.length], TypeParam(0));
        EXPECT_EQ(exact.useCount(), 1u);
    }
}

TYPED_TEST(LightweightStringOf, AppendsInPlaceWhileTheTerminatorKeepsItsSlot)
{
    const std::basic_string<TypeParam> chars = widen<TypeParam>("abcdefgh");
    ScriptedPlatform platform;
    LightweightString<TypeParam> text;
    text.append(chars.data(), 3);
    std::string capacities = std::to_string(text.capacity());
    for (unsigned int i = 3; i < 8; ++i) {
        text.append(chars.data() + i, 1);
        capacities += " " + std::to_string(text.capacity());
    }
    EXPECT_EQ(capacities, "4 8 8 8 8 16");
    EXPECT_EQ(platform.allocations(), 3u);
    EXPECT_EQ(read(text), chars);

    // A block of exact size is full from the start.
    LightweightString<TypeParam> exact;
    exact.createImpl(1, false);
    *exact.mutableChars() = 'x';
    exact.append(chars.data(), 1);
    EXPECT_EQ(exact.capacity(), 4u);
    EXPECT_EQ(read(exact), widen<TypeParam>("xa"));
}

TYPED_TEST(LightweightStringOf, CopiesShareOneBlockAndMovesHandItOn)
{
    using String = LightweightString<TypeParam>;
    ScriptedPlatform platform;
    {
        String text = make<TypeParam>("text");
        const TypeParam* const block = text.c_str();
        const unsigned long allocations = platform.allocations();
        String copy(text), assigned;
        assigned = copy;
        assigned = *&assigned;
        EXPECT_EQ(text.useCount(), 3u);
        EXPECT_EQ(assigned.c_str(), block);
        copy.append(block, 0);
        EXPECT_EQ(copy.c_str(), block) << "nothing to append, nothing to copy";
        copy.clear();
        String moved(std::move(text));
        EXPECT_EQ(read(text), std::basic_string<TypeParam>());
        text = std::move(moved);
        EXPECT_EQ(text.useCount(), 2u);
        EXPECT_EQ(text.c_str(), block);
        EXPECT_EQ(platform.allocations(), allocations) << "none of it allocates";
    }
    EXPECT_EQ(platform.liveBlocks(), 0);
}

TYPED_TEST(LightweightStringOf, ResizeForKeepsTheStartOnlyInPlace)
{
    LightweightString<TypeParam> text = make<TypeParam>("abcdefg");
    const TypeParam* const block = text.c_str();
    EXPECT_EQ(&text.resizeFor(3), &text);
    EXPECT_EQ(read(text), widen<TypeParam>("abc"));
    EXPECT_EQ(text.resizeFor(7).c_str(), block);
    EXPECT_EQ(text.capacity(), 8u);
    EXPECT_EQ(text[0], TypeParam('a'));
    text.resizeFor(8);
    EXPECT_EQ(text.capacity(), 16u);
    EXPECT_EQ(text.length(), 8u);
}

TYPED_TEST(LightweightStringOf, DeliberatelyAppendsZerosBehindTheFirstZero)
{
    using String = LightweightString<TypeParam>;
    const std::basic_string<TypeParam> source = widen<TypeParam>(std::string("a\0b", 3));
    const std::basic_string<TypeParam> copied = widen<TypeParam>(std::string("a\0\0", 3));
    const std::basic_string<TypeParam> xyz = widen<TypeParam>("xyz");

    String onEmpty;
    EXPECT_EQ(read(onEmpty.append(source.data(), 3)), copied);
    String reallocating = make<TypeParam>("xyz");
    EXPECT_EQ(read(reallocating.append(source.data(), 3)), xyz + copied);
    EXPECT_EQ(read(reallocating.append(source.data(), 1)), xyz + copied + source[0]);
    String roomy;
    roomy.append(widen<TypeParam>("12345678").data(), 8).resizeFor(3);
    const TypeParam* const block = roomy.c_str();
    EXPECT_EQ(read(roomy.append(source.data(), 3)), widen<TypeParam>("123") + copied);
    EXPECT_EQ(read(roomy.append(nullptr, 0)), widen<TypeParam>("123") + copied);
    EXPECT_EQ(roomy.c_str(), block);
    EXPECT_EQ(read(String() + make<TypeParam>(std::string("a\0b", 3))), copied);
    EXPECT_EQ(read(String(source.data(), 3)), source) << "constructors keep what follows";
}

TYPED_TEST(LightweightStringOf, AppendsShortTextsAsStrncpyCopiesThem)
{
    for (unsigned int count = 1; count <= 70; ++count)
        for (unsigned int zero = 0; zero <= count; ++zero) {
            std::basic_string<TypeParam> source(count, TypeParam(-1)), model(1, TypeParam('x'));
            LightweightString<TypeParam> text = make<TypeParam>("");
            text.resizeFor(200).resizeFor(1).mutableChars()[0] = 'x';
            for (unsigned int i = 0; i < count; ++i)
                source[i] = i == zero ? TypeParam(0) : TypeParam(0x7F + (i & 3));
            text.append(source.data(), count);
            model += source.substr(0, zero);
            model.resize(1 + count);
            ASSERT_EQ(read(text), model) << count << " characters, 0 at " << zero;
            // A text that runs into what is being written: its own terminator ends it.
            text = make<TypeParam>(std::string(count, 'a'));
            text.resizeFor(200).resizeFor(count);
            std::fill_n(text.mutableChars(), count, TypeParam('b'));
            const std::basic_string<TypeParam> own = read(text);
            text.append(text.c_str() + zero, count);
            ASSERT_EQ(read(text),
                      own + own.substr(zero) + std::basic_string<TypeParam>(zero, TypeParam(0)));
        }
}

TYPED_TEST(LightweightStringOf, AppendingReadsNothingBehindAZero)
{
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const memory =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    TypeParam* const end = reinterpret_cast<TypeParam*>(static_cast<char*>(memory) + page);
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    end[-2] = 'b';
    LightweightString<TypeParam> text;
    text.resizeFor(100).resizeFor(1).mutableChars()[0] = 'a';
    text.append(end - 2, 20);
    EXPECT_EQ(read(text), widen<TypeParam>("ab" + std::string(19, '\0')));
    munmap(memory, 2 * page);
}

TYPED_TEST(LightweightStringOf, PushBackTakesEveryCharacterAppendingDeliberatelyNoZero)
{
    LightweightString<TypeParam> text;
    for (TypeParam c : widen<TypeParam>(std::string("ab\0c", 4))) {
        const LightweightString<TypeParam> sharer(text);
        text.push_back(c);
        text += TypeParam(0);
        EXPECT_EQ(sharer.length() + 1, text.length());
    }
    EXPECT_EQ(read(text + TypeParam(0)), widen<TypeParam>(std::string("ab\0c", 4)));
    EXPECT_EQ(text.capacity(), 8u);
}

TYPED_TEST(LightweightStringOf, AppendsPartsOfItself)
{
    for (unsigned int length = 1; length < 10; ++length)
        for (unsigned int spare = 0; spare < 2; ++spare)
            for (unsigned int start = 0; start < length; ++start)
                for (unsigned int count = 1; start + count <= length; ++count) {
                    std::basic_string<TypeParam> model = widen<TypeParam>("abcdefghij");
                    LightweightString<TypeParam> text;
                    if (spare != 0)
                        text.resizeFor(100);
                    text.resizeFor(length);
                    std::char_traits<TypeParam>::copy(text.mutableChars(), model.data(), length);
                    model.resize(length);
                    text.append(text.c_str() + start, count);
                    model.append(model.substr(start, count));
                    ASSERT_EQ(read(text), model) << length << " " << start << " " << count;
                }
}

TYPED_TEST(LightweightStringOf, RefusesTooManyCharactersAtOnce)
{
    using String = LightweightString<TypeParam>;
    const TypeParam some[] = {'x', 0};
    const struct {
        const char* name;
        std::function<void(String&)> work;
    } rows[] = {
        {"resizeFor 2^31", [](String& s) { s.resizeFor(0x80000000u); }},
        {"resizeFor most", [](String& s) { s.resizeFor(0xFFFFFFFFu); }},
        {"append 2^31", [&](String& s) { s.append(some, 0x80000000u); }},
        {"append beyond 2^32", [&](String& s) { s.append(some, 0xFFFFFFFFu); }},
        {"construct 2^31", [&](String& s) { s = String(some, 0x80000000u); }},
        {"create 2^31", [](String&) { String().createImpl(0x80000000u, true); }},
        {"create most, exact", [](String&) { String().createImpl(0xFFFFFFFFu, false); }},
        {"a view of 2^32",
         [&](String& s) {
             s = String(std::basic_string_view<TypeParam>(some, std::size_t(1) << 32));
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedPlatform platform;
        String empty;
        String text = make<TypeParam>("old");
        const unsigned long before = platform.allocations();
        EXPECT_THROW(row.work(text), std::length_error);
        EXPECT_THROW(row.work(empty), std::length_error);
        EXPECT_LE(platform.allocations() - before, 4u) << "only the exceptions";
        EXPECT_EQ(read(text), widen<TypeParam>("old"));
        EXPECT_TRUE(empty.empty());
    }
}

TEST(LightweightString, KnowsATextOfMoreThan32BitsAsLonger)
{
    Wide one(L"a");
    EXPECT_FALSE(one == longText);
    EXPECT_LT(one, longText);
    EXPECT_GT(longText, one);
    EXPECT_THROW(one += longText, std::length_error);
    EXPECT_EQ(one, L"a");
}

TYPED_TEST(LightweightStringOf, ComparesUnsignedCharactersThenLengths)
{
    using String = LightweightString<TypeParam>;
    // In increasing order.
    std::vector<std::basic_string<TypeParam>> ordered;
    for (const std::string& text : {std::string(), std::string("\0", 1), std::string("\0a", 2),
                                    std::string("A"), std::string("a"), std::string("a\0", 2),
                                    std::string("a\0b", 3), std::string("ab"), std::string("b")})
        ordered.push_back(widen<TypeParam>(text));
    ordered.push_back({static_cast<TypeParam>(-2)}); // negative, so among the last
    ordered.push_back({static_cast<TypeParam>(-1)});
    for (std::size_t i = 0; i < ordered.size(); ++i)
        for (std::size_t j = 0; j < ordered.size(); ++j) {
            SCOPED_TRACE(std::to_string(i) + " and " + std::to_string(j));
            const String a{std::basic_string_view<TypeParam>(ordered[i])};
            const String b{std::basic_string_view<TypeParam>(ordered[j])};
            const auto expectOrder = [](const auto& left, const auto& right, auto l, auto r) {
                EXPECT_EQ(left == right, l == r);
                EXPECT_EQ(left != right, l != r);
                EXPECT_EQ(left < right, l < r);
                EXPECT_EQ(left > right, l > r);
                EXPECT_EQ(left <= right, l <= r);
                EXPECT_EQ(left >= right, l >= r);
            };
            expectOrder(a, b, i, j);
            EXPECT_EQ((a <=> b) < 0, i < j);
            EXPECT_EQ(std::hash<String>()(a) == std::hash<String>()(b), i == j);
            const TypeParam* const chars = ordered[j].c_str();
            if (ordered[j].find(TypeParam(0)) != ordered[j].npos)
                continue;
            expectOrder(a, chars, i, j);
            expectOrder(chars, a, j, i);
        }
    const TypeParam* const null = nullptr;
    const String none, some = make<TypeParam>("x");
    EXPECT_TRUE(none == null && null == none && !(none != null) && !(none < null) && none <= null);
    EXPECT_TRUE(some != null && null != some && null < some && some > null && !(some < null));
    EXPECT_EQ(read(some + null), widen<TypeParam>("x"));
}

TYPED_TEST(LightweightStringOf, EveryCharacterCountsInAComparison)
{
    for (unsigned int length = 1; length <= 70; ++length)
        for (unsigned int at = 0; at < length; ++at) {
            const std::string text(length, 'a');
            LightweightString<TypeParam> other = make<TypeParam>(text);
            ASSERT_TRUE(other == make<TypeParam>(text)) << length;
            other.mutableChars()[at] = 'b';
            ASSERT_FALSE(other == make<TypeParam>(text))
                << length << " characters, other at " << at;
        }
}

TYPED_TEST(LightweightStringOf, FollowsTheStandardStringThroughRandomOperations)
{
    using String = LightweightString<TypeParam>;
    using Model = std::basic_string<TypeParam>;
    constexpr std::size_t kStrings = 4;
    Seeded random;
    const auto below = [&](std::size_t n) { return static_cast<unsigned int>(random() % n); };

    ScriptedPlatform platform;
    const long before = platform.liveBlocks();
    {
        String strings[kStrings];
        Model models[kStrings];
        for (int step = 0; step < 20000; ++step) {
            const std::size_t i = below(kStrings), j = below(kStrings);
            String& text = strings[i];
            Model& model = models[i];
            const TypeParam c = static_cast<TypeParam>('a' + below(26));
            const Model source(below(20), c);
            const unsigned int length = below(model.size() + 10);
            switch (below(12)) {
            case 0: text += c, model += c; break;
            case 1: text += strings[j], model += Model(models[j]); break;
            case 2:
                text.append(source.data(), static_cast<unsigned int>(source.size()));
                model += source;
                break;
            case 3: text = strings[j], model = models[j]; break;
            case 4:
                text = String(models[j].data(), static_cast<unsigned int>(models[j].size()));
                model = models[j];
                break;
            case 5: // shorter, in place or not: only what is written then counts
                text.resizeFor(length);
                model.assign(length, c);
                for (unsigned int k = 0; k < length; ++k)
                    text.mutableChars()[k] = c;
                break;
            case 6:
                if (model.size() > 200 || below(10) == 0)
                    text.clear(), model.clear();
                break;
            case 7:
                if (length < model.size())
                    text.mutableChars()[length] = model[length] = c;
                break;
            case 8: text = strings[j] + strings[i], model = models[j] + models[i]; break;
            case 9: text = models[j].c_str() + strings[i], model = models[j] + models[i]; break;
            case 10: std::swap(strings[i], strings[j]), std::swap(models[i], models[j]); break;
            default:
                ASSERT_EQ(strings[i] < strings[j], models[i] < models[j]);
                ASSERT_EQ(strings[i] == strings[j], models[i] == models[j]);
                ASSERT_EQ(strings[i] == models[j].c_str(), models[i] == models[j]);
            }
            for (std::size_t k = 0; k < kStrings; ++k)
                ASSERT_EQ(read(strings[k]), models[k]) << "step " << step << ", string " << k;
            if (model.size() > 5000)
                text.clear(), model.clear();
        }
        for (String& text : strings)
            text.clear();
        for (Model& model : models)
            Model().swap(model);
        EXPECT_EQ(platform.liveBlocks(), before);
    }
}

TYPED_TEST(LightweightStringOf, SharersOnManyThreadsSeeNoOthersWrites)
{
    using String = LightweightString<TypeParam>;
    constexpr int kThreads = 4;
    const String shared = make<TypeParam>("shared text");
    std::vector<std::basic_string<TypeParam>> wrong(kThreads);
    onThreads(kThreads, [&](int i) {
        const TypeParam mark = static_cast<TypeParam>('0' + i);
        String mine(shared);
        for (int n = 0; n < 500; ++n) {
            String copy(mine);
            copy += mark;
            String second(shared);
            second.mutableChars()[0] = mark;
            if (copy.back() != mark || second[0] != mark || shared[0] != TypeParam('s'))
                wrong[static_cast<std::size_t>(i)] += mark;
            mine = copy.length() < 40 ? copy : shared;
        }
    });
    for (const auto& marks : wrong)
        EXPECT_TRUE(marks.empty());
    EXPECT_EQ(shared.useCount(), 1u);
    EXPECT_EQ(read(shared), widen<TypeParam>("shared text"));
}

TYPED_TEST(LightweightStringOf, StreamsOutWithPadding)
{
    std::basic_ostringstream<TypeParam> stream;
    stream.width(5);
    stream << make<TypeParam>("ab") << make<TypeParam>(std::string("\0c", 2));
    EXPECT_EQ(stream.str(), widen<TypeParam>(std::string("   ab\0c", 7)));
}

TEST(LightweightString, ConcatenationNeverSharesTheRightSide)
{
    const Narrow right("right");
    const char* const lefts[] = {nullptr, "", "left "};
    for (const char* left : lefts) {
        SCOPED_TRACE(left == nullptr ? "null" : left);
        ScriptedPlatform platform;
        const Narrow sum = left + right;
        EXPECT_EQ(platform.allocations(), 1u);
        EXPECT_EQ(sum, ((left != nullptr ? left : "") + std::string("right")).c_str());
        EXPECT_NE(sum.c_str(), right.c_str());
        EXPECT_EQ(right.useCount(), 1u);
    }
    EXPECT_EQ(("abc" + right).capacity(), 16u);
    EXPECT_EQ((static_cast<const char*>(nullptr) + Narrow()).capacity(), 0u);

    EXPECT_EQ(L"more " + Wide(L"wide"), L"more wide");
    EXPECT_EQ((L"" + Wide()).capacity(), 0u);
}

TEST(LightweightString, WidensUpToTheFirstZero)
{
    ScriptedPlatform platform;
    platform.logCalls();
    Wide wide(L"[");
    wide += Narrow("caf\xC3\xA9\0hidden", 12);
    EXPECT_EQ(wide, L"[caf\u00E9");
    EXPECT_EQ(platform.takeLog(), "fromUTF8(-1)");
    const wchar_t* const block = wide.c_str();
    wide += Narrow();
    wide += Narrow("\0x", 2);
    EXPECT_EQ(wide, L"[caf\u00E9");
    EXPECT_EQ(wide.c_str(), block);
    wide += Narrow("!!");
    EXPECT_EQ(wide.c_str(), block) << "in place: 7 of 8";
    const Wide sharer(wide);
    wide += Narrow("x");
    EXPECT_EQ(sharer, L"[caf\u00E9!!");
    EXPECT_EQ(wide.capacity(), 16u);
}

TEST(LightweightString, NarrowsToUtf8AndKeepsItsValueWhenAConversionFails)
{
    ScriptedPlatform platform;
    Wide wide(L"old");
    Narrow narrow;
    narrow += Wide();
    EXPECT_EQ(narrow.capacity(), 0u);
    narrow += Wide(L"caf\u00E9 \U0001F3AC");
    platform.failCall("fromUTF8");
    EXPECT_THROW(wide += Narrow("more"), ScriptedFault);
    EXPECT_EQ(wide, L"old");
    platform.failCall("toUTF8");
    EXPECT_THROW(narrow += Wide(L"more"), ScriptedFault);
    EXPECT_EQ(narrow, "caf\xC3\xA9 \xF0\x9F\x8E\xAC");
}

TEST(LightweightString, ReadsOneWordFromAStream)
{
    const struct {
        const char* name;
        std::string input;
        const char* before;
        const char* after;
        const char* rest;
        bool good;
    } rows[] = {
        {"two words", "ab cd", "", "ab", "cd", true},
        {"deliberately no word behind a blank", " word", "", "", "word", true},
        {"appends", "cd\n\nef", "ab", "abcd", "\nef", true},
        {"to the end", "ab", "", "ab", "", false},
        {"nothing", "", "old", "old", "", false},
        {"skips zeros", std::string("a\0b\0 c", 6), "", "ab", "c", true},
        {"every white space", "a\vb", "", "a", "b", true},
        {"high bytes belong to the word", "\xC3\xA9 x", "", "\xC3\xA9", "x", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::istringstream stream(row.input);
        Narrow word(row.before);
        const Narrow sharer(word);
        EXPECT_EQ(&(stream >> word), &stream);
        EXPECT_EQ(word, row.after);
        EXPECT_EQ(sharer, row.before);
        EXPECT_EQ(stream.good(), row.good);
        stream.clear();
        std::string rest;
        std::getline(stream, rest, '\0');
        EXPECT_EQ(rest, row.rest);
    }
}

static_assert(sizeof(Narrow) == 2 * sizeof(void*), "one handle");
static_assert(!std::is_constructible_v<Narrow, Wide> && !std::is_constructible_v<Wide, const char*>,
              "the widths do not mix by accident");
