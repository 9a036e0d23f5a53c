// What gdb is shown: GdbPrintersTest.gdb.py stops in lookHere() and prints the caller's values.
#include <Vx/LightweightString.h>
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
    const LightweightString<char> quotes("say \"\\n\"\n");
    const LightweightString<char> large(std::string(300000, 'a').c_str());
    const LightweightString<wchar_t> wide(L"Z\u00FCrich \U0001F3AC");
    [[maybe_unused]] const LightweightString<char>& reference = name;
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

int main()
{
    strings();
    pointers();
}
