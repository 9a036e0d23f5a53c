// Looking up one named object among few and among many, by type and name.
#include "Inputs.h"
#include "Table.h"

#include <Vx/CriticalSection.h>
#include <Vx/VxNamedObjects.h>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <typeindex>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#if BENCH_QT
#include <QHash>
#include <QMutex>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::run;
using bench::State;

struct Object {
    int value;
};

// Names, and a random order in which to look them up.
struct Names {
    explicit Names(std::size_t count)
    {
        bench::Numbers numbers(51);
        for (std::size_t i = 0; i < count; ++i) {
            texts.push_back("PooledObjects.log_" + std::to_string(i));
            objects.push_back({static_cast<int>(i)});
        }
        for (std::size_t i = 0; i < 4096; ++i)
            order.push_back(numbers.below(static_cast<std::uint32_t>(count)));
    }

    std::vector<std::string> texts;
    std::vector<Object> objects;
    std::vector<std::uint32_t> order;
};

// Looks up names in turn. \p find takes a C string and returns the object.
template <class Find> void findInTurn(State& state, Names& names, Find find)
{
    bool right = find("no such name") == nullptr;
    for (std::size_t i = 0; i < names.texts.size(); ++i)
        right = right && find(names.texts[i].c_str()) == &names.objects[i];
    std::size_t at = 0;
    run(state, right, [&] { keep(find(names.texts[names.order[at++ & 4095]].c_str())); });
}

// What a peer's table finds. An entry's lock, like the namespace's, may be entered again by the
// thread that holds it.
template <class Lock> struct Entry {
    explicit Entry(Object& object) : object(&object) {}

    Lock lock;
    Object* object;
};

template <class Lock> struct Registry {
    explicit Registry(std::vector<Object>& objects)
    {
        for (Object& object : objects)
            entries.emplace_back(object);
    }

    // As Vx: finds the entry under one lock, and reads the object under the entry's own.
    template <class Find> Object* underBothLocks(Find find)
    {
        lock.lock();
        Entry<Lock>* const entry = find();
        lock.unlock();
        if (entry == nullptr)
            return nullptr;
        const std::lock_guard hold(entry->lock);
        return entry->object;
    }

    template <class Find> Object* underOneLock(Find find)
    {
        const std::lock_guard hold(plainLock);
        Entry<Lock>* const entry = find();
        return entry != nullptr ? entry->object : nullptr;
    }

    std::deque<Entry<Lock>> entries;
    Lock lock;
    std::mutex plainLock;
};

using StandardLocks = Registry<std::recursive_mutex>;
using OurLocks = Registry<CriticalSection>;

// Finds std::pair<std::type_index, std::string_view> among such pairs of std::string.
struct Hash {
    using is_transparent = void;
    template <class Key> std::size_t operator()(const Key& key) const
    {
        return key.first.hash_code() * 31 + std::hash<std::string_view>()(key.second);
    }
};
struct Equal {
    using is_transparent = void;
    template <class A, class B> bool operator()(const A& a, const B& b) const
    {
        return a.first == b.first && a.second == b.second;
    }
};
template <template <class...> class Table> struct InTable {
    template <class Lock> auto operator()(const Names& names, Registry<Lock>& registry) const
    {
        Table<std::pair<std::type_index, std::string>, Entry<Lock>*, Hash, Equal> map;
        for (std::size_t i = 0; i < names.texts.size(); ++i)
            map.emplace(std::pair(std::type_index(typeid(Object)), names.texts[i]),
                        &registry.entries[i]);
        return [map = std::move(map)](const char* name) {
            const auto found =
                map.find(std::pair(std::type_index(typeid(Object)), std::string_view(name)));
            return found != map.end() ? found->second : nullptr;
        };
    }
};
constexpr InTable<std::unordered_map> inUnorderedMap;
#if BENCH_ABSL
constexpr InTable<absl::flat_hash_map> inFlatMap;
#endif

#if BENCH_QT
struct QtKey {
    const std::type_info* type;
    QByteArray name;

    bool operator==(const QtKey& other) const { return *type == *other.type && name == other.name; }
    friend std::size_t qHash(const QtKey& key, std::size_t seed)
    {
        return qHashMulti(seed, key.type->hash_code(), key.name);
    }
};

auto inQHash(const Names& names, StandardLocks& registry)
{
    QHash<QtKey, Entry<std::recursive_mutex>*> map;
    for (std::size_t i = 0; i < names.texts.size(); ++i)
        map.insert({&typeid(Object), QByteArray::fromStdString(names.texts[i])},
                   &registry.entries[i]);
    return [map](const char* name) {
        return map.value(
            {&typeid(Object), QByteArray::fromRawData(name, qsizetype(std::strlen(name)))});
    };
}
#endif

#if BENCH_GLIB
struct GlibKey {
    const std::type_info* type;
    const char* name;
};

auto inGHashTable(const Names& names, StandardLocks& registry)
{
    const auto hash = [](gconstpointer key) {
        const auto& [type, name] = *static_cast<const GlibKey*>(key);
        return static_cast<guint>(type->hash_code()) ^ g_str_hash(name);
    };
    const auto equal = [](gconstpointer left, gconstpointer right) {
        const auto& a = *static_cast<const GlibKey*>(left);
        const auto& b = *static_cast<const GlibKey*>(right);
        return gboolean{*a.type == *b.type && std::strcmp(a.name, b.name) == 0};
    };
    auto keys = std::make_shared<std::vector<GlibKey>>();
    for (const std::string& text : names.texts)
        keys->push_back({&typeid(Object), text.c_str()});
    const std::shared_ptr<GHashTable> map(g_hash_table_new(hash, equal), g_hash_table_destroy);
    for (std::size_t i = 0; i < keys->size(); ++i)
        g_hash_table_insert(map.get(), &(*keys)[i], &registry.entries[i]);
    return [keys, map](const char* name) {
        const GlibKey key{&typeid(Object), name};
        return static_cast<Entry<std::recursive_mutex>*>(g_hash_table_lookup(map.get(), &key));
    };
}
#endif

// Adds a peer's table behind both locks. \p makeFind fills the table and returns a function from a
// name to its entry.
template <class Locks, class MakeFind>
void addBehindBoth(Row& row, const std::string& peer, std::size_t count, MakeFind makeFind)
{
    row.peer(peer, [=](State& state) {
        Names names(count);
        Locks registry(names.objects);
        const auto find = makeFind(names, registry);
        findInTurn(state, names, [&](const char* name) {
            return registry.underBothLocks([&] { return find(name); });
        });
    });
}

// Adds it behind one lock and behind both, of the standard library.
template <class MakeFind>
void addPeer(Row& row, const std::string& table, std::size_t count, MakeFind makeFind)
{
    row.peer(table + ", one lock", [=](State& state) {
        Names names(count);
        StandardLocks registry(names.objects);
        const auto find = makeFind(names, registry);
        findInTurn(state, names, [&](const char* name) {
            return registry.underOneLock([&] { return find(name); });
        });
    });
    addBehindBoth<StandardLocks>(row, table + ", both locks", count, makeFind);
}

// Entries deliberately outlive their namespace, so each row has one for all runs.
Vx::NamedObjectsNamespace& spaceOf(const std::string& row, Names& names)
{
    static std::unordered_map<std::string, std::unique_ptr<Vx::NamedObjectsNamespace>> spaces;
    std::unique_ptr<Vx::NamedObjectsNamespace>& space = spaces[row];
    if (space == nullptr)
        space = std::make_unique<Vx::NamedObjectsNamespace>("bench");
    for (std::size_t i = 0; i < names.texts.size(); ++i)
        space->createOrReplace_(typeid(Object), names.texts[i].c_str(), &names.objects[i]);
    return *space;
}

void addFind(const std::string& operation, std::size_t count)
{
    Row row("names", operation,
            {1.0, "std::unordered_map, CriticalSections|absl::flat_hash_map, CriticalSections"});
    row.ours([=](State& state) {
        Names names(count);
        Vx::NamedObjectsNamespace& space = spaceOf(operation, names);
        findInTurn(state, names,
                   [&](const char* name) { return space.find_(typeid(Object), name); });
    });
    row.floor("both locks, the entry known", [=](State& state) {
        Names names(count);
        StandardLocks registry(names.objects);
        std::size_t at = 0;
        run(state, true, [&] {
            keep(registry.underBothLocks(
                [&] { return &registry.entries[names.order[at++ & 4095]]; }));
        });
    });
    addPeer(row, "std::unordered_map", count, inUnorderedMap);
    addBehindBoth<OurLocks>(row, "std::unordered_map, CriticalSections", count, inUnorderedMap);
#if BENCH_ABSL
    addPeer(row, "absl::flat_hash_map", count, inFlatMap);
    addBehindBoth<OurLocks>(row, "absl::flat_hash_map, CriticalSections", count, inFlatMap);
#endif
#if BENCH_QT
    addPeer(row, "QHash", count, inQHash);
#endif
#if BENCH_GLIB
    addPeer(row, "GHashTable", count, inGHashTable);
#endif
}

// Processor time of all threads, per look-up.
void addThreads()
{
    Row row("names", "look-up among 1,000 names by 16 threads");
    row.onThreads(16);
    row.ours([](State& state) {
        static Names names(1000);
        static Vx::NamedObjectsNamespace& space = spaceOf("threads", names);
        findInTurn(state, names,
                   [](const char* name) { return space.find_(typeid(Object), name); });
    });
    row.peer("std::unordered_map, both locks", [](State& state) {
        static Names names(1000);
        static StandardLocks registry(names.objects);
        static const auto find = inUnorderedMap(names, registry);
        findInTurn(state, names, [](const char* name) {
            return registry.underBothLocks([&] { return find(name); });
        });
    });
    row.peer("std::unordered_map, one lock", [](State& state) {
        static Names names(1000);
        static StandardLocks registry(names.objects);
        static const auto find = inUnorderedMap(names, registry);
        findInTurn(state, names, [](const char* name) {
            return registry.underOneLock([&] { return find(name); });
        });
    });
}

} // namespace

void bench::addNames()
{
    addFind("look-up among 10 names", 10);
    addFind("look-up among 1,000 names", 1000);
    addFind("look-up among 100,000 names", 100000);
    addThreads();
}
