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

// A pair of these members, which need not agree.
AttribValuePair made(int form, const Text& text, const Text& name, const Text& value)
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

// Exits with status 0 if the search ends, and is killed by SIGVTALRM after half a second of
// processor time, in which it could compare all items many times.
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
    const struct {
        const char* name;
        Text text;
        char separator;
        Text expectedName, expectedValue;
    } rows[] = {
        {"further separators and spaces stay", "key = val=2", '=', "key ", " val=2"},
        {"another separator", "a=b:c", ':', "a=b", "c"},
        {"no name", "=x", '=', "", "x"},
        {"no value", "x=", '=', "x", ""},
        {"no separator", "novalue", '=', "", ""},
        {"nothing", "", '=', "", ""},
        {"separator above 0x7F", "a\xFF\x62", '\xFF', "a", "b"},
        {"separator 0", "a=b", '\0', "a=b", ""},
        {"zero after the separator", {"a=b\0c", 5}, '=', "a", {"b\0c", 3}},
        {"zero before the separator", {"a\0b=c", 5}, '=', "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const AttribValuePair pair(row.text, row.separator);
        EXPECT_EQ(pair.form, 0);
        EXPECT_EQ(pair.text.c_str(), row.text.c_str()) << "shared";
        EXPECT_EQ(pair.name, row.expectedName);
        EXPECT_EQ(pair.value, row.expectedValue);
        EXPECT_EQ(pair.valid(), !row.expectedName.empty() && !row.expectedValue.empty());
        EXPECT_EQ(pair.asString('#'), row.text) << "the stored text takes precedence";
    }
}

TEST(AttribValuePair, JoinsAsAppendingDoesDeliberatelyWithoutASeparatorOfZero)
{
    // Lengths on both sides of each capacity.
    for (unsigned int nameLength = 0; nameLength < 9; ++nameLength)
        for (unsigned int valueLength = 0; valueLength < 9; ++valueLength)
            for (const char separator : {'=', '\0'}) {
                SCOPED_TRACE(testing::Message() << nameLength << " " << valueLength);
                const Text name(std::string_view(std::string(nameLength, 'n')));
                std::string characters(valueLength, 'v');
                if (valueLength > 2)
                    characters[1] = '\0'; // and no v after it
                const Text value{std::string_view(characters)};
                Text plain(name);
                plain += separator;
                plain += value;
                const AttribValuePair pair(name, value, separator);
                EXPECT_EQ(pair.text, plain);
                EXPECT_EQ(pair.text.capacity(), plain.capacity());
                EXPECT_EQ(made(2, "", name, value).asString(separator), plain);
            }
    const AttribValuePair wide(L"na\u00EFve", L"\u65E5", '=');
    EXPECT_EQ(wide.name, "na\xC3\xAFve");
    EXPECT_EQ(wide.text, "na\xC3\xAFve=\xE6\x97\xA5");
}

TEST(AttribValuePair, FormSaysWhatIsCompared)
{
    // A letter for each of text, name and value; which combinations equal "tnv".
    const struct {
        int aForm, bForm;
        std::string equal;
    } rows[] = {
        {0, 0, "tnv Tnv tNv tnV tNV"}, // both agree
        {1, 1, "tnv tNv tnV tNV"},     // both texts
        {2, 2, "tnv Tnv"},             // both names and values
        {0, 1, "tnv tNv tnV tNV"},
        {0, 2, "tnv Tnv"},
        {1, 2, "tnv"},
    };
    const auto pair = [](int form, const char* letters) {
        return made(form, {letters, 1}, {letters + 1, 1}, {letters + 2, 1});
    };
    for (const auto& row : rows)
        for (const char* letters : {"tnv", "Tnv", "tNv", "tnV", "TNv", "TnV", "tNV", "TNV"}) {
            SCOPED_TRACE(testing::Message() << row.aForm << " " << row.bForm << " " << letters);
            const AttribValuePair first = pair(row.aForm, "tnv"), second = pair(row.bForm, letters);
            const bool expected = row.equal.find(letters) != row.equal.npos;
            EXPECT_EQ(first == second, expected);
            EXPECT_EQ(second == first, expected);
            EXPECT_EQ(first != second, !expected);
        }
    EXPECT_TRUE(AttribValuePair(Text("a=b\0c", 5), '=') == AttribValuePair("a=b", '='))
        << "up to the first zero";
}

TEST(AttribValuePair, AssignmentRespectsTheForm)
{
    AttribValuePair pair = made(1, "old=1", "old", "1");
    pair = made(0, "t", "n", "v");
    EXPECT_EQ(dump(pair), "0 t|n|v");
    pair = made(2, "stale", "name", "value");
    EXPECT_EQ(dump(pair), "2 t|name|value") << "keeps its own text";
    EXPECT_EQ(pair.asString(':'), "name:value");
    EXPECT_TRUE(pair.valid());
    const AttribValuePair copy(made(1, "x", "y", "z"));
    EXPECT_EQ(dump(copy), "1 x|y|z") << "copy construction copies all members";
    EXPECT_FALSE(copy.valid());
    EXPECT_EQ(copy.asString(':'), "x");
}

TEST(AttribValuePair, TextOnlyIsSplitAtEqualsDeliberately)
{
    AttribValuePair pair("old=1", '=');
    pair = made(1, "a:b=c", "stale", "stale");
    EXPECT_EQ(dump(pair), "0 a:b=c|a:b|c");
    AttribValuePair self = made(1, "k=v", "stale", "stale");
    self = *&self;
    EXPECT_EQ(dump(self = *&self), "0 k=v|k|v");
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

// The fuzz target "pair-lists" parses, joins and searches lists.

TEST(AttribValuePairList, JoinsItems)
{
    // Empty items keep their separator, but add nothing at the start.
    const std::pair<std::vector<const char*>, const char*> rows[] = {
        {{}, ""}, {{"", "", "a=1", "", "b=2", ""}, "a=1;;b=2;"}, {{"", ""}, ""}};
    for (const auto& [items, expected] : rows) {
        Pairs pairs;
        for (const char* item : items)
            pairs.push_back(AttribValuePair(item, '='));
        EXPECT_EQ(AttribValuePair::asString(pairs, '=', ';'), expected);
    }
    Pairs stale;
    stale.push_back(made(2, "x", "a", "1"));
    stale.push_back(AttribValuePair("b", "2", ':'));
    EXPECT_EQ(AttribValuePair::asString(stale, '>', ';'), "a>1;b:2");
    EXPECT_EQ(AttribValuePair::asString(stale, '\0', '\0'), "a1b:2")
        << "deliberately no separators";
}

TEST(LightweightVector, CopiesAndAssignmentsShareElements)
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
        EXPECT_EQ(copy.size(), 1u) << "moving copies"; // NOLINT(bugprone-use-after-move)

        Pairs assigned;
        assigned.push_back(AttribValuePair("dropped=1", '='));
        assigned = moved;
        assigned = *&assigned;
        assigned.push_back(AttribValuePair("b=2", '='));
        EXPECT_EQ(pairs.size(), 2u) << "assignment shares, too";
        EXPECT_EQ(pairs.end() - pairs.begin(), 2);
        EXPECT_EQ(&pairs[0], &assigned[0]);
    }
    EXPECT_EQ(platform.liveBlocks(), 0);
}

TEST(GetValue, FindsTheFirstOfTheName)
{
    Pairs pairs;
    EXPECT_EQ(AttribValuePair::getValue("a", pairs), "");
    for (const char* text : {"ab=0", "comment", "a=1", "a=2", "na\xC3\xAFve=\xE6\x97\xA5"})
        pairs.push_back(AttribValuePair(text, '='));
    EXPECT_EQ(AttribValuePair::getValue("ab", pairs), "0");
    EXPECT_EQ(AttribValuePair::getValue("a", pairs), "1");
    EXPECT_EQ(AttribValuePair::getValue("a", pairs).c_str(), pairs[2].value.c_str()) << "shared";
    EXPECT_EQ(AttribValuePair::getValue("A", pairs), "");
    EXPECT_EQ(AttribValuePair::getValue(WideText(L"na\u00EFve"), pairs), L"\u65E5");
    EXPECT_EQ(AttribValuePair::getValue("", pairs), "") << "the name of a comment is empty";
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

    // The counter cannot represent 65,536.
    pairs.push_back(AttribValuePair("beyond=1", '='));
    EXPECT_EXIT(searchUntilTimeIsUp("beyond", pairs), testing::KilledBySignal(SIGVTALRM), "");
}
