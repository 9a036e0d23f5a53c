// What gdb is shown: GdbPrintersTest.gdb.py stops in lookHere() and prints the caller's values.
#include <Vx/CriticalSection.h>
#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/LightweightString.h>
#include <Vx/LightweightVector.h>
#include <Vx/VxAttribValuePair.h>
#include <Vx/VxException.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxObject.h>
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

/// A place for an object that is never constructed there, filled with one byte.
template <class T> union Raw {
    Raw(unsigned char byte) { std::memset(&bytes, byte, sizeof(bytes)); }
    ~Raw() {}
    unsigned char bytes[sizeof(T)];
    T object;
};

} // namespace

extern "C" [[gnu::noinline]] void lookHere() { asm volatile("" ::: "memory"); }

static void strings()
{
    const LightweightString<char> none;
    const LightweightString<char> name("clip");
    const LightweightString<char> sharer(name);
    const LightweightString<char> zeros("a\0b\0", 4);
    const LightweightString<char> utf8("Z\xC3\xBCrich \xE2\x82\xAC");
    const LightweightString<char> broken("x\xFFy");
    const LightweightString<char> large(std::string(300000, 'a').c_str());
    const LightweightString<wchar_t> wide(L"Z\u00FCrich \U0001F3AC");
    const Raw<LightweightString<char>> zeroed(0);
    const Raw<LightweightString<char>> garbage(0xA5);
    LightweightString<char> cut("cut");
    cut.mutableChars()[3] = '!';
    lookHere();
    cut.mutableChars()[3] = 0;
}

static void pointers()
{
    const Vx::Ptr<Clip> nobody;
    const Vx::Ptr<Clip> clip(new Clip);
    const Vx::Ptr<iObject> base(clip);
    const Shared<Counter> counter(new Counter);
    const Raw<Vx::Ptr<Clip>> garbage(0xA5);
    lookHere();
}

static void documents()
{
    const Vx::AttribValuePair pair("rate=25", '=');
    const Vx::AttribValuePair comment("; note", '=');
    Vx::AttribValuePair unsplit("a=b", '=');
    unsplit.form = 1;
    Vx::AttribValuePair changed("a=b", '=');
    changed.form = 2;
    changed.value = "c";
    Vx::AttribValuePair odd("a=b", '=');
    odd.form = 9;

    const VxIniFile nothing(true);
    VxIniFile ini(L"editor.ini", false, false);
    for (const char* name : {"Video", "Audio", "Empty", "Titles", "Keys", "Paths"})
        ini.getSection(name);
    ini["Video"].push_back(pair);
    ini["Video"].push_back(comment);
    ini["Audio"].emplace_back("gain", "-3", '=');
    ini.getSection(VxIniFile::kAnonymousSection()).push_back(comment);
    const Raw<VxIniFile> zeroed(0);
    const Raw<VxIniFile> garbage(0xA5);

    LightweightVector<Vx::AttribValuePair> list;
    list.push_back(pair);
    list.push_back(comment);
    const LightweightVector<Vx::AttribValuePair> sharer(list);
    const LightweightVector<Vx::AttribValuePair> empty;
    LightweightVector<int> many;
    for (int i = 0; i < 250; ++i)
        many.push_back(i);
    for (int i = 0; i < 250; ++i)
        ini["Many"].push_back(pair);
    VxIniFile::SectionIterator section = ini.getSectionIterator();
    const VxIniFile::SectionIterator nowhere;
    ++section;
    const Raw<LightweightVector<Vx::AttribValuePair>> rawList(0xA5);
    lookHere();
}

static void identifiers()
{
    const Vx::UUID id("{0123ABCD-4567-89EF-0123-456789ABCDEF}");
    [[maybe_unused]] const Vx::UUID noId;
    const Vx::Image::FormatUID noFormat;
    const Vx::Image::FormatUID standard(25u);
    const Vx::Image::FormatUID custom(LightweightString<char>("1080p5994"));
    lookHere();
}

static void locks()
{
    CriticalSection free;
    CriticalSection named("cache");
    CriticalSection held("index");
    held.enter();
    held.enter();
    const Raw<CriticalSection> garbage(0xA5);
    lookHere();
    held.leave();
    held.leave();
}

static void exceptions()
{
    const Vx::Exception::LogicError logic("Not \"yet\"!", "ole/Vx/VxIniFile", 305);
    Vx::Exception::RuntimeError runtime("out of frames", "ole/Vx/Example", 7);
    runtime.callStack.clear();
    runtime.callStack.emplace_back("inner+0x10");
    runtime.callStack.emplace_back("outer+0x20");
    const Raw<Vx::Exception::RuntimeError> garbage(0xA5);
    lookHere();
}

int main()
{
    strings();
    pointers();
    documents();
    identifiers();
    locks();
    exceptions();
}
