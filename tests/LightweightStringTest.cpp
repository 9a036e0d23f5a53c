#include <Vx/LightweightString.h>

#include <GuardedBlock.h>
#include <Reference.h>
#include <Texts.h>
#include <Vx/detail/WidePrefixAvx.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

/// What each way of counting finds that this processor can run.
std::vector<std::size_t> commonPrefixes(const wchar_t* a, const wchar_t* b, std::size_t count)
{
    std::vector<std::size_t> found{Vx::detail::commonPrefix(a, b, count),
                                   Vx::detail::commonPrefixPlain(a, b, count)};
    if (count >= 8 && __builtin_cpu_supports("avx2"))
        found.push_back(Vx::detail::commonPrefixAvx2(a, b, count));
    if (count >= 32 && __builtin_cpu_supports("avx512bw"))
        found.push_back(Vx::detail::commonPrefixAvx512(a, b, count));
    return found;
}

/// Returns what the string holds, after checking its invariants.
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

template <class Ch> struct LightweightStringOf : testing::Test {};
TYPED_TEST_SUITE(LightweightStringOf, Widths);

} // namespace

// The fuzz target "strings" compares any sequence of operations with a model.

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
}

TYPED_TEST(LightweightStringOf, DeliberatelyAppendsZerosAfterTheFirstZero)
{
    using Plain = std::basic_string<TypeParam>;
    for (unsigned int count = 0; count <= 70; ++count)
        for (unsigned int zero = 0; zero <= count; ++zero) {
            SCOPED_TRACE(testing::Message() << count << " characters, 0 at " << zero);
            Plain source(count, TypeParam(-1)), copied(count + 2, TypeParam('!')), plain(copied);
            for (unsigned int i = 0; i < count; ++i)
                source[i] = i == zero ? TypeParam(0) : TypeParam(0x7F + (i & 3));
            Vx::detail::copyUpToZero(&copied[1], source.data(), count);
            Vx::detail::copyUpToZeroPlain(&plain[1], source.data(), count);
            ASSERT_EQ(copied, plain) << "the short copy and its plain twin";
            ASSERT_EQ(read(LightweightString<TypeParam>(source.data(), count)), source)
                << "constructors keep what follows";
            const Plain model = widen<TypeParam>("x") + reference::appended(source);
            LightweightString<TypeParam> text = make<TypeParam>("x");
            ASSERT_EQ(read(text.append(source.data(), count)), model) << "in a new block";
            text.resizeFor(200).resizeFor(1).mutableChars()[0] = 'x';
            ASSERT_EQ(read(text.append(source.data(), count)), model) << "in place";
            text.resizeFor(1);
            ASSERT_EQ(read(text += LightweightString<TypeParam>(source.data(), count)), model);
            // A part of the string that runs into what is being written, up to its terminator.
            text = make<TypeParam>(std::string(count, 'a'));
            text.resizeFor(200).resizeFor(count);
            std::fill_n(text.mutableChars(), count, TypeParam('b'));
            const Plain own = read(text);
            text.append(text.c_str() + zero, count);
            ASSERT_EQ(read(text), own + own.substr(zero) + Plain(zero, TypeParam(0)));
        }
}

TYPED_TEST(LightweightStringOf, AppendingReadsNothingAfterAZero)
{
    const TypeParam source[] = {'b', 0};
    const GuardedBlock<TypeParam> guarded(source, 2);
    LightweightString<TypeParam> text;
    text.resizeFor(100).resizeFor(1).mutableChars()[0] = 'a';
    text.append(guarded.begin(), 20);
    EXPECT_EQ(read(text), widen<TypeParam>("ab" + std::string(19, '\0')));
    const TypeParam* volatile none = nullptr;
    EXPECT_EQ(read(make<TypeParam>("x").append(none, 2)), widen<TypeParam>({"x\0\0", 3}))
        << "null appends zeros to a new block";
}

TYPED_TEST(LightweightStringOf, PushBackAndExtendTakeEveryCharacterAppendingDeliberatelyNoZero)
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
    const LightweightString<TypeParam> sharer(text);
    for (unsigned int count : {0u, 3u, 1u, 0u, 9u})
        std::fill_n(text.extendFor(count), count, TypeParam('z'));
    EXPECT_EQ(read(text), widen<TypeParam>(std::string("ab\0c", 4) + std::string(13, 'z')));
    EXPECT_EQ(*text.end(), TypeParam(0));
    EXPECT_EQ(sharer.length(), 4u);
    EXPECT_EQ(*LightweightString<TypeParam>().extendFor(0), TypeParam(0)) << "has no block";
}

TYPED_TEST(LightweightStringOf, RefusesTooManyCharactersAtOnce)
{
    using String = LightweightString<TypeParam>;
    const TypeParam some[] = {'x', 0};
    const std::basic_string_view<TypeParam> view(some, std::size_t(1) << 32);
    const struct {
        const char* name;
        std::function<void(String&)> work;
    } rows[] = {
        {"resizeFor 2^31", [](String& s) { s.resizeFor(0x80000000u); }},
        {"resizeFor most", [](String& s) { s.resizeFor(0xFFFFFFFFu); }},
        {"extend 2^31", [](String& s) { s.extendFor(0x80000000u); }},
        {"extend beyond 2^32", [](String& s) { s.extendFor(0xFFFFFFFFu); }},
        {"append 2^31", [&](String& s) { s.append(some, 0x80000000u); }},
        {"append beyond 2^32", [&](String& s) { s.append(some, 0xFFFFFFFFu); }},
        {"construct 2^31", [&](String& s) { s = String(some, 0x80000000u); }},
        {"create 2^31", [](String&) { String().createImpl(0x80000000u, true); }},
        {"create most, exact", [](String&) { String().createImpl(0xFFFFFFFFu, false); }},
        {"construct from 2^32", [&](String& s) { s = String(view); }},
        {"assign 2^32", [&](String& s) { s = view; }},
        {"append 2^32", [&](String& s) { s += view; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedPlatform platform;
        String empty;
        String text = make<TypeParam>("old");
        const unsigned long before = platform.allocations();
        EXPECT_THROW(row.work(text), std::length_error);
        EXPECT_THROW(row.work(empty), std::length_error);
        EXPECT_LE(platform.allocations() - before, 4u) << "for the exceptions only";
        EXPECT_EQ(read(text), widen<TypeParam>("old"));
        EXPECT_TRUE(empty.empty());
    }
}

TYPED_TEST(LightweightStringOf, CreatingDeliberatelyForgetsTheBlockEvenIfItFails)
{
    using Block = typename LightweightString<TypeParam>::Impl;
    LightweightString<TypeParam> text = make<TypeParam>("old");
    Block* const block = reinterpret_cast<Block*>(text.mutableChars()) - 1;
    EXPECT_THROW(text.createImpl(0xFFFFFFFFu, false), std::length_error);
    ASSERT_EQ(text.capacity(), 0u);
    EXPECT_EQ(block->refCount, 1u) << "not released";
    Block::DtorTraits::destroy(block);
}

TEST(WidePrefix, EndsAtTheFirstDifference)
{
    for (unsigned int count = 0; count <= 100; ++count)
        for (unsigned int at = 0; at <= count; ++at) {
            const std::wstring a(count, L'a');
            std::wstring b = a;
            if (at < count)
                b[at] = static_cast<wchar_t>(0x80000061u);
            b.replace(std::min(at + 2, count), std::wstring::npos, count, L'b');
            for (const std::size_t found : commonPrefixes(a.data(), b.data(), count))
                ASSERT_EQ(found, at) << count;
            EXPECT_EQ(LightweightString<wchar_t>(a.c_str()) < b.substr(0, count), at < count);
        }
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
    ordered.push_back({static_cast<TypeParam>(-2)}); // unsigned, so among the last
    ordered.push_back({static_cast<TypeParam>(-1)});
    for (std::size_t i = 0; i < ordered.size(); ++i)
        for (std::size_t j = 0; j < ordered.size(); ++j) {
            SCOPED_TRACE(std::to_string(i) + " and " + std::to_string(j));
            const String a{std::basic_string_view<TypeParam>(ordered[i])};
            const String b{std::basic_string_view<TypeParam>(ordered[j])};
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
    const String cut = make<TypeParam>(std::string("a\0b", 3));
    EXPECT_TRUE(cut > cut.c_str() && cut != cut.c_str()) << "its own characters, up to the zero";
    EXPECT_EQ(read(some + null), widen<TypeParam>("x"));
}

TYPED_TEST(LightweightStringOf, SharersOnManyThreadsSeeNoOthersWrites)
{
    using String = LightweightString<TypeParam>;
    constexpr int kThreads = 4;
    const String shared = make<TypeParam>("shared string");
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
    EXPECT_EQ(read(shared), widen<TypeParam>("shared string"));
}

TYPED_TEST(LightweightStringOf, StreamsOutWithPadding)
{
    std::basic_ostringstream<TypeParam> stream;
    stream.width(5);
    stream << make<TypeParam>("ab") << make<TypeParam>(std::string("\0c", 2));
    EXPECT_EQ(stream.str(), widen<TypeParam>(std::string("   ab\0c", 7)));
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
        {"deliberately no word after a space", " word", "", "", "word", true},
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

// VxStringNumbers.h is not included here: only then a narrow string takes a number.
template <class String, class T>
concept Appends = requires(String text, T value)
{
    text += value;
};
static_assert(Appends<Narrow, char> && Appends<Wide, wchar_t> && Appends<Narrow, std::nullptr_t>);
static_assert(!Appends<Narrow, int> && !Appends<Wide, int> && !Appends<Narrow, double>);
template <class String>
concept AppendsZero = requires(String text)
{
    text += 0;
}
|| requires(String text) { text + 0; };
static_assert(!AppendsZero<Narrow> && !AppendsZero<Wide>, "a literal 0 is no null pointer");
