// Counts the instructions of the main operations under callgrind, which are reproducible unlike
// times. Run by ./dev bench --instructions.
#include "Inputs.h"

#include <Vx/CriticalSection.h>
#include <Vx/Image/UUID.h>
#include <Vx/VxAttribValuePair.h>
#include <Vx/VxCRC.h>
#include <Vx/VxNamedObjects.h>
#include <Vx/VxStringNumbers.h>
#include <Vx/VxStringSplit.h>
#include <Vx/VxStringUtils.h>
#include <cstdio>
#include <thread>
#include <valgrind/callgrind.h>

namespace {

constexpr int kRounds = 1000;

void use(const void* result) { asm volatile("" : : "g"(result) : "memory"); }

// The first rounds, which are not counted, bind symbols and fill caches.
template <class Operation> void count(const char* name, Operation operation)
{
    for (int i = 0; i < 100; ++i)
        operation();
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    for (int i = 0; i < kRounds; ++i)
        operation();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
}

} // namespace

int main()
{
    // libstdc++ skips atomic instructions until a process has had a second thread.
    std::thread([] {}).join();

    using Text = LightweightString<char>;
    const Text text64(std::string_view(bench::letters(64)));
    const auto page = bench::wide(bench::widened(bench::letters(4096)));
    const auto fields = bench::wide(L"one,two,three,four,five,six,seven,eight,nine,ten");
    const std::string block = bench::letters(4096);
    const Text number("123456789");
    const Text line("property0001=a value of the clip");
    CriticalSection lock;

    count("copy and drop a string of 64", [&] { use(Text(text64).c_str()); });
    count("make and drop a string of 64", [&] { use(Text(text64.c_str(), 64).c_str()); });
    count("append 1 character x 100", [&] {
        Text text;
        for (int i = 0; i < 100; ++i)
            text += 'x';
        use(text.c_str());
    });
    count("literal + string", [&] { use(("/project/media/" + number).c_str()); });
    count("parse int of 9 digits", [&] {
        const int value = Vx::IntFromString(number, 0);
        use(&value);
    });
    count("UTF-32 to UTF-8, 4096", [&] { use(toUTF8(page).c_str()); });
    count("split 10 fields", [&] { use(Vx::unpack(fields, L',').data()); });
    count("pair from a line", [&] { use(Vx::AttribValuePair(line, '=').value.c_str()); });
    count("CRC of 4 KiB", [&] {
        const unsigned int value = Vx::CRC::CalculateCRC32ForBlock(block.data(), block.size());
        use(&value);
    });
    count("enter and leave a lock", [&] {
        lock.enter();
        lock.leave();
    });
    Vx::NamedObjectsNamespace names("bench");
    names.create<CriticalSection>("PooledObjects.log_1", &lock);
    count("look up a name", [&] { use(names.find<CriticalSection>("PooledObjects.log_1")); });
}
