// The values that GdbPrintersTest.gdb.py and LldbPrintersTest.py print in the callers of lookHere().
// A line "//> expression: output" says what gdb prints; an … stands for any text.
#include <Vx/CriticalSection.h>
#include <Vx/Image/BufferFormat.h>
#include <Vx/Image/Core.h>
#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/Image/Video.h>
#include <Vx/LightweightString.h>
#include <Vx/LightweightVector.h>
#include <Vx/VxAttribValuePair.h>
#include <Vx/VxException.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxObject.h>
#include <Vx/VxPooledObjectDebug.h>
#include <cstring>
#include <string>

namespace {

struct Clip : iObject {
    int frames = 25;
};

struct Counter {
    int value = 7;
};

template <class T> using Shared = Vx::Ptr<T, Vx::DtorTraits, Vx::ExternalRefCountTraits>;

/// Memory for an object that is never constructed, filled with one byte.
template <class T> union Raw {
    Raw(unsigned char byte) { std::memset(&bytes, byte, sizeof(bytes)); }
    ~Raw() {}
    unsigned char bytes[sizeof(T)];
    T object;
};

} // namespace

extern "C" [[gnu::noinline]] void lookHere() { asm volatile("" ::: "memory"); }

namespace {

// clang-format off
const Vx::AttribValuePair pair("rate=25", '=');
//> pair: "rate" = "25" (form 0)
const Vx::AttribValuePair comment("; note", '=');
//> comment: "; note" (form 0, no pair)

void strings()
{
    const LightweightString<char> none;
    //> none: "" (length 0, sharers 0)
    const LightweightString<char> name("clip");
    const LightweightString<char> sharer(name);
    //> name: "clip" (length 4, sharers 2)
    //> &name: (const LightweightString<char> *) 0x…
    const LightweightString<char> zeros("a\0b\0", 4);
    //> zeros: "a\000b\000" (length 4, sharers 1)
    const LightweightString<char> utf8("Z\xC3\xBCrich \xE2\x82\xAC");
    //> utf8: "Zürich €" (length 11, sharers 1)
    const LightweightString<char> broken("x\xFFy");
    //> broken: "x\377y" (length 3, sharers 1)
    const LightweightString<char> large(std::string(300000, 'a').c_str());
    //> large: "aaa…aaa"... (length 300000, sharers 1)
    const LightweightString<wchar_t> wide(L"Z\u00FCrich \U0001F3AC");
    //> wide: L"Zürich 🎬" (length 8, sharers 1)
    const Raw<LightweightString<char>> zeroString(0), rawString(0xA5);
    //> zeroString.object: "" (length 0, sharers 0)
    //> rawString.object: <…>
    LightweightString<char> cut("cut");
    cut.mutableChars()[3] = '!';
    //> cut: <damaged: no terminator>
    lookHere();
    cut.mutableChars()[3] = 0;
}

void pointers()
{
    const Vx::Ptr<Clip> noClip;
    //> noClip: Vx::Ptr<(anonymous namespace)::Clip> (empty)
    const Vx::Ptr<Clip> clip(new Clip);
    const Vx::Ptr<iObject> base(clip);
    //> clip: Vx::Ptr<…Clip> (count 2, the object's counter) = {object = 0x…}
    //> base: Vx::Ptr<iObject> (count 2, the object's counter) = …
    //> *clip.object: …frames = 25…
    const Shared<Counter> counter(new Counter);
    //> counter: Vx::Ptr<…Counter> (count 1, a counter of its own) = …
    const Raw<Vx::Ptr<Clip>> rawPtr(0xA5);
    //> rawPtr.object: <unreadable: …>
    lookHere();
}

void pairs()
{
    Vx::AttribValuePair unsplit("a=b", '='), changed("a=b", '='), odd("a=b", '=');
    unsplit.form = 1;
    changed.form = 2;
    changed.value = "c";
    odd.form = 9;
    //> unsplit: "a=b" (form 1, not split)
    //> changed: "a" = "c" (form 2, text is stale)
    //> odd: <damaged: form 9>
    lookHere();
}

void documents()
{
    const VxIniFile nothing(true);
    //> nothing: VxIniFile without a path (0 sections, case-sensitive)
    VxIniFile ini(L"editor.ini", false, false);
    for (const char* section : {"Video", "Audio", "Empty", "Titles", "Keys", "Paths"})
        ini.getSection(section);
    ini["Video"].push_back(pair);
    ini["Video"].push_back(comment);
    ini["Audio"].emplace_back("gain", "-3", '=');
    ini.getSection(VxIniFile::kAnonymousSection()).push_back(comment);
    for (int i = 0; i < 250; ++i)
        ini["Many"].push_back(pair);
    //> ini: VxIniFile L"editor.ini" (8 sections, case-blind) = {["@@@ANONYMOUS_SECTION_RESERVED_NAME@@@"] = {"; note" (form 0, no pair)}, ["Audio"] = {"gain" = "-3" (form 0)}, ["Empty"] = no pairs, ["Keys"] = no pairs, ["Many" (the first 200 of 250)] = {"rate" = "25" (form 0) <repeats 200 times>}, ["Paths"] = no pairs, ["Titles"] = no pairs, ["Video"] = {"rate" = "25" (form 0), "; note" (form 0, no pair)}}
    const Raw<VxIniFile> zeroIni(0), rawIni(0xA5);
    //> zeroIni.object: VxIniFile without a path (0 sections, case-blind)
    //> rawIni.object: <…>
    VxIniFile::SectionIterator section = ini.getSectionIterator();
    ++section;
    //> section: at "Audio" (1 pair)
    [[maybe_unused]] const auto end = nothing.getSectionIterator();
    const VxIniFile::SectionIterator nowhere;
    //> end: at the end
    //> nowhere: at the end
    lookHere();
}

void lists()
{
    LightweightVector<Vx::AttribValuePair> list;
    list.push_back(pair);
    list.push_back(comment);
    const LightweightVector<Vx::AttribValuePair> listSharer(list), empty;
    //> list: LightweightVector (2 items, sharers 2) = {"rate" = "25" (form 0), "; note" (form 0, no pair)}
    //> empty: LightweightVector (0 items, sharers 1)
    LightweightVector<int> many;
    for (int i = 0; i < 250; ++i)
        many.push_back(i);
    //> many: LightweightVector (250 items, sharers 1) = {0, 1, 2, …, 199...}
    const Raw<LightweightVector<Vx::AttribValuePair>> rawList(0xA5);
    //> rawList.object: <unreadable: …>
    lookHere();
}

void formats()
{
    [[maybe_unused]] const Vx::UUID id("{0123ABCD-4567-89EF-0123-456789ABCDEF}");
    //> id: {0123abcd-4567-89ef-0123-456789abcdef}
    [[maybe_unused]] const Vx::UUID noId;
    //> noId: {00000000-0000-0000-0000-000000000000} (invalid)
    const Vx::Image::FormatUID noFormat, standard(25u);
    const Vx::Image::FormatUID custom(LightweightString<char>("1080p5994"));
    //> noFormat: "0" (no format)
    //> standard: "25" (standard)
    //> custom: "1080p5994" (custom)
    using namespace Vx::Image;
    [[maybe_unused]] const Core::Data core(1920, 1080, Format{5}, 10, 20, eLayout{-1}, true);
    [[maybe_unused]] const BufferFormat::Data buffer(true, 3840, false);
    [[maybe_unused]] const Video::Data video(ScanMode{2}, AspectRatio{3}, standard, true);
    //> core: "Metadata::Core,1,1920,1080,5,-1,10,20,1,"
    //> buffer: "Metadata::BufferFormat,1,1,3840,1,0,"
    //> video: "Metadata::Video,1,2,3,25,1,"
    const Raw<Video::Data> rawVideo(0xA5);
    //> rawVideo.object: <unreadable: …>
    lookHere();
}

void locks()
{
    CriticalSection free, named("cache"), held("index");
    held.enter();
    held.enter();
    //> free: CriticalSection (free)
    //> named: CriticalSection "cache" (free)
    //> held: CriticalSection "index" (owner thread 1 (LWP …), depth 2)
    const Raw<CriticalSection> rawLock(0xA5);
    //> rawLock.object: <unreadable: …>
    lookHere();
    held.leave();
    held.leave();
}

void pools()
{
    Vx::PooledObjectDebug::LoggingTraitsBase frames("Frames"), clips("Clips");
    frames.ltb_afterPop(nullptr, 0);
    frames.ltb_afterPop(nullptr, 0);
    frames.ltb_afterPush(nullptr, 0);
    //> Vx::PooledObjectDebug::gAllLoggers: 2 pools: "Clips" (in use 0, at most 0), "Frames" (in use 1, at most 2)
    lookHere();
}

void exceptions()
{
    const Vx::Exception::LogicError logic("Not \"yet\"!", "ole/Vx/VxIniFile", 305);
    //> logic: Vx::Exception::LogicError "Not \"yet\"!" at ole/Vx/VxIniFile(305), no stack
    Vx::Exception::RuntimeError runtime("out of frames", "ole/Vx/Example", 7);
    runtime.callStack.clear();
    runtime.callStack.emplace_back("inner+0x10");
    runtime.callStack.emplace_back("outer+0x20");
    //> runtime: Vx::Exception::RuntimeError "out of frames" at ole/Vx/Example(7), 2 frames = {"inner+0x10"…, "outer+0x20"…}
    const Raw<Vx::Exception::RuntimeError> rawError(0xA5);
    //> rawError.object: <unreadable: …>
    lookHere();
}
// clang-format on

} // namespace

int main()
{
    for (const auto group :
         {strings, pointers, pairs, documents, lists, formats, locks, pools, exceptions})
        group();
}
