#include <Vx/VxAttribValuePair.h>

#include <csignal>
#include <sys/time.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

using Vx::AttribValuePair;
using Text = LightweightString<char>;
using WideText = LightweightString<wchar_t>;
using Pairs = LightweightVector<AttribValuePair>;

namespace {

// A pair as its members say, none of them derived from another.
AttribValuePair made(int form, const char* text, const char* name, const char* value)
{
    AttribValuePair pair(text, '=');
    pair.form = form;
    pair.name = name;
    pair.value = value;
    return pair;
}

std::string dump(const AttribValuePair& pair)
{
    return std::to_string(pair.form) + " " +
           (pair.text + "|" + pair.name + "|" + pair.value).c_str();
}

Text bytes(std::string_view view) { return Text(view); }

// Ends with exit status 0 if the search ends, by the signal when it has used up its processor
// time, of which going through all items once takes a small part.
void searchUntilTimeIsUp(const char* name, const Pairs& pairs)
{
    const itimerval limit = {{0, 0}, {0, 500000}};
    setitimer(ITIMER_VIRTUAL, &limit, nullptr);
    AttribValuePair::getValue(name, pairs);
    std::_Exit(0);
}

} // namespace

TEST(AttribValuePair, SplitsAtTheFirstSeparator)
{
    using namespace std::string_view_literals;
    const struct {
        const char* name;
        std::string_view text;
        char separator;
        std::string_view expectedName, expectedValue;
        bool valid;
    } rows[] = {
        {"plain", "key=val"sv, '=', "key"sv, "val"sv, true},
        {"further separators stay", "key=val=2"sv, '=', "key"sv, "val=2"sv, true},
        {"blanks stay", "a = b"sv, '=', "a "sv, " b"sv, true},
        {"another separator", "a=b:c"sv, ':', "a=b"sv, "c"sv, true},
        {"no name", "=x"sv, '=', ""sv, "x"sv, false},
        {"no value", "x="sv, '=', "x"sv, ""sv, false},
        {"no separator", "novalue"sv, '=', ""sv, ""sv, false},
        {"nothing", ""sv, '=', ""sv, ""sv, false},
        {"separator above 0x7F", "a\xFF\x62"sv, '\xFF', "a"sv, "b"sv, true},
        {"separator 0", "a=b"sv, '\0', "a=b"sv, ""sv, false},
        {"zero behind the separator", "a=b\0c"sv, '=', "a"sv, "b\0c"sv, true},
        {"zero before the separator", "a\0b=c"sv, '=', ""sv, ""sv, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const AttribValuePair pair(bytes(row.text), row.separator);
        EXPECT_EQ(pair.form, 0);
        EXPECT_EQ(pair.text, bytes(row.text));
        EXPECT_EQ(pair.name, bytes(row.expectedName));
        EXPECT_EQ(pair.value, bytes(row.expectedValue));
        EXPECT_EQ(pair.valid(), row.valid);
        EXPECT_EQ(pair.asString('#'), bytes(row.text));
    }
    const Text text("a=b");
    EXPECT_EQ(AttribValuePair(text, '=').text.c_str(), text.c_str()) << "shared";
}

TEST(AttribValuePair, JoinsNameAndValue)
{
    EXPECT_EQ(AttribValuePair("a", "b", ':').text, "a:b");
    EXPECT_EQ(AttribValuePair("a", "b", ':').asString('='), "a:b") << "the stored text wins";

    const AttribValuePair wide(L"na\u00EFve", L"\u65E5", '=');
    EXPECT_EQ(wide.name, "na\xC3\xAFve");
    EXPECT_EQ(wide.text, "na\xC3\xAFve=\xE6\x97\xA5");
}

TEST(AttribValuePair, SeparatorZeroAddsNothingDeliberately)
{
    const AttribValuePair pair("name", "value", '\0');
    EXPECT_EQ(pair.text, "namevalue");
    EXPECT_EQ(pair.text.length(), 9u);
    const AttribValuePair nothing("", "", '\0');
    EXPECT_EQ(nothing.text.useCount(), 0u) << "a text without characters has no block";
    EXPECT_EQ(made(2, "", "a", "b").asString('\0'), "ab");
    Pairs pairs;
    pairs.push_back(pair);
    pairs.push_back(pair);
    EXPECT_EQ(AttribValuePair::asString(pairs, '=', '\0'), "namevaluenamevalue");
}

TEST(AttribValuePair, JoiningCopiesTheValueAsAppendingDoes)
{
    // The plain way to the same text, for every length around the steps of the capacity.
    for (unsigned int nameLength = 0; nameLength < 9; ++nameLength) {
        for (unsigned int valueLength = 0; valueLength < 9; ++valueLength) {
            SCOPED_TRACE(testing::Message() << nameLength << " " << valueLength);
            const Text name(bytes(std::string(nameLength, 'n')));
            std::string characters(valueLength, 'v');
            if (valueLength > 2)
                characters[1] = '\0'; // and what stands behind it goes
            const Text value(bytes(characters));
            Text plain(name);
            plain += '=';
            plain += value;
            const AttribValuePair pair(name, value, '=');
            EXPECT_EQ(pair.text, plain);
            EXPECT_EQ(pair.text.capacity(), plain.capacity());
        }
    }
}

TEST(AttribValuePair, FormSaysWhatIsCompared)
{
    // One letter for each of text, name and value.
    const auto equal = [](int aForm, const char* a, int bForm, const char* b) {
        const auto pair = [](int form, const char* letters) {
            const char member[][2] = {{letters[0]}, {letters[1]}, {letters[2]}};
            return made(form, member[0], member[1], member[2]);
        };
        const AttribValuePair first = pair(aForm, a), second = pair(bForm, b);
        EXPECT_EQ(first == second, second == first);
        EXPECT_NE(first == second, first != second);
        return first == second;
    };
    const struct {
        const char* name;
        int aForm, bForm;
        bool otherText, otherName, otherValue; // whether still equal with only this different
        bool onlyText;                         // whether still equal with only the text the same
    } rows[] = {
        {"both agree", 0, 0, true, true, true, true},
        {"both texts", 1, 1, false, true, true, true},
        {"both names and values", 2, 2, true, false, false, false},
        {"agreed and text", 0, 1, false, true, true, true},
        {"agreed and name and value", 0, 2, true, false, false, false},
        {"text and name and value", 1, 2, false, false, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(equal(row.aForm, "tnv", row.bForm, "tnv"));
        EXPECT_EQ(equal(row.aForm, "tnv", row.bForm, "Tnv"), row.otherText);
        EXPECT_EQ(equal(row.aForm, "tnv", row.bForm, "tNv"), row.otherName);
        EXPECT_EQ(equal(row.aForm, "tnv", row.bForm, "tnV"), row.otherValue);
        EXPECT_EQ(equal(row.aForm, "tnv", row.bForm, "tNV"), row.onlyText);
        EXPECT_FALSE(equal(row.aForm, "tnv", row.bForm, "TNV"));
    }
    EXPECT_FALSE(equal(0, "tnv", 0, "TnV")) << "a name alone is not enough";
    EXPECT_TRUE(AttribValuePair(Text("a=b\0c", 5), '=') == AttribValuePair("a=b", '='))
        << "up to the first zero";
    EXPECT_FALSE(AttribValuePair("A=b", '=') == AttribValuePair("a=b", '='));
}

TEST(AttribValuePair, AssignmentHonoursTheForm)
{
    AttribValuePair pair = made(1, "old=1", "old", "1");
    pair = made(0, "t", "n", "v");
    EXPECT_EQ(dump(pair), "0 t|n|v");
    pair = made(2, "stale", "name", "value");
    EXPECT_EQ(dump(pair), "2 t|name|value") << "the text of the other pair is stale, ours stays";
    EXPECT_EQ(pair.asString(':'), "name:value");
    EXPECT_TRUE(pair.valid());
    const AttribValuePair copy(made(1, "x", "y", "z"));
    EXPECT_EQ(dump(copy), "1 x|y|z") << "construction copies member by member";
    EXPECT_FALSE(copy.valid());
    EXPECT_EQ(copy.asString(':'), "x");
}

TEST(AttribValuePair, TextOnlyIsSplitAtEqualsDeliberately)
{
    AttribValuePair pair("old=1", '=');
    pair = made(1, "a:b=c", "stale", "stale");
    EXPECT_EQ(dump(pair), "0 a:b=c|a:b|c");
    AttribValuePair self = made(1, "k=v", "stale", "stale");
    for (int i = 0; i < 2; ++i) {
        self = *&self;
        EXPECT_EQ(dump(self), "0 k=v|k|v");
    }
}

TEST(AttribValuePair, WideTextIgnoresTheSeparatorDeliberately)
{
    EXPECT_EQ(made(2, "", "a", "b").asWString(';'), L"a=b");
    EXPECT_EQ(AttribValuePair("a", "b", ':').asWString(';'), L"a:b");
    EXPECT_EQ(AttribValuePair("a", "\xC3\xA9", '=').asWString('='), L"a=\u00C3\u00A9")
        << "byte by byte";
    Pairs pairs;
    pairs.push_back(AttribValuePair("a", "\xC3\xA9", '='));
    EXPECT_EQ(AttribValuePair::asWString(pairs, '=', ';'), L"a=\u00E9") << "a list is decoded";
}

TEST(AttribValuePairList, JoinsItems)
{
    const struct {
        const char* name;
        std::vector<const char*> items;
        const char* expected;
    } rows[] = {
        {"none", {}, ""},
        {"empty in between keeps its separator", {"a=1", "", "b=2"}, "a=1;;b=2"},
        {"empty at the end keeps its separator", {"a=1", ""}, "a=1;"},
        {"empty in front adds nothing", {"", "", "a=1", "b=2"}, "a=1;b=2"},
        {"all empty", {"", ""}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Pairs pairs;
        for (const char* item : row.items)
            pairs.push_back(AttribValuePair(item, '='));
        EXPECT_EQ(AttribValuePair::asString(pairs, '=', ';'), row.expected);
    }
    Pairs stale;
    stale.push_back(made(2, "x", "a", "1"));
    stale.push_back(AttribValuePair("b", "2", ':'));
    EXPECT_EQ(AttribValuePair::asString(stale, '>', ';'), "a>1;b:2");
}

TEST(AttribValuePairList, ReadsTheValidItems)
{
    const struct {
        const char* name;
        const char* text;
        const char* expected;
    } rows[] = {
        {"two of them", "a=1;;b=2;c", "a=1;b=2"},
        {"separators around", ";a=1;", "a=1"},
        {"no name, no value", "=1;b=;c=3", "c=3"},
        {"quotes mean nothing", "a=\"1;2\"", "a=\"1"},
        {"nothing", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(
            AttribValuePair::asString(AttribValuePair::vecFromString(row.text, '=', ';'), '=', ';'),
            row.expected);
    }
}

TEST(LightweightVector, CopiesShareItemsAndTheLastOneFreesThem)
{
    ScriptedPlatform platform;
    {
        Pairs pairs;
        Pairs copy(pairs);
        copy.push_back(AttribValuePair("a=1", '='));
        ASSERT_EQ(pairs.size(), 1u);
        pairs[0].value = "2";
        EXPECT_EQ(copy[0].value, "2");

        Pairs moved(std::move(copy));
        EXPECT_EQ(copy.size(), 1u) << "moving is copying"; // NOLINT(bugprone-use-after-move)
        Pairs other;
        other = moved;
        const Pairs& same = other;
        other = same;
        EXPECT_FALSE(other.empty());
        EXPECT_EQ(other.end() - other.begin(), 1);
    }
    EXPECT_EQ(platform.liveBlocks(), 0);
}

TEST(GetValue, FindsTheFirstOfThatName)
{
    Pairs pairs;
    EXPECT_EQ(AttribValuePair::getValue("a", pairs), "");
    pairs.push_back(AttribValuePair("comment", '='));
    pairs.push_back(AttribValuePair("ab=0", '='));
    pairs.push_back(AttribValuePair("a=1", '='));
    pairs.push_back(AttribValuePair("a=2", '='));
    pairs.push_back(AttribValuePair("na\xC3\xAFve=\xE6\x97\xA5", '='));
    EXPECT_EQ(AttribValuePair::getValue("a", pairs), "1");
    EXPECT_EQ(AttribValuePair::getValue("a", pairs).c_str(), pairs[2].value.c_str()) << "shared";
    EXPECT_EQ(AttribValuePair::getValue("A", pairs), "");
    EXPECT_EQ(AttribValuePair::getValue("b", pairs), "");
    EXPECT_EQ(AttribValuePair::getValue(WideText(L"na\u00EFve"), pairs), L"\u65E5");
    EXPECT_EQ(AttribValuePair::getValue("", pairs), "") << "a comment has the empty name";
}

TEST(GetValue, CountsItemsIn16BitsDeliberately)
{
    Pairs pairs;
    const AttribValuePair other("other=x", '=');
    while (pairs.size() < 65535)
        pairs.push_back(other);
    EXPECT_EQ(AttribValuePair::getValue("missing", pairs), "") << "65,535 items: the search ends";
    pairs.push_back(AttribValuePair("last=1", '='));
    EXPECT_EQ(AttribValuePair::getValue("last", pairs), "1");

    // One more would be item 65,536, which the counter cannot name.
    pairs.push_back(AttribValuePair("beyond=1", '='));
    EXPECT_EXIT(searchUntilTimeIsUp("beyond", pairs), testing::KilledBySignal(SIGVTALRM), "");
}
