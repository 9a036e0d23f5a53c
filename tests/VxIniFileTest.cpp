#include <Vx/VxIniFile.h>

#include <Vx/VxStringUtils.h>
#include <ctime>

#include <Failures.h>
#include <Vx/testing/ScriptedPlatform.h>

using namespace std::string_view_literals;
using Vx::AttribValuePair;
using Text = LightweightString<char>;
using Pairs = std::vector<AttribValuePair>;

namespace {

const Text& anonymous() { return VxIniFile::kAnonymousSection(); }

// The whole document in one line: sections in order, the texts of their pairs. Not the pairs,
// because two of them without name and value are equal whatever their texts.
std::string dump(const VxIniFile& ini)
{
    std::ostringstream text;
    for (auto it = ini.getSectionIterator(); it.valid(); ++it) {
        text << '<' << (it.name() == anonymous() ? Text("*") : it.name()) << '>';
        for (const AttribValuePair& pair : *it) {
            const AttribValuePair plain(pair.text, '=');
            const bool asPlain = pair.name == plain.name && pair.value == plain.value;
            text << '{' << pair.text << (asPlain ? "}" : " split otherwise}");
        }
    }
    return text.str();
}

std::string dumpOf(ScriptedPlatform& platform, std::string_view content, char separator = '\n')
{
    platform.addFile(L"a.ini", std::string(content));
    VxIniFile ini(true);
    return ini.load(L"a.ini", separator) ? dump(ini) : "refused";
}

void add(VxIniFile& ini, const Text& section, const char* text)
{
    ini[section].emplace_back(text, '=');
}

// What the sleep below prints, and how often it has been called.
ScriptedPlatform* sleepers = nullptr;
int sleeps = 0;

// With a locale of 8-bit characters, 0xA0 to 0xFE are printable as negative numbers; 0xFF is EOF.
bool eightBitLocale = false;

} // namespace

// Makes the sleep of the library return at once. After a thousand calls it ends the process and
// prints what has been written.
extern "C" VX_API int nanosleep(const timespec* request, timespec* remaining)
{
    if (sleepers == nullptr)
        return clock_nanosleep(CLOCK_MONOTONIC, 0, request, remaining);
    if (++sleeps < 1000)
        return 0;
    for (const char c : sleepers->file(L"a.ini"))
        std::fputc(c == '[' ? '<' : c == ']' ? '>' : c == '\n' ? '|' : c == '\r' ? '-' : c, stderr);
    std::fprintf(stderr, " in %zu writes, old file %s\n", sleepers->writes().size(),
                 sleepers->file(L"b.ini").c_str());
    std::_Exit(42);
}

extern "C" VX_API int isprint(int c)
{
    return (c >= 0x20 && c < 0x7F) || (eightBitLocale && c >= -0x60 && c <= -2);
}

// The document.

TEST(VxIniFile, OrdersSectionsByByteOrIgnoringCase)
{
    for (const bool caseSensitive : {true, false}) {
        VxIniFile ini(caseSensitive);
        EXPECT_EQ(ini.getSectionNameCaseSensitivity(), caseSensitive);
        for (const char* name : {"audio", "Section2", "Section10", "b", "Audio", "", "1"})
            add(ini, name, name);
        EXPECT_EQ(dump(ini), caseSensitive ? "<>{}<1>{1}<Audio>{Audio}<Section10>{Section10}"
                                             "<Section2>{Section2}<audio>{audio}<b>{b}"
                                           : "<>{}<1>{1}<audio>{audio}{Audio}<b>{b}"
                                             "<Section10>{Section10}<Section2>{Section2}");
        EXPECT_EQ(ini.getNumSections(), caseSensitive ? 7u : 6u);
        EXPECT_EQ(ini.sectionExists("AUDIO"), !caseSensitive);
        ini.removeSection("AUDIO");
        EXPECT_EQ(ini.sectionExists("audio"), caseSensitive);
        ini.removeSection("none of that name");
        EXPECT_EQ(ini.getNumSections(), caseSensitive ? 7u : 5u);
    }
}

TEST(VxIniFile, OnlyTheMutableLookupCreatesSections)
{
    VxIniFile ini(true);
    const VxIniFile& readOnly = ini;
    EXPECT_TRUE(readOnly.getSection("S").empty());
    EXPECT_EQ(&readOnly.getSection("S"), &readOnly["T"]) << "one empty list for all";
    EXPECT_FALSE(ini.sectionExists("S"));
    EXPECT_EQ(anonymous(), "@@@ANONYMOUS_SECTION_RESERVED_NAME@@@");
    Pairs& pairs = ini.getSection("S");
    EXPECT_TRUE(ini.sectionExists("S"));
    EXPECT_EQ(&ini["S"], &pairs);
    EXPECT_EQ(&readOnly["S"], &pairs);
}

TEST(VxIniFile, IteratorsVisitTheSectionsAndThrowAtTheEnd)
{
    VxIniFile ini(true);
    add(ini, "B", "b=1");
    add(ini, "A", "a=1");
    const auto failure = [](auto&& misuse) { // without the line
        const std::string text = failureOf(misuse);
        return text.substr(0, text.find('(')) + text.substr(text.find(')') + 1);
    };
    const std::string file = "RuntimeError: ole/Vx/VxIniFile ";
    const std::string manipulated = file + "Attempted to manipulate invalid iterator";
    const std::string dereferenced = file + "Attempted to dereference invalid iterator";
    const auto walk = [&](auto it) {
        EXPECT_TRUE(it.valid());
        EXPECT_EQ(it++.name(), "A");
        EXPECT_EQ(it.name(), "B");
        EXPECT_EQ((*it).front().text, "b=1");
        EXPECT_FALSE((++it).valid());
        for (decltype(it) end : {it, decltype(it)()}) {
            EXPECT_FALSE(end.valid());
            EXPECT_EQ(failure([&] { ++end; }), manipulated);
            EXPECT_EQ(failure([&] { end++; }), manipulated);
            EXPECT_EQ(failure([&] { end.name(); }), dereferenced);
            EXPECT_EQ(failure([&] { *end; }), dereferenced);
        }
    };
    walk(ini.getSectionIterator());
    walk(std::as_const(ini).getSectionIterator());
    (*ini.getSectionIterator()).clear();
    EXPECT_EQ(dump(ini), "<A><B>{b=1}");
    EXPECT_FALSE(VxIniFile(true).getSectionIterator().valid());
}

TEST(VxIniFile, FindBeginsWithIgnoresTheStartDeliberately)
{
    VxIniFile ini(true);
    for (const char* text : {"Recorder=1", "comment", "recent=2", "Rec=3"})
        add(ini, "S", text);
    Pairs& pairs = ini["S"];
    const auto find = [&](const char* prefix, bool caseSensitive) {
        const auto found = ini.findBeginsWith(prefix, pairs, caseSensitive, pairs.begin() + 3);
        const VxIniFile& readOnly = ini;
        const auto same =
            readOnly.findBeginsWith(prefix, readOnly["S"], caseSensitive, readOnly["S"].end());
        EXPECT_EQ(found - pairs.begin(), same - readOnly["S"].begin());
        return found - pairs.begin();
    };
    EXPECT_EQ(find("Rec", false), 0);
    EXPECT_EQ(find("rec", true), 2);
    EXPECT_EQ(find("", true), 0);
    EXPECT_EQ(find("recorders", false), 4) << "the end";
}

TEST(VxIniFile, FindContainsIsNotImplementedDeliberately)
{
    VxIniFile ini(true);
    Pairs pairs;
    EXPECT_EQ(failureOf([&] { ini.findContains("x", pairs, true, pairs.begin()); }),
              "LogicError: ole/Vx/VxIniFile(305) Not implemented yet!");
    EXPECT_EQ(failureOf([&] { std::as_const(ini).findContains("x", pairs, true, pairs.begin()); }),
              "LogicError: ole/Vx/VxIniFile(314) Not implemented yet!");
}

TEST(VxIniFile, CopiesAreIndependent)
{
    VxIniFile ini(false), other(true);
    ini.path = L"a.ini";
    add(ini, "Video", "rate=25");
    VxIniFile copy(ini);
    add(copy, "VIDEO", "x=1");
    EXPECT_EQ(dump(ini), "<Video>{rate=25}");
    other = copy;
    EXPECT_TRUE(other.sectionExists("video")) << "the order is copied too";
    const VxIniFile moved(std::move(copy));
    EXPECT_EQ(dump(moved), "<Video>{rate=25}{x=1}");
    EXPECT_EQ(moved.path, L"a.ini");
    EXPECT_EQ(dump(copy), ""); // NOLINT(bugprone-use-after-move)
}

// Loading. The fuzz targets "ini-load" and "ini-roundtrip" test any content.

TEST(VxIniFileLoad, DeliberatelyLosesEndsThatTheLocaleCannotPrint)
{
    ScriptedPlatform platform;
    constexpr std::string_view kContent = "a=caf\xE9\n\xE9=b\nc=\xFF\nd=\x80\ne\xE9"sv;
    EXPECT_EQ(dumpOf(platform, kContent), "<*>{a=caf}{=b}{c=}{d=}{e}");
    eightBitLocale = true;
    EXPECT_EQ(dumpOf(platform, kContent), "<*>{a=caf\xE9}{\xE9=b}{c=}{d=}{e\xE9}");
    EXPECT_EQ(dumpOf(platform, "a=1\xE9\xFF b=2", '\xE9'), "<*>{a=1\xE9}{b=2}");
    eightBitLocale = false;
}

TEST(VxIniFileLoad, MergesIntoTheDocument)
{
    ScriptedPlatform platform;
    platform.addFile(L"a.ini", "[S]\nx=1\n[New]\nn=1\n");
    VxIniFile ini(false);
    add(ini, "s", "old=0");
    add(ini, "Other", "o=0");
    const Pairs* const section = &ini["s"];
    for (int i = 0; i < 2; ++i)
        ASSERT_TRUE(ini.load(i == 0 ? L"a.ini" : L"", '\n'));
    EXPECT_EQ(dump(ini), "<New>{n=1}{n=1}<Other>{o=0}<s>{old=0}{x=1}{x=1}");
    EXPECT_EQ(&ini["S"], section);

    platform.addFile(L"a.ini",
                     "[A]\nname=value\n" + std::string(63, 'x') + "\n[B]\ny=1\n[A]\nx=1\n");
    VxIniFile fresh(L"a.ini", true, true);
    EXPECT_EQ(fresh["A"].size(), 3u);
    EXPECT_EQ(fresh["B"].capacity(), 1u);
    for (const AttribValuePair& pair : fresh["A"])
        for (const Text* text : {&pair.text, &pair.name, &pair.value})
            EXPECT_EQ(text->capacity(), text->empty() ? 0 : text->length() + 1) << "no spare room";

    std::string repeated, expected;
    for (char c = 'a'; c <= 'z'; ++c) {
        repeated += std::string(c % 2 != 0 ? "[T]\nn=" : "[t]\nn=") + c + "\n[s]\nn=\n";
        expected += std::string("{n=") + c + '}';
    }
    platform.addFile(L"a.ini", repeated);
    const VxIniFile twice(L"a.ini", true, false);
    EXPECT_EQ(dump(twice).substr(dump(twice).find("<T>")), "<T>" + expected) << "in file order";
    EXPECT_EQ(twice["s"][9].name.c_str(), twice["t"][9].name.c_str()) << "equal names share";

    platform.addFile(L"a.ini", "[C]\na=1\n[D]\na=1\na=2\n[A]\na=1\nb\n[D]\na=1\n");
    const VxIniFile alike(L"a.ini", true, true);
    EXPECT_EQ(dump(alike), "<A>{a=1}{b}<C>{a=1}<D>{a=1}{a=2}{a=1}");
    EXPECT_EQ(alike["C"][0].text.c_str(), alike["D"][0].text.c_str()) << "equal lines share";

    platform.addFile(L"a.ini", "[z]\n1\n[sb]\n2\n[s_]\n3\n[sA]\n4\n[s]\n5\n[sb\xE4]\n6\n[Sb]\n7\n");
    EXPECT_EQ(dump(VxIniFile(L"a.ini", true, true)),
              "<Sb>{7}<s>{5}<sA>{4}<s_>{3}<sb>{2}<sb\xE4>{6}<z>{1}");
    EXPECT_EQ(dump(VxIniFile(L"a.ini", true, false)),
              "<s>{5}<s_>{3}<sA>{4}<sb>{2}{7}<sb\xE4>{6}<z>{1}");
}

TEST(VxIniFileLoad, ReadsWithOneCallAndClosesTheFile)
{
    ScriptedPlatform platform;
    platform.addFile(L"a.ini", "[S]\nx=1\n");
    platform.logCalls();
    const VxIniFile now(L"a.ini", /*loadNow=*/true, true);
    EXPECT_EQ(platform.takeLog(), "openFile(1,0,1,0) size read close");
    EXPECT_EQ(dump(now), "<S>{x=1}");
    const VxIniFile later(L"a.ini", /*loadNow=*/false, true);
    EXPECT_EQ(platform.takeLog(), "");
    EXPECT_EQ(later.path, L"a.ini");
    const VxIniFile missing(L"none.ini", /*loadNow=*/true, true);
    EXPECT_EQ(missing.getNumSections(), 0u);
    platform.takeLog();
    platform.addFile(L"empty.ini", "");
    VxIniFile empty(true);
    EXPECT_FALSE(empty.load(L"empty.ini", '\n')) << "deliberate: an empty file is a failure";
    EXPECT_EQ(platform.takeLog(), "openFile(1,0,1,0) size close");
    EXPECT_FALSE(VxIniFile(true).load(L"", '\n'));
    EXPECT_EQ(platform.takeLog(), "") << "no path, no call";
}

TEST(VxIniFileLoad, AFailureLeavesTheSectionsUnchanged)
{
    for (unsigned int n = 1;; ++n) {
        SCOPED_TRACE(n);
        ASSERT_LT(n, 100u) << "never completes";
        ScriptedPlatform platform;
        platform.addFile(L"a.ini", "top=1\n[S]\nx=1\n");
        VxIniFile ini(true);
        add(ini, "S", "old=0");
        platform.failFileCall(n);
        const bool loaded = ini.load(L"a.ini", '\n');
        EXPECT_EQ(loaded, !platform.faultFired());
        EXPECT_EQ(dump(ini), loaded ? "<*>{top=1}<S>{old=0}{x=1}" : "<S>{old=0}");
        EXPECT_EQ(ini.path, L"a.ini") << "stored whether or not the file loads";
        if (loaded)
            break;
    }
}

TEST(VxIniFileLoad, RefusesFilesAboveTheLimit)
{
    ScriptedPlatform platform;
    platform.addFile(L"a.ini", "[S]\nx=1\n"); // 8 bytes
    for (const unsigned int limit : {0u, 7u, 8u, 0xFFFFFFFFu}) {
        VxIniFile::setLoadLimit(limit);
        EXPECT_EQ(VxIniFile(true).load(L"a.ini", '\n'), limit >= 8) << limit;
    }
}

namespace {

// A file of one long line. Its NULs are never written, so they take no memory.
struct LongLinePlatform : PlatformProxy, iFile {
    static constexpr unsigned int kLength = 0x80000000u;

    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>&, int, int, int, int) override
    {
        return Vx::Ptr<iFile>(&holders, this);
    }
    unsigned int size() override { return kLength; }
    bool read(void* buffer, unsigned int) override
    {
        static_cast<char*>(buffer)[0] = static_cast<char*>(buffer)[kLength - 1] = 'x';
        return true;
    }
    bool write(const void*, unsigned int) override { return false; }

    unsigned int holders = 1; // and the test
};

} // namespace

TEST(VxIniFileLoad, RefusesALineThatNoStringCanHold)
{
    LongLinePlatform platform;
    VxIniFile ini(true);
    add(ini, "S", "old=0");
    EXPECT_FALSE(ini.load(L"a.ini", '\n'));
    EXPECT_EQ(dump(ini), "<S>{old=0}");
}

// Saving.

TEST(VxIniFileSave, WritesPieceByPiece)
{
    ScriptedPlatform platform;
    VxIniFile ini(true);
    add(ini, "B", "k=v");
    add(ini, "A", "; note");
    ini["A"].back().form = 2; // the text is stale
    ini["A"].back().name = "n";
    ini["A"].back().value = Text("1\0", 2);
    add(ini, "A", "; note");
    platform.logCalls();
    EXPECT_TRUE(ini.save(L"a.ini"));
    EXPECT_EQ(platform.file(L"a.ini"), "[A]\r\nn=1\0\r\n; note\r\n\r\n[B]\r\nk=v\r\n"sv);
    EXPECT_EQ(platform.writes(), (std::vector<unsigned int>{5, 6, 8, 2, 5, 5}));
    EXPECT_EQ(platform.takeLog(), "openFile(2,3,0,0) write write write write write write close");
    EXPECT_EQ(ini.path, L"a.ini");
}

TEST(VxIniFileSave, ReturnsWhetherTheFileOpenedAndSaveAllWhetherItWasCommitted)
{
    for (const auto save : {&VxIniFile::save, &VxIniFile::saveAll})
        for (unsigned int n = 1; n <= 4; ++n) { // open, write and, of saveAll, commit
            const bool all = save == &VxIniFile::saveAll;
            SCOPED_TRACE((all ? "saveAll, call " : "save, call ") + std::to_string(n));
            ScriptedPlatform platform;
            platform.addFile(L"a.ini", "old");
            VxIniFile ini(true);
            add(ini, "S", "x=1");
            EXPECT_FALSE((ini.*save)(L"")) << "no path";
            platform.failFileCall(n);
            EXPECT_EQ((ini.*save)(L"a.ini"), n > (all ? 3 : 1));
            EXPECT_EQ(platform.file(L"a.ini") == "old", n == 1);
            platform.failFileCall(0);
            EXPECT_TRUE((ini.*save)(L""));
            EXPECT_EQ(platform.file(L"a.ini"), "[S]\r\nx=1\r\n");
        }
}

TEST(VxIniFileSave, AnAnonymousSectionIsNeverPassedDeliberately)
{
    const auto check = [](bool caseSensitive, const Text& spelling,
                          const std::vector<const char*>& pairs, const char* expected) {
        SCOPED_TRACE(expected);
        ScriptedPlatform platform;
        platform.addFile(L"b.ini", "untouched");
        VxIniFile ini(caseSensitive);
        add(ini, "1", "x=1");
        for (const Text& section : {Text("2"), spelling})
            ini.getSection(section);
        for (const char* pair : pairs)
            add(ini, spelling, pair);
        for (const char* section : {"A", "B"})
            add(ini, section, "never=1");
        sleepers = &platform;
        EXPECT_EXIT(ini.save(L"a.ini"), testing::ExitedWithCode(42), expected);
        sleepers = nullptr;
    };
    const char* const top =
        "^top=1top=1top=1<1>-\\|x=1-\\|-\\|<2>-\\| in 7 writes, old file untouched";
    check(true, anonymous(), {"top=1", "second=2"}, top);
    check(false, Vx::toLower(anonymous()), {"top=1"}, top); // by position, not by spelling
    check(true, anonymous(), {}, "^<1>-\\|x=1-\\|-\\|<2>-\\| in 4 writes, old file untouched");
}

TEST(VxIniFileSaveAll, PutsAnonymousPairsAtTheTopAndWritesOnce)
{
    ScriptedPlatform platform;
    VxIniFile ini(true);
    add(ini, "1", "x=1");
    add(ini, anonymous(), "; about");
    add(ini, anonymous(), "top=1");
    add(ini, "A", "y=2");
    platform.logCalls();
    EXPECT_TRUE(ini.saveAll(L"a.ini"));
    EXPECT_EQ(platform.takeLog(), "openFile(2,3,0,0) write commit close");
    EXPECT_EQ(platform.file(L"a.ini"), "; about\r\ntop=1\r\n\r\n[1]\r\nx=1\r\n\r\n[A]\r\ny=2\r\n");
    ini[anonymous()].clear();
    EXPECT_TRUE(ini.saveAll(L""));
    EXPECT_EQ(platform.file(L"a.ini"), "[1]\r\nx=1\r\n\r\n[A]\r\ny=2\r\n");
    platform.takeLog();
    EXPECT_TRUE(VxIniFile(true).saveAll(L"a.ini"));
    EXPECT_EQ(platform.takeLog(), "openFile(2,3,0,0) commit close");
    EXPECT_EQ(platform.file(L"a.ini"), "");
    // A blank line before a section, unless the previous name is blank.
    VxIniFile blank(true);
    for (const char* name : {"", "  ", "A", "B"})
        blank.getSection(name);
    for (const auto save : {&VxIniFile::save, &VxIniFile::saveAll}) {
        EXPECT_TRUE((blank.*save)(L"a.ini"));
        EXPECT_EQ(platform.file(L"a.ini"), "[]\r\n[  ]\r\n[A]\r\n\r\n[B]\r\n");
    }
}

TEST(VxIniFileSaveAll, ProtectsEndsThatLoadingWouldStripByABlank)
{
    ScriptedPlatform platform;
    VxIniFile ini(true);
    add(ini, anonymous(), "\xEF\xBB\xBF; a byte-order mark stays first");
    add(ini, anonymous(), "\tindented");
    ini["S"].emplace_back("name", "Zo\xC3\xAB", '=');
    ini["S"].emplace_back("plain", "", '=');
    ASSERT_TRUE(ini.saveAll(L"a.ini"));
    EXPECT_EQ(platform.file(L"a.ini"),
              "\xEF\xBB\xBF; a byte-order mark stays first\r\n \tindented\r\n\r\n"
              "[S]\r\nname=Zo\xC3\xAB \r\nplain=\r\n");
    EXPECT_EQ(dump(VxIniFile(L"a.ini", true, true)), dump(ini));
}
