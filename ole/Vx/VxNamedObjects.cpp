#include <Vx/VxNamedObjects.h>

#include <Vx/VxCRC.h>
#include <Vx/VxException.h>
#include <Vx/detail/Inspect.h>
#include <Vx/detail/NameIndex.h>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <string_view>

namespace {

using Hold = std::lock_guard<CriticalSection>;

// Deliberate: the lines are fixed numbers, not the lines of the checks below. Hosts tell the
// failures apart by them.
[[noreturn]] void fail(const char* message, int line)
{
    throw Vx::Exception::RuntimeError(message, "ole/Vx/VxNamedObjects", line);
}

void checkName(const char* name, int line)
{
    if (name == nullptr)
        fail("Invalid object name!", line);
}

void checkObject(const void* object, int line)
{
    if (object == nullptr)
        fail("'object' cannot be NULL!", line);
}

unsigned int checksum(std::string_view text)
{
    return Vx::CRC::CalculateCRC32ForBlock(text.data(), text.size());
}

} // namespace

namespace Vx {

struct NamedObjectsNamespace::Key {
    Key(const std::type_info& typeInfo, const char* objectName)
        : type(typeInfo.name()),
          name(objectName != nullptr ? objectName : ""),
          hash(31 * std::hash<std::string_view>()(type) + std::hash<std::string_view>()(name))
    {}

    std::string_view type;
    std::string_view name;
    std::size_t hash;
};

struct NamedObjectsNamespace::IndexedEntry : Entry {
    IndexedEntry* next;
    std::size_t hash;
};

// An entry with its link of the list: adding it cannot fail.
struct NamedObjectsNamespace::NewEntry {
    std::unique_ptr<IndexedEntry> entry;
    std::list<Entry*> link;
};

NamedObjectsNamespace::NamedObjectsNamespace(const char* ownName)
    : name(ownName), index_(std::make_unique<detail::NameIndex<IndexedEntry>>())
{}

NamedObjectsNamespace::~NamedObjectsNamespace() = default;

namespace {

constinit std::atomic<NamedObjectsNamespace*> global = nullptr;

} // namespace

NamedObjectsNamespace* NamedObjectsNamespace::getGlobalNamespaceInstance()
{
    static CriticalSection guard;

    if (global.load(std::memory_order_acquire) == nullptr) {
        const Hold hold(guard);
        if (global.load(std::memory_order_relaxed) == nullptr)
            global.store(new NamedObjectsNamespace("GLOBAL"), std::memory_order_release);
    }
    return global.load(std::memory_order_relaxed);
}

// The namespace lock is held.
auto NamedObjectsNamespace::lookUp(const Key& key) const -> Entry*
{
    return index_->find(key.hash, [&](const Entry& entry) {
        return std::string_view(entry.objectName) == key.name &&
               std::string_view(entry.typeName) == key.type;
    });
}

// The namespace lock is held. Does everything that may fail.
auto NamedObjectsNamespace::prepare(const Key& key) const -> NewEntry
{
    NewEntry prepared{std::make_unique<IndexedEntry>(), {}};
    IndexedEntry& entry = *prepared.entry;
    // Of the exact size, since names never change.
    entry.objectName.createImpl(static_cast<unsigned int>(key.name.size()), /*powerOfTwo=*/false);
    std::memcpy(entry.objectName.mutableChars(), key.name.data(), key.name.size());
    // Entries created in a row are often of one type: share its name.
    if (!entries.empty() && std::string_view(entries.back()->typeName) == key.type)
        entry.typeName = entries.back()->typeName;
    else
        entry.typeName = LightweightString<char>(key.type);
    entry.typeHash = checksum(key.type);
    entry.nameHash = checksum(key.name);
    entry.hash = key.hash;
    prepared.link.push_back(&entry);
    return prepared;
}

// The namespace lock is held.
auto NamedObjectsNamespace::append(const Key& key, NewEntry& prepared, void* object) noexcept
    -> Entry*
{
    // Only the oldest entry per key is indexed; duplicates would lengthen the chain.
    if (lookUp(key) == nullptr)
        index_->add(*prepared.entry);
    entries.splice(entries.end(), prepared.link);
    prepared.entry->object = object;
    return prepared.entry.release();
}

// A new entry has the object from the start.
auto NamedObjectsNamespace::findOrAdd(const std::type_info& type, const char* objectName,
                                      void* object) -> Found
{
    const Key key(type, objectName);
    const Hold hold(namespaceLock);
    if (Entry* const entry = lookUp(key))
        return {entry, false};
    NewEntry prepared = prepare(key);
    return {append(key, prepared, object), true};
}

auto NamedObjectsNamespace::findInfo_(const std::type_info& type, const char* objectName) -> Entry*
{
    const Key key(type, objectName);
    const Hold hold(namespaceLock);
    return lookUp(key);
}

void* NamedObjectsNamespace::find_(const std::type_info& type, const char* objectName)
{
    checkName(objectName, 115);
    Entry* const entry = findInfo_(type, objectName);
    if (entry == nullptr)
        return nullptr;
    const Hold hold(entry->lock);
    return entry->object;
}

void NamedObjectsNamespace::create_(const std::type_info& type, const char* objectName,
                                    void* object)
{
    checkName(objectName, 143);
    checkObject(object, 148);
    const Found found = findOrAdd(type, objectName, object);
    if (found.isNew)
        return;
    const Hold hold(found.entry->lock);
    if (found.entry->object != nullptr)
        fail("Attempted to create named objects with duplicate names!", 172);
    found.entry->object = object;
}

void* NamedObjectsNamespace::findOrCreate_(const std::type_info& type, const char* objectName,
                                           void* (*factory)())
{
    checkName(objectName, 195);
    const Key key(type, objectName);
    Entry* entry = nullptr;
    {
        const Hold hold(namespaceLock);
        entry = lookUp(key);
        if (entry == nullptr) {
            // Prepare the entry before the object is made: its type is not known here, so an
            // object without an entry could not be destroyed.
            NewEntry prepared = prepare(key);
            return append(key, prepared, factory())->object;
        }
    }
    const Hold hold(entry->lock);
    if (entry->object == nullptr)
        entry->object = factory();
    return entry->object;
}

void NamedObjectsNamespace::createOrReplace_(const std::type_info& type, const char* objectName,
                                             void* object)
{
    checkName(objectName, 234);
    checkObject(object, 239);
    const Found found = findOrAdd(type, objectName, object);
    if (found.isNew)
        return;
    const Hold hold(found.entry->lock);
    found.entry->object = object;
}

void NamedObjectsNamespace::remove_(const std::type_info& type, const char* objectName)
{
    checkName(objectName, 269);
    Entry* const entry = findInfo_(type, objectName);
    if (entry == nullptr)
        return;
    const Hold hold(entry->lock);
    entry->object = nullptr;
}

auto NamedObjectsNamespace::entryToLock_(const std::type_info& type, const char* objectName)
    -> Entry*
{
    checkName(objectName, 292);
    return findOrAdd(type, objectName, nullptr).entry;
}

bool NamedObjectsNamespace::lock_(const std::type_info& type, const char* objectName, bool wait)
{
    Entry* const entry = entryToLock_(type, objectName);
    // Wait outside the namespace lock: the holder of the name may need that.
    if (!wait)
        return entry->lock.attemptEntry() == 0;
    entry->lock.enter();
    return true;
}

void NamedObjectsNamespace::unlock_(const std::type_info& type, const char* objectName)
{
    checkName(objectName, 327);
    Entry* const entry = findInfo_(type, objectName);
    if (entry == nullptr)
        fail("Attempted to unlock a named object that had not previously been locked!", 337);
    entry->lock.leave();
}

auto NamedObjectsNamespace::addListEntry_(const std::type_info& type, const char* objectName,
                                          void* object) -> Entry*
{
    const Key key(type, objectName);
    const Hold hold(namespaceLock);
    NewEntry prepared = prepare(key);
    return append(key, prepared, object);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constinit const detail::InspectNames detail::Inspect::names = {
    .size = sizeof(InspectNames),
    .entries = offsetof(NamedObjectsNamespace, entries),
    .global = &global,
    .namespaceLock = offsetof(NamedObjectsNamespace, namespaceLock),
    .namespaceName = offsetof(NamedObjectsNamespace, name),
    .object = offsetof(NamedObjectsNamespace::Entry, object),
    .lock = offsetof(NamedObjectsNamespace::Entry, lock),
    .typeName = offsetof(NamedObjectsNamespace::Entry, typeName),
    .objectName = offsetof(NamedObjectsNamespace::Entry, objectName),
};
#pragma GCC diagnostic pop

} // namespace Vx
