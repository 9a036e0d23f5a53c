#include <Vx/VxNamedObjects.h>

#include <Vx/VxCRC.h>
#include <Vx/VxException.h>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>

namespace {

using Hold = std::lock_guard<CriticalSection>;

// Deliberate: the lines are fixed numbers, not where the checks stand today. Hosts tell
// the failures apart by them.
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

std::string_view withoutMark(const char* typeName)
{
    // The compiler's mark of a type that is local to one unit.
    return typeName[0] == '*' ? typeName + 1 : typeName;
}

} // namespace

namespace Vx {

// What is looked up, worked out before any lock is taken. Equal texts have equal checksums,
// so comparing the texts is enough and the checksums are only made for a new entry; the
// index has a better hash of its own.
struct NamedObjectsNamespace::Key {
    Key(const std::type_info& typeInfo, const char* objectName)
        : type(withoutMark(typeInfo.name())),
          name(objectName != nullptr ? objectName : ""),
          hash(std::hash<std::string_view>()(name) * 0x9E3779B97F4A7C15u ^
               std::hash<std::string_view>()(type))
    {}

    std::string_view type;
    std::string_view name;
    std::size_t hash;
};

// A look-up among very many names is a chase through memory that no cache holds. So the
// usual name stands in the entry once more, and the walk does not go to its block.
struct NamedObjectsNamespace::IndexedEntry : Entry {
    bool answersTo(const Key& key) const noexcept
    {
        const char* const text = key.name.size() <= sizeof nearName ? nearName : objectName.c_str();
        return hash == key.hash && nameLength == key.name.size() &&
               std::memcmp(text, key.name.data(), key.name.size()) == 0 &&
               std::string_view(typeName) == key.type;
    }

    std::size_t hash;
    IndexedEntry* nextInChain;
    std::size_t nameLength;
    char nearName[40]; // the whole name or nothing
};

// An entry with its link in the list: from here on nothing can fail.
struct NamedObjectsNamespace::NewEntry {
    std::unique_ptr<IndexedEntry> entry;
    std::list<Entry*> link;
};

NamedObjectsNamespace::NamedObjectsNamespace(const char* name)
    : name(name), buckets_(&onlyBucket_), bucketCount_(1)
{}

NamedObjectsNamespace::~NamedObjectsNamespace()
{
    if (buckets_ != &onlyBucket_)
        delete[] buckets_;
}

NamedObjectsNamespace* NamedObjectsNamespace::getGlobalNamespaceInstance()
{
    static CriticalSection guard;
    static constinit NamedObjectsNamespace* global = nullptr;

    NamedObjectsNamespace* known = __atomic_load_n(&global, __ATOMIC_ACQUIRE);
    if (known == nullptr) {
        const Hold hold(guard);
        known = __atomic_load_n(&global, __ATOMIC_RELAXED);
        if (known == nullptr) {
            known = new NamedObjectsNamespace("GLOBAL");
            __atomic_store_n(&global, known, __ATOMIC_RELEASE);
        }
    }
    return known;
}

// The namespace lock is held.
auto NamedObjectsNamespace::lookUp(const Key& key) const noexcept -> IndexedEntry*
{
    IndexedEntry* entry = buckets_[key.hash & (bucketCount_ - 1)];
    while (entry != nullptr && !entry->answersTo(key))
        entry = entry->nextInChain;
    return entry;
}

// The namespace lock is held. Everything that may fail happens here, and nothing of it is
// seen from outside.
void NamedObjectsNamespace::prepare(const Key& key, NewEntry& prepared) const
{
    prepared.entry.reset(new IndexedEntry{});
    IndexedEntry& entry = *prepared.entry;
    entry.objectName = LightweightString<char>(key.name);
    // Neighbours are often of one type: they share its name.
    if (!entries.empty() && std::string_view(entries.back()->typeName) == key.type)
        entry.typeName = entries.back()->typeName;
    else
        entry.typeName = LightweightString<char>(key.type);
    entry.typeHash = checksum(key.type);
    entry.nameHash = checksum(key.name);
    entry.hash = key.hash;
    entry.nameLength = key.name.size();
    if (key.name.size() <= sizeof entry.nearName)
        std::memcpy(entry.nearName, key.name.data(), key.name.size());
    prepared.link.push_back(&entry);
}

// The namespace lock is held.
auto NamedObjectsNamespace::append(NewEntry& prepared, void* object) noexcept -> Entry*
{
    IndexedEntry* const entry = prepared.entry.release();
    entry->object = object;
    entries.splice(entries.end(), prepared.link);
    link(entry);
    if (entries.size() > bucketCount_ / 2)
        grow();
    return entry;
}

// At the end of its chain: of entries with the same key the oldest is found.
void NamedObjectsNamespace::link(IndexedEntry* entry) noexcept
{
    IndexedEntry** end = &buckets_[entry->hash & (bucketCount_ - 1)];
    while (*end != nullptr)
        end = &(*end)->nextInChain;
    entry->nextInChain = nullptr;
    *end = entry;
}

// Without memory for more buckets the chains grow longer, and nothing else happens.
void NamedObjectsNamespace::grow() noexcept
{
    const unsigned long count = bucketCount_ < 16 ? 32 : bucketCount_ * 2;
    IndexedEntry** const buckets = new (std::nothrow) IndexedEntry* [count] {};
    if (buckets == nullptr)
        return;
    if (buckets_ != &onlyBucket_)
        delete[] buckets_;
    buckets_ = buckets;
    bucketCount_ = count;
    for (Entry* entry : entries)
        link(static_cast<IndexedEntry*>(entry));
}

auto NamedObjectsNamespace::findInfo_(const std::type_info& type, const char* name) -> Entry*
{
    const Key key(type, name);
    const Hold hold(namespaceLock);
    return lookUp(key);
}

void* NamedObjectsNamespace::find_(const std::type_info& type, const char* name)
{
    checkName(name, 115);
    Entry* const entry = findInfo_(type, name);
    if (entry == nullptr)
        return nullptr;
    const Hold hold(entry->lock);
    return entry->object;
}

void NamedObjectsNamespace::create_(const std::type_info& type, const char* name, void* object)
{
    checkName(name, 143);
    checkObject(object, 148);
    const Key key(type, name);
    Entry* entry;
    {
        const Hold hold(namespaceLock);
        entry = lookUp(key);
        if (entry == nullptr) {
            NewEntry prepared;
            prepare(key, prepared);
            append(prepared, object);
            return;
        }
    }
    const Hold hold(entry->lock);
    if (entry->object != nullptr)
        fail("Attempted to create named objects with duplicate names!", 172);
    entry->object = object;
}

void* NamedObjectsNamespace::findOrCreate_(const std::type_info& type, const char* name,
                                           void* (*factory)())
{
    checkName(name, 195);
    const Key key(type, name);
    Entry* entry;
    {
        const Hold hold(namespaceLock);
        entry = lookUp(key);
        if (entry == nullptr) {
            // The entry comes first: an object that finds no entry could not be destroyed,
            // because its type is not known here.
            NewEntry prepared;
            prepare(key, prepared);
            return append(prepared, factory())->object;
        }
    }
    const Hold hold(entry->lock);
    if (entry->object == nullptr)
        entry->object = factory();
    return entry->object;
}

void NamedObjectsNamespace::createOrReplace_(const std::type_info& type, const char* name,
                                             void* object)
{
    checkName(name, 234);
    checkObject(object, 239);
    const Key key(type, name);
    Entry* entry;
    {
        const Hold hold(namespaceLock);
        entry = lookUp(key);
        if (entry == nullptr) {
            NewEntry prepared;
            prepare(key, prepared);
            append(prepared, object);
            return;
        }
    }
    const Hold hold(entry->lock);
    entry->object = object;
}

void NamedObjectsNamespace::remove_(const std::type_info& type, const char* name)
{
    checkName(name, 269);
    Entry* const entry = findInfo_(type, name);
    if (entry == nullptr)
        return;
    const Hold hold(entry->lock);
    entry->object = nullptr;
}

// What lock_() enters; made when the name is new.
auto NamedObjectsNamespace::entryToLock_(const std::type_info& type, const char* name) -> Entry*
{
    checkName(name, 292);
    const Key key(type, name);
    const Hold hold(namespaceLock);
    if (Entry* const entry = lookUp(key))
        return entry;
    NewEntry prepared;
    prepare(key, prepared);
    return append(prepared, nullptr);
}

bool NamedObjectsNamespace::lock_(const std::type_info& type, const char* name, bool wait)
{
    Entry* const entry = entryToLock_(type, name);
    // Waiting happens outside the namespace lock: who holds the name may need that.
    if (!wait)
        return entry->lock.attemptEntry() == 0;
    entry->lock.enter();
    return true;
}

void NamedObjectsNamespace::unlock_(const std::type_info& type, const char* name)
{
    checkName(name, 327);
    Entry* const entry = findInfo_(type, name);
    if (entry == nullptr)
        fail("Attempted to unlock a named object that had not previously been locked!", 337);
    entry->lock.leave();
}

auto NamedObjectsNamespace::addListEntry_(const std::type_info& type, const char* name,
                                          void* object) -> Entry*
{
    const Key key(type, name);
    const Hold hold(namespaceLock);
    NewEntry prepared;
    prepare(key, prepared);
    return append(prepared, object);
}

} // namespace Vx
