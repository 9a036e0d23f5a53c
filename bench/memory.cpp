// What objects and a large project take in memory. Each measurement has a process of its own, whose
// resident memory grows by nothing else.
//
// usage: bench-memory                    lists the measurements
//        bench-memory write FILE         writes a project of 90 MB
//        bench-memory WHAT WHO FILE      measures, and prints what report.py reads
#include "Documents.h"

#include <Vx/CriticalSection.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxNamedObjects.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sys/mman.h>
#include <typeindex>
#include <typeinfo>
#include <unistd.h>
#include <unordered_map>
#include <utility>

#if BENCH_QT
#include <QByteArray>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_SIMPLEINI
#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <SimpleIni.h>
#endif

namespace {

void announce(const std::string& row, double factor, const std::string& against)
{
    std::cout << "row\t" << row << '\t' << factor << '\t' << against << '\n';
}
void report(const std::string& row, const std::string& who, double value, const char* unit)
{
    std::cout << "figure\t" << row << " @ " << who << '\t' << value << '\t' << unit << '\n';
}

double residentBytes()
{
    double pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double processorNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void require(bool right, const char* what)
{
    if (!right) {
        std::cerr << "bench-memory: the answer is wrong: " << what << '\n';
        std::exit(1);
    }
}

// Strings

template <class String> void strings(const std::string& who)
{
    constexpr std::size_t kStrings = 200000;
    std::vector<std::vector<String>> all;
    for (const unsigned int length : {8u, 16u, 64u}) {
        const std::string row =
            "memory: a string of " + std::to_string(length) + " characters, with its object";
        announce(row, 0, "");
        const std::string text = bench::letters(length);
        const double before = residentBytes();
        std::vector<String>& made = all.emplace_back();
        made.reserve(kStrings);
        for (std::size_t i = 0; i < kStrings; ++i)
            made.emplace_back(text.data(), length);
        report(row, who, (residentBytes() - before) / kStrings, "bytes");
    }
}

// Floors

// Blocks side by side, aligned as allocators must align. They are never freed.
struct SideBySide {
    static constexpr std::size_t kRoom = std::size_t{1} << 30;
    char* next = static_cast<char*>(mmap(nullptr, kRoom, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));

    void* allocate(std::size_t size)
    {
        constexpr std::size_t kAlignment = alignof(std::max_align_t);
        return std::exchange(next, next + (size + kAlignment - 1) / kAlignment * kAlignment);
    }
};

// Registered names

struct Object {};
constexpr int kNames = 100000;

std::string nameOf(int i) { return "PooledObjects.log_" + std::to_string(i); }

// \p add registers an object under a name of about 24 characters.
template <class Add> void names(const std::string& who, Add add)
{
    const std::string row = "memory: a registered name";
    announce(row, 1.6, "std::unordered_map, a lock each");
    Object object;
    const double before = residentBytes();
    for (int i = 0; i < kNames; ++i)
        add(nameOf(i), &object);
    report(row, who, (residentBytes() - before) / kNames, "bytes");
}

void namesOfVx(const std::string& who)
{
    Vx::NamedObjectsNamespace space("memory");
    names(who, [&](const std::string& name, Object* object) {
        space.create_(typeid(Object), name.c_str(), object);
    });
}

void namesInMap(const std::string& who)
{
    struct Hash {
        std::size_t operator()(const std::pair<std::type_index, std::string>& key) const
        {
            return key.first.hash_code() * 31 + std::hash<std::string>()(key.second);
        }
    };
    struct Entry {
        std::recursive_mutex lock;
        Object* object = nullptr;
    };
    std::unordered_map<std::pair<std::type_index, std::string>, Entry, Hash> map;
    names(who, [&](const std::string& name, Object* object) {
        map[{typeid(Object), name}].object = object;
    });
}

// The least that a name can be: the documented blocks and a pointer in an index.
void leastNames(const std::string& who)
{
    using Entry = Vx::NamedObjectsNamespace::Entry;
    struct Link { // of a std::list
        void* neighbours[2];
        Entry* entry;
    };
    constexpr std::size_t kSection = 48; // what a CriticalSection shares
    struct Lock {                        // the platform's
        virtual void lock() { mutex.lock(); }
        unsigned int count;
        std::recursive_mutex mutex;
    };
    SideBySide source;
    std::vector<void*> index;
    names(who, [&](const std::string& name, Object*) {
        for (const std::size_t size :
             {sizeof(Entry), sizeof(Link), kSection, sizeof(Lock::count), sizeof(Lock),
              sizeof(LightweightString<char>::Impl) + name.size() + 1})
            std::memset(source.allocate(size), 1, size);
        index.reserve(kNames);
        index.push_back(source.next);
    });
}

// A project of 90 MB: loaded, read, edited, saved and dropped

constexpr std::size_t kSections = 22000;
constexpr std::size_t kPairs = 100;

struct Place {
    std::string section;
    std::string name;
};

std::vector<Place> places(std::size_t count)
{
    bench::Numbers numbers(43);
    std::vector<Place> found;
    char text[32];
    for (std::size_t i = 0; i < count; ++i) {
        Place& place = found.emplace_back();
        std::snprintf(text, sizeof text, "Section%05u", numbers.below(kSections));
        place.section = text;
        std::snprintf(text, sizeof text, "property%04u", numbers.below(kPairs));
        place.name = text;
    }
    return found;
}

/// What a peer does with a project; each operation returns whether it succeeded.
class Project {
public:
    virtual ~Project() = default;
    virtual bool load(const std::string& file) = 0;
    virtual bool get(const Place& place, std::string& value) = 0;
    virtual bool set(const Place& place, const std::string& value) = 0;
    virtual bool save(const std::string& file) = 0;
};

class VxProject : public Project {
public:
    bool load(const std::string& file) override
    {
        return document_.load(bench::widePath(file), '\n');
    }
    bool get(const Place& place, std::string& value) override
    {
        const auto* const found = find(place);
        if (found != nullptr)
            value = found->value.c_str();
        return found != nullptr;
    }
    bool set(const Place& place, const std::string& value) override
    {
        auto* const found = find(place);
        if (found != nullptr)
            *found = Vx::AttribValuePair(found->name, bench::narrow(value), '=');
        return found != nullptr;
    }
    bool save(const std::string& file) override { return document_.saveAll(bench::widePath(file)); }

private:
    Vx::AttribValuePair* find(const Place& place)
    {
        for (Vx::AttribValuePair& pair : document_.getSection(bench::narrow(place.section)))
            if (pair.name == place.name.c_str())
                return &pair;
        return nullptr;
    }
    VxIniFile document_{true};
};

#if BENCH_GLIB
class GlibProject : public Project {
public:
    ~GlibProject() override { g_key_file_free(file_); }
    bool load(const std::string& file) override
    {
        return g_key_file_load_from_file(file_, file.c_str(), G_KEY_FILE_NONE, nullptr) != FALSE;
    }
    bool get(const Place& place, std::string& value) override
    {
        char* const found =
            g_key_file_get_value(file_, place.section.c_str(), place.name.c_str(), nullptr);
        if (found == nullptr)
            return false;
        value = found;
        g_free(found);
        return true;
    }
    bool set(const Place& place, const std::string& value) override
    {
        g_key_file_set_value(file_, place.section.c_str(), place.name.c_str(), value.c_str());
        return true;
    }
    bool save(const std::string& file) override
    {
        return g_key_file_save_to_file(file_, file.c_str(), nullptr) != FALSE;
    }

private:
    GKeyFile* file_ = g_key_file_new();
};
#endif

#if BENCH_SIMPLEINI
class SimpleProject : public Project {
public:
    bool load(const std::string& file) override { return file_.LoadFile(file.c_str()) == SI_OK; }
    bool get(const Place& place, std::string& value) override
    {
        const char* const found = file_.GetValue(place.section.c_str(), place.name.c_str());
        value = found != nullptr ? found : "";
        return found != nullptr;
    }
    bool set(const Place& place, const std::string& value) override
    {
        return file_.SetValue(place.section.c_str(), place.name.c_str(), value.c_str()) ==
               SI_UPDATED;
    }
    bool save(const std::string& file) override { return file_.SaveFile(file.c_str()) == SI_OK; }

private:
    CSimpleIniCaseA file_;
};
#endif

const std::string kDrop = "project: drop 90 MB";
const std::string kLoaded = "project: resident memory per byte of the file, loaded";

double sizeOf(const std::string& path)
{
    return static_cast<double>(std::filesystem::file_size(path));
}

template <class Peer> void project(const std::string& who, const std::string& file)
{
    const auto step = [&](const std::string& operation, double goal, auto work) {
        const std::string row = "project: " + operation;
        announce(row, goal, "");
        const double start = processorNanoseconds();
        require(work(), operation.c_str());
        report(row, who, processorNanoseconds() - start, "ns");
    };
    const auto everyPlace = [](std::size_t count, auto work) {
        for (const Place& place : places(count))
            if (!work(place))
                return false;
        return true;
    };
    const double bytes = sizeOf(file);
    const double before = residentBytes();
    auto peer = std::make_unique<Peer>();
    step("load 90 MB", 1.0, [&] { return peer->load(file); });
    const double loaded = residentBytes() - before;
    std::string value;
    step("look up 10,000 values", 0, [&] {
        return everyPlace(10000, [&](const Place& place) { return peer->get(place, value); });
    });
    step("edit 1,000 values", 0, [&] {
        return everyPlace(1000, [&](const Place& place) { return peer->set(place, "edited"); });
    });
    const std::string copy = file + ".saved";
    step("save 90 MB", 1.0, [&] { return peer->save(copy); });
    require(peer->get(places(1000).back(), value) && value == "edited" && sizeOf(copy) > bytes / 2,
            "edited values are saved");
    std::filesystem::remove(copy);
    announce(kDrop, 1.15, "");
    const double start = processorNanoseconds();
    peer.reset();
    report(kDrop, who, processorNanoseconds() - start, "ns");
    announce(kLoaded, 0, "");
    report(kLoaded, who, loaded / bytes, "bytes");
    const std::string dropped = "project: resident memory per byte of the file, dropped";
    announce(dropped, 0, "");
    report(dropped, who, (residentBytes() - before) / bytes, "bytes");
}

// The least that the document can be: an object for each pair, a block for each line and each value,
// and one for each name, which all sections share. The memory comes from \p Source.
template <class Source> class LeastProject {
public:
    explicit LeastProject(const std::string& file)
    {
        std::ifstream input(file);
        Pair* pair = nullptr;
        for (std::string line; std::getline(input, line);) {
            if (line[0] == '[') {
                pair = new (source_.allocate(kPairs * sizeof(Pair))) Pair[kPairs];
                sections_.push_back(pair);
                continue;
            }
            const std::size_t separator = line.find('=');
            const auto number = static_cast<std::size_t>(pair - sections_.back());
            if (number == names_.size())
                names_.push_back(makeBlock(line.substr(0, separator)));
            ++*names_[number].count;
            pair->strings[0] = makeBlock(line);
            pair->strings[1] = names_[number];
            pair->strings[2] = makeBlock(line.substr(separator + 1));
            ++pair;
        }
    }
    ~LeastProject()
    {
        for (Pair* const section : sections_) {
            for (std::size_t i = 0; i < kPairs; ++i)
                for (const String& string : section[i].strings)
                    if (__atomic_sub_fetch(string.count, 1u, __ATOMIC_SEQ_CST) == 0)
                        source_.deallocate(string.block);
            source_.deallocate(section);
        }
    }
    LeastProject(const LeastProject&) = delete;
    LeastProject& operator=(const LeastProject&) = delete;

private:
    using Header = LightweightString<char>::Impl;

    struct String {
        unsigned int* count = nullptr;
        Header* block = nullptr;
    };
    struct Pair {
        long form = 0;
        String strings[3];
    };
    static_assert(sizeof(Pair) == sizeof(Vx::AttribValuePair));

    String makeBlock(const std::string& text)
    {
        auto* const block =
            static_cast<Header*>(source_.allocate(sizeof(Header) + text.size() + 1));
        std::memcpy(block + 1, text.c_str(), text.size() + 1);
        block->refCount = 1;
        return {&block->refCount, block};
    }

    Source source_;
    std::vector<String> names_;
    std::vector<Pair*> sections_;
};

void leastMemory(const std::string& who, const std::string& file)
{
    const double before = residentBytes();
    // Never destroyed, since its blocks cannot be freed.
    const auto& made = *new LeastProject<SideBySide>(file);
    static_cast<void>(made);
    announce(kLoaded, 0, "");
    report(kLoaded, who, (residentBytes() - before) / sizeOf(file), "bytes");
}

struct Heap {
    void* allocate(std::size_t size) { return std::malloc(size); }
    void deallocate(void* block) { std::free(block); }
};

void leastDrop(const std::string& who, const std::string& file)
{
    auto made = std::make_unique<LeastProject<Heap>>(file);
    announce(kDrop, 1.15, "");
    const double start = processorNanoseconds();
    made.reset();
    report(kDrop, who, processorNanoseconds() - start, "ns");
}

struct Measurement {
    const char* what;
    const char* who;
    void (*measure)(const std::string& who, const std::string& file);
};

template <void (*Measure)(const std::string&)>
void withoutFile(const std::string& who, const std::string&)
{
    Measure(who);
}

constexpr Measurement kMeasurements[] = {
    {"strings", "Vx", withoutFile<strings<LightweightString<char>>>},
    {"strings", "std::string", withoutFile<strings<std::string>>},
    {"strings", "std::string, malloc", withoutFile<strings<bench::MallocString>>},
#if BENCH_QT
    {"strings", "QByteArray", withoutFile<strings<QByteArray>>},
#endif
    {"names", "Vx", withoutFile<namesOfVx>},
    {"names", "std::unordered_map, a lock each", withoutFile<namesInMap>},
    {"names", "floor: blocks side by side", withoutFile<leastNames>},
    {"project", "Vx", project<VxProject>},
#if BENCH_GLIB
    {"project", "GKeyFile", project<GlibProject>},
#endif
#if BENCH_SIMPLEINI
    {"project", "SimpleIni", project<SimpleProject>},
#endif
    {"project", "floor: blocks side by side", leastMemory},
    {"project", "floor: count down and free", leastDrop},
};

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.empty()) {
        for (const Measurement& each : kMeasurements)
            std::cout << each.what << '\t' << each.who << '\n';
        return 0;
    }
    if (words.size() == 2 && words[0] == "write") {
        bench::writeFile(words[1], bench::iniText(kSections, kPairs));
        return 0;
    }
    for (const Measurement& each : kMeasurements)
        if (words.size() == 3 && words[0] == each.what && words[1] == each.who) {
            each.measure(each.who, words[2]);
            return 0;
        }
    std::cerr << "bench-memory: no such measurement\n";
    return 2;
}
