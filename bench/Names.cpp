// Looking up one named object among few and among many.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxNamedObjects.h>
#include <memory>
#include <mutex>
#include <typeinfo>
#include <unordered_map>
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

template <class Map> void inMap(State& state, std::size_t count)
{
    Names names(count);
    Map map;
    for (std::size_t i = 0; i < count; ++i)
        map.emplace(names.texts[i], &names.objects[i]);
    std::mutex mutex;
    findInTurn(state, names, [&](const char* name) -> void* {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = map.find(name);
        return found != map.end() ? found->second : nullptr;
    });
}

// The minimum of a look-up: an entry per name, found under the namespace's lock, and the object
// read under the entry's own lock.
struct Entry {
    CriticalSection lock;
    Object* object;
};

struct Entries {
    explicit Entries(Names& names)
    {
        for (Object& object : names.objects) {
            entries.push_back(std::make_unique<Entry>());
            entries.back()->object = &object;
        }
    }

    template <class Find> Object* objectOf(Find findEntry)
    {
        lock.enter();
        Entry* const entry = findEntry();
        lock.leave();
        if (entry == nullptr)
            return nullptr;
        const std::lock_guard<CriticalSection> hold(entry->lock);
        return entry->object;
    }

    std::vector<std::unique_ptr<Entry>> entries;
    CriticalSection lock;
};

#if BENCH_QT
QByteArray asKey(const char* name)
{
    return QByteArray::fromRawData(name, qsizetype(std::strlen(name)));
}
#endif

void addFloors(Row& row, std::size_t count)
{
    row.floor("both locks, the entry known", [=](State& state) {
        Names names(count);
        Entries entries(names);
        const auto objectAt = [&](std::size_t i) {
            return entries.objectOf([&] { return entries.entries[i].get(); });
        };
        bool right = true;
        for (std::size_t i = 0; i < count; ++i)
            right = right && objectAt(i) == &names.objects[i];
        std::size_t at = 0;
        run(state, right, [&] { keep(objectAt(names.order[at++ & 4095])); });
    });
#if BENCH_QT
    row.floor("QHash, both locks", [=](State& state) {
        Names names(count);
        Entries entries(names);
        QHash<QByteArray, Entry*> map;
        for (std::size_t i = 0; i < count; ++i)
            map.insert(QByteArray::fromStdString(names.texts[i]), entries.entries[i].get());
        findInTurn(state, names, [&](const char* name) {
            return entries.objectOf([&] { return map.value(asKey(name)); });
        });
    });
#endif
}

void addLockedPeers([[maybe_unused]] Row& row, [[maybe_unused]] std::size_t count)
{
#if BENCH_QT
    row.peer("QHash, QMutex", [=](State& state) {
        Names names(count);
        QHash<QByteArray, Object*> map;
        for (std::size_t i = 0; i < count; ++i)
            map.insert(QByteArray::fromStdString(names.texts[i]), &names.objects[i]);
        QMutex mutex;
        findInTurn(state, names, [&](const char* name) -> void* {
            const QMutexLocker lock(&mutex);
            return map.value(asKey(name));
        });
    });
#endif
#if BENCH_GLIB
    row.peer("GHashTable, GMutex", [=](State& state) {
        Names names(count);
        GHashTable* const map = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
        for (std::size_t i = 0; i < count; ++i)
            g_hash_table_insert(map, g_strdup(names.texts[i].data()), &names.objects[i]);
        GMutex mutex;
        g_mutex_init(&mutex);
        findInTurn(state, names, [&](const char* name) -> void* {
            g_mutex_lock(&mutex);
            void* const found = g_hash_table_lookup(map, name);
            g_mutex_unlock(&mutex);
            return found;
        });
        g_mutex_clear(&mutex);
        g_hash_table_destroy(map);
    });
#endif
}

void addFind(const std::string& operation, std::size_t count)
{
    Row row("names", operation, {1.0});
    row.ours([=](State& state) {
        Names names(count);
        // Entries deliberately outlive their namespace, so each size has one for all runs.
        static std::unordered_map<std::size_t, std::unique_ptr<Vx::NamedObjectsNamespace>> spaces;
        std::unique_ptr<Vx::NamedObjectsNamespace>& space = spaces[count];
        if (space == nullptr)
            space = std::make_unique<Vx::NamedObjectsNamespace>("bench");
        for (std::size_t i = 0; i < count; ++i)
            space->createOrReplace_(typeid(Object), names.texts[i].c_str(), &names.objects[i]);
        findInTurn(state, names,
                   [&](const char* name) { return space->find_(typeid(Object), name); });
    });
    row.peer("std::unordered_map, std::mutex",
             [=](State& state) { inMap<std::unordered_map<std::string, Object*>>(state, count); });
#if BENCH_ABSL
    row.peer("absl::flat_hash_map, std::mutex",
             [=](State& state) { inMap<absl::flat_hash_map<std::string, Object*>>(state, count); });
#endif
    addFloors(row, count);
    addLockedPeers(row, count);
}

} // namespace

void bench::addNames()
{
    addFind("look-up among 10 names", 10);
    addFind("look-up among 1,000 names", 1000);
    addFind("look-up among 100,000 names", 100000);
}
