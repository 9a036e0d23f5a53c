// How the cost of Vx grows with the size of its input.
#include "Documents.h"
#include "Table.h"

#include <Vx/CriticalSection.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxNamedObjects.h>
#include <Vx/VxShutdown.h>
#include <memory>
#include <typeinfo>
#include <vector>

namespace {

using bench::Curve;
using bench::keep;
using bench::State;

// Loads a document of \p sections sections with \p pairs pairs each.
void loadDocument(State& state, std::size_t sections, std::size_t pairs,
                  bench::Order order = bench::Order::kByName)
{
    const bench::Folder folder;
    const std::string path = folder.file("growth.ini");
    bench::writeFile(path, bench::iniText(sections, pairs, order));
    const auto wide = bench::widePath(path);
    // The first document is dropped and leaves its memory before the measurement starts.
    const bool right = VxIniFile(wide, true, true).getNumSections() == sections;
    bench::run(state, right, [&] { keep(VxIniFile(wide, true, true).sections.size()); });
}

std::size_t sizeOf(const State& state) { return static_cast<std::size_t>(state.range(0)); }

VxIniFile documentOf(std::size_t sections, std::size_t pairs)
{
    const bench::Folder folder;
    const std::string path = folder.file("growth.ini");
    bench::writeFile(path, bench::iniText(sections, pairs));
    return VxIniFile(bench::widePath(path), true, true);
}

void growDocuments()
{
    Curve("load, pairs in sections of 100", "n log n").over({1000, 10000, 100000}, [](State& s) {
        loadDocument(s, sizeOf(s) / 100, 100);
    });
    Curve("load, sections of one pair", "n log n").over({100, 1000, 10000, 100000}, [](State& s) {
        loadDocument(s, sizeOf(s), 1);
    });
    Curve("load, sections of one pair in random order", "n log n")
        .over({100, 1000, 10000, 100000},
              [](State& s) { loadDocument(s, sizeOf(s), 1, bench::Order::kRandom); });
    Curve("load, pairs in one section", "n").over({100, 1000, 10000, 100000}, [](State& s) {
        loadDocument(s, 1, sizeOf(s));
    });
    Curve("save, pairs in sections of 100", "n").over({1000, 10000, 100000}, [](State& s) {
        VxIniFile document = documentOf(sizeOf(s) / 100, 100);
        const LightweightString<wchar_t> nowhere(L"/dev/null");
        bench::run(s, document.save(nowhere), [&] { keep(document.save(nowhere)); });
    });
    Curve("find a section among n", "log n").over({10, 100, 1000, 10000, 100000}, [](State& s) {
        const VxIniFile document = documentOf(sizeOf(s), 1);
        std::vector<LightweightString<char>> names;
        for (const auto& [name, pairs] : document.sections)
            names.push_back(name);
        bench::Numbers numbers(71);
        const auto count = static_cast<std::uint32_t>(names.size());
        bench::run(s, document.sectionExists(names.back()),
                   [&] { keep(document.sectionExists(names[numbers.below(count)])); });
    });
    Curve("getValue, the last of n pairs", "n").over({10, 100, 1000, 10000, 60000}, [](State& s) {
        LightweightVector<Vx::AttribValuePair> pairs;
        for (std::size_t i = 0; i < sizeOf(s); ++i)
            pairs.push_back(Vx::AttribValuePair(
                LightweightString<char>(("name" + std::to_string(i)).c_str()), "value", '='));
        const LightweightString<char> last = pairs[static_cast<unsigned int>(sizeOf(s) - 1)].name;
        bench::run(s, Vx::AttribValuePair::getValue(last, pairs) == "value",
                   [&] { keep(Vx::AttribValuePair::getValue(last, pairs).c_str()); });
    });
}

struct Object {
    int value = 0;
};

void growNames()
{
    Curve("create n names", "n").over({10, 100, 1000, 10000, 100000}, [](State& s) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < sizeOf(s); ++i)
            names.push_back("name " + std::to_string(i));
        Object object;
        // Entries deliberately outlive their namespace, so every iteration leaves some behind.
        bench::run(s, true, [&] {
            Vx::NamedObjectsNamespace space("growth");
            for (const std::string& name : names)
                space.create_(typeid(Object), name.c_str(), &object);
        });
    });
}

void growCallbacks()
{
    Curve("add n callbacks and run them", "n log n")
        .over({10, 100, 1000, 10000, 100000}, [](State& s) {
            bench::Numbers numbers(81);
            std::vector<unsigned int> priorities;
            for (std::size_t i = 0; i < sizeOf(s); ++i)
                priorities.push_back(numbers.below(400));
            unsigned long calls = 0;
            const std::function<void(Shutdown::eExitType)> callback = [&](Shutdown::eExitType) {
                ++calls;
            };
            const auto addAndRun = [&] {
                Shutdown::CallbackItemList list;
                for (const unsigned int priority : priorities)
                    list.add(Shutdown::CallbackItem(callback, priority));
                list.execute(Shutdown::kOrderlyExit);
            };
            addAndRun();
            bench::run(s, calls == priorities.size(), addAndRun);
        });
}

struct Counted : Vx::InternalRefCount {};

// Threads that share a string, a pointer or a lock.
void growSharers()
{
    static const LightweightString<char> text("a text that several threads share");
    static const Vx::Ptr<Counted> pointer(new Counted);
    static CriticalSection lock;
    Curve("copy and drop one string, threads", "constant").overThreads({1, 2}, [](State& s) {
        bench::run(s, text == LightweightString<char>(text), [] {
            const LightweightString<char> copy(text);
            keep(copy.c_str());
        });
    });
    Curve("copy and drop a string each, threads", "constant").overThreads({1, 2}, [](State& s) {
        const LightweightString<char> own("a text that this thread alone has");
        bench::run(s, own == LightweightString<char>(own), [&] {
            const LightweightString<char> copy(own);
            keep(copy.c_str());
        });
    });
    Curve("copy and drop one pointer, threads", "constant").overThreads({1, 2}, [](State& s) {
        bench::run(s, pointer.useCount() != 0, [] {
            const Vx::Ptr<Counted> copy(pointer);
            keep(copy.get());
        });
    });
    Curve("enter and leave one lock, threads", "constant").overThreads({1, 2}, [](State& s) {
        bench::run(s, true, [] {
            lock.enter();
            lock.leave();
        });
    });
    Curve("make and drop a string each, threads", "constant").overThreads({1, 2}, [](State& s) {
        bench::run(s, true, [] {
            const LightweightString<char> made("a text that is made and dropped at once");
            keep(made.c_str());
        });
    });
}

} // namespace

void bench::addGrowth()
{
    growDocuments();
    growNames();
    growCallbacks();
    growSharers();
}
