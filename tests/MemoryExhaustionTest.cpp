// Fails the first allocation of every operation, then the second, and so on until it succeeds.
// Named objects, the pool log and exceptions have such tests of their own.
#include <Vx/Image/BufferFormat.h>
#include <Vx/Image/Core.h>
#include <Vx/Image/UUID.h>
#include <Vx/Image/Video.h>
#include <Vx/Image/VideoSample.h>
#include <Vx/Image/VideoSequence.h>
#include <Vx/VxApplication.h>
#include <Vx/VxEmail.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxStringNumbers.h>
#include <Vx/VxStringSplit.h>
#include <Vx/VxStringUtils.h>
#include <Vx/VxVersion.h>
#include <climits>

#include <Texts.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

using Pair = Vx::AttribValuePair;
using Pairs = LightweightVector<Pair>;

// The content of an object, for comparisons.
template <class Ch> std::string describe(const LightweightString<Ch>& text)
{
    return {reinterpret_cast<const char*>(text.c_str()), text.length() * sizeof(Ch)};
}
std::string describe(const Pair& pair)
{
    return std::to_string(pair.form) + pair.text.c_str() + "|" + pair.name.c_str() + "|" +
           pair.value.c_str();
}
std::string describe(const Pairs& pairs) { return describe(Pair::asString(pairs, '=', ';')); }
std::string describe(const VxIniFile& ini)
{
    std::string all = describe(ini.path) + (ini.getSectionNameCaseSensitivity() ? "Aa" : "a");
    for (const auto& [name, pairs] : ini.sections) {
        all.append("[").append(name.c_str()).append("]");
        for (const Pair& pair : pairs)
            all.append("{").append(pair.text.c_str()).append("}");
    }
    return all;
}
std::string describe(const CriticalSection& lock) { return describe(lock.name()); }

// One type for all lambdas, so that the templates are instantiated once.
template <class State> using Work = std::function<void(std::type_identity_t<State>&)>;

struct MemoryExhaustion : testing::Test {
    /// Runs \p work. After each failure the result of \p show is unchanged, no memory has leaked
    /// and no lock is held.
    void exhaust(
        const char* name, const std::function<void()>& work,
        const std::function<std::string()>& show = [] { return std::string(); },
        unsigned int least = 1)
    {
        SCOPED_TRACE(name);
        const auto before = show();
        const long blocks = platform.liveBlocks();
        const unsigned int failures = failEachAllocation(platform, work, [&] {
            EXPECT_EQ(platform.liveBlocks(), blocks);
            EXPECT_EQ(show(), before);
            const std::string calls = " " + platform.takeLog() + " ";
            EXPECT_EQ(count(calls, " lock "), count(calls, " unlock ")) << calls;
        });
        platform.takeLog();
        EXPECT_GE(failures, least) << "allocates too little to be tested here";
    }

    /// The same for work on \p state.
    template <class State>
    void exhaustOn(const char* name, State state, const Work<State>& work, unsigned int least = 1)
    {
        exhaust(
            name, [&] { work(state); }, [&] { return describe(state); }, least);
    }

    /// Changes a string in place, once shared with another one, which must not change, and once
    /// unshared.
    template <class String>
    void exhaustText(const char* name, const String& text, const Work<String>& work)
    {
        const auto before = str(text);
        exhaustOn(name, text, work);
        EXPECT_EQ(str(text), before) << name;
        exhaustOn(name, String(text.c_str()), work, 0);
    }

    template <class Ch> void exhaustStrings()
    {
        using String = LightweightString<Ch>;
        static const Ch kMore[] = {'m', 'o', 'r', 'e', 0};
        for (const String& text : {String(), String(kMore)}) {
            exhaustText("append", text, [](String& s) { s.append(kMore, 4); });
            exhaustText("append a string", text, [](String& s) { s += String(kMore, 4); });
            exhaustText("append a character", text, [](String& s) { s += Ch('x'); });
            exhaustText("resizeFor", text, [](String& s) {
                s.resizeFor(50);
                std::fill_n(s.mutableChars(), 50, Ch(1));
            });
            exhaustText("assign", text, [](String& s) { s = kMore; });
            exhaustText("concatenate", text, [](String& s) { s = kMore + s + kMore + Ch('x'); });
        }
        exhaustText("create", String(), [](String& s) {
            s.createImpl(4, true);
            std::copy_n(kMore, 4, s.mutableChars());
        });
        exhaustText("append itself", String(kMore), [](String& s) { s += s; });
        exhaustText("write", String(kMore), [](String& s) { s.mutableChars()[0] = 'x'; });
    }

    template <class Record> void exhaustRecord(const char* text)
    {
        const Narrow form(text);
        exhaust(text, [&] { EXPECT_EQ(Record(form).asString(), form); });
    }

    static int count(const std::string& text, const std::string& word)
    {
        int n = 0;
        for (std::size_t at = 0; (at = text.find(word, at)) != text.npos; ++at)
            ++n;
        return n;
    }

    ScriptedPlatform platform;
};

} // namespace

TEST_F(MemoryExhaustion, Strings)
{
    exhaustStrings<char>();
    exhaustStrings<wchar_t>();
    const Narrow narrow("Text  ");
    const Wide wide(L"xxTextxx");
    exhaustText("to lower", narrow, [](Narrow& s) { Vx::toLower(s); });
    exhaustText("to upper", wide, [](Wide& s) { Vx::toUpper(s); });
    exhaustText("strip leading", wide, [](Wide& s) { Vx::stripLeadingChars(s, L'x'); });
    exhaustText("strip trailing", wide, [](Wide& s) { Vx::stripTrailingChars(s, L'x'); });
    exhaustText("trim", narrow, [](Narrow& s) { trimTrailingSpaces(s); });
    exhaustText("append wide", narrow, [](Narrow& s) { s += Wide(L"caf\u00E9"); });
    exhaustText("append narrow", wide, [](Wide& s) { s += Narrow("more"); });
    exhaustText("append an int", narrow, [](Narrow& s) { s += INT_MIN; });
    exhaustText("append an unsigned int", narrow, [](Narrow& s) { s += UINT_MAX; });
    exhaustText("append a double", narrow, [](Narrow& s) { s += -1e300; });
    exhaust("substitute", [&] { Vx::substituteCaseInsensitive(wide, L"x", L"longer"); });
    exhaust("widen", [] { Vx::WStringFromAscii("text"); });
    exhaust("to UTF-8 and back", [&] { EXPECT_EQ(fromUTF8(toUTF8(wide)), wide); });
    exhaust("text of an int", [] { Vx::StringFromInteger(1); });
    exhaust("wide text of a long", [] { Vx::WStringFromInteger(LONG_MIN); });
    exhaust("text of a double", [] { Vx::StringFromFloat(0.5); });
    exhaust("wide text of a double", [] { Vx::WStringFromFloat(1e200, 3, true); });
    exhaust("file name", [] { EXPECT_EQ(Vx::splitFilename(L"/dir/name/"), L"name"); });
    exhaust("pack and unpack", [] {
        const Wide text(L"one,two,three,four,five,six");
        EXPECT_EQ(Vx::pack(Vx::unpack(text, L','), L','), text);
    });
    exhaust("split", [&] {
        Vx::StringToVec<Narrow>::VecT pieces{narrow};
        const Vx::IsMatchingChar<char> matches(',');
        EXPECT_EQ(Vx::splitIf(Narrow("a,\"b,c\",d"), matches, pieces, Vx::RespectQuotes), 4u);
    });
    exhaust("address", [] { EXPECT_TRUE(Vx::isAcceptableEmailAddress(L"a@b.org")); });
}

TEST_F(MemoryExhaustion, ConfigurationData)
{
    const Pair pair("old=1", '=');
    Pair textOnly("name=value", '='), nameAndValue(textOnly);
    textOnly.form = 1;
    nameAndValue.form = 2;
    exhaust("wide texts", [] { Pair(Wide(L"name"), Wide(L"value"), ':').asWString(':'); });
    exhaustOn("from a text", pair, [](Pair& p) { p = Pair("name=value", '='); });
    exhaustOn("from name and value", pair, [](Pair& p) { p = Pair("n", "v", '='); });
    exhaustOn("assign form 1", pair, [&](Pair& p) { p = textOnly; });
    exhaust("print form 2", [&] { nameAndValue.asString('='); });

    const Narrow text("name;a=1;b=2;c=3");
    const Pairs list = Pair::vecFromString(text, '=', ';');
    exhaust("pairs from a text", [&] { Pair::vecFromString(text, '=', ';'); });
    exhaust("text of pairs", [&] { Pair::asWString(list, '=', ';'); });
    exhaust("value of a pair", [&] { EXPECT_EQ(Pair::getValue(Wide(L"b"), list), L"2"); });
    exhaustOn("add a pair", Pairs(), [&](Pairs& pairs) { pairs.push_back(textOnly); });

    exhaust("reserved name", [] { VxIniFile::kAnonymousSection(); });
    platform.addFile(L"a", "top=1\n[S]\nx=1\ny=2\n[T]\n; note\n[S]\nz=3\n");
    const VxIniFile empty(L"a", false, true);
    VxIniFile filled(empty), other(L"b", false, false);
    for (const char* section : {"S", "T"}) // neither may get the new pairs without the other
        filled[section].emplace_back("a text that is long enough=1", '=');
    for (const char* section : {"B", "C"})
        other[section].emplace_back("b=1", '=');
    const auto load = [](VxIniFile& ini) { EXPECT_TRUE(ini.load({}, '\n')); };
    exhaustOn("load", empty, load);
    exhaustOn("load and merge", filled, load);
    exhaust("load at once", [] { EXPECT_TRUE(VxIniFile(L"a", true, false).sectionExists("s")); });
    exhaustOn("new section", filled, [](VxIniFile& ini) { ini["new"]; });
    exhaustOn("assign", filled, [&](VxIniFile& ini) { ini = other; });
    exhaust("copy", [&] { EXPECT_EQ(describe(VxIniFile(filled)), describe(filled)); });
    for (const auto save : {&VxIniFile::save, &VxIniFile::saveAll}) {
        platform.addFile(L"a", "old");
        VxIniFile ini = filled;
        exhaust(
            "save", [&] { (ini.*save)({}); },
            [&] {
                // Opening the file allocates last; until then the file is unchanged.
                const std::string file = platform.file(L"a");
                return describe(ini) + (file.empty() ? "old" : file);
            });
        EXPECT_EQ(count(platform.file(L"a"), "a text that is long enough=1\r\n"), 2);
    }
}

TEST_F(MemoryExhaustion, Media)
{
    exhaustRecord<Vx::Image::Core::Data>("Metadata::Core,1,1920,1080,-1,0,10,30,1,");
    exhaustRecord<Vx::Image::BufferFormat::Data>("Metadata::BufferFormat,1,1,7680,1,1,");
    exhaustRecord<Vx::Image::Video::Data>("Metadata::Video,1,1,2,a name of its own,1,");
    exhaustRecord<Vx::Image::VideoSample::Data>("Metadata::VideoSample,1,1,2,3,1,");
    exhaustRecord<Vx::Image::VideoSequence::Data>("Metadata::VideoSequence,1,25,1,");
    exhaust("format", [] { EXPECT_TRUE(Vx::Image::FormatUID(7u) == 7u); });
    exhaust("identifier", [] { EXPECT_EQ(toUTF8(Vx::UUID().asWString()), Vx::UUID().asString()); });
}

TEST_F(MemoryExhaustion, SharedState)
{
    platform.logCalls();
    exhaust("new lock", [] { CriticalSection named("name"); });
    exhaustOn("rename", CriticalSection("old"),
              [](CriticalSection& named) { named.setName("much longer"); });
    exhaustOn("renew", CriticalSection("old"), [](CriticalSection& named) { named.init(0); });

    const auto callback = [](Shutdown::eExitType) {};
    exhaust("shutdown list", [&] {
        Shutdown::CallbackItemList list;
        list.add(Shutdown::CallbackItem(callback, 7));
    });
    exhaust("at shutdown", [&] { Shutdown::addCallback(callback, 7); });

    struct Host : Vx::Application {
        Host() : Application(L"Host", L"1") {}
        void run() override {}
    };
    static Host host;
    exhaust(
        "application", [] { static Host second; },
        [] { return std::string(Vx::Application::instance() == &host ? "host" : "another"); });
    exhaust("folders", [] { EXPECT_NE(host.getLogsPath() + L"x", L""); });
    exhaust("at exit", [] { host.atShutdown([] {}, 7); });
    exhaust("version", [] { EXPECT_NE(Vx::getVersionLabel(), L""); });
}
