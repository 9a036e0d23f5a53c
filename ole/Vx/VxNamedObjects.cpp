#include <Vx/VxNamedObjects.h>

#include <Vx/VxCRC.h>
#include <Vx/VxException.h>
#include <cstdint>
#include <cstring>
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

using Word = std::uint64_t;

template <class Unsigned = Word> Unsigned load(const char* bytes)
{
    Unsigned word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// All bytes of a text shorter than a word: of two texts of one length, the same only if those
// are.
Word loadFew(std::string_view text)
{
    const char* const bytes = text.data();
    const std::size_t size = text.size();
    if (size >= 4)
        return load<std::uint32_t>(bytes) | Word{load<std::uint32_t>(bytes + size - 4)} << 32;
    if (size == 0)
        return 0;
    const auto at = [&](std::size_t i) { return Word{static_cast<unsigned char>(bytes[i])}; };
    return at(0) | at(size / 2) << 8 | at(size - 1) << 16;
}

Word mixed(Word a, Word b)
{
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    return static_cast<Word>(product) ^ static_cast<Word>(product >> 64);
}

// Continues `hash` over the text, a word at a time; the last one may overlap.
Word hashOf(std::string_view text, Word hash)
{
    constexpr Word kFactor = 0x9E3779B97F4A7C15u;
    hash ^= text.size() * 0xE7037ED1A0B428DBu;
    if (text.size() < sizeof(Word))
        return mixed(hash ^ loadFew(text), kFactor);
    const char* const last = text.data() + text.size() - sizeof(Word);
    for (const char* at = text.data(); at < last; at += sizeof(Word))
        hash = mixed(hash ^ load(at), kFactor);
    return mixed(hash ^ load(last), kFactor);
}

// For short texts, which most are: by the word as well.
bool same(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    if (a.size() < sizeof(Word))
        return loadFew(a) == loadFew(b);
    const std::size_t last = a.size() - sizeof(Word);
    for (std::size_t at = 0; at < last; at += sizeof(Word))
        if (load(a.data() + at) != load(b.data() + at))
            return false;
    return load(a.data() + last) == load(b.data() + last);
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
// index has a faster hash of its own.
struct NamedObjectsNamespace::Key {
    Key(const std::type_info& typeInfo, const char* objectName)
        : type(withoutMark(typeInfo.name())),
          name(objectName != nullptr ? objectName : ""),
          hash(hashOf(name, hashOf(type, 0)))
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
        const char* const text = nameLength <= sizeof nearName ? nearName : objectName.c_str();
        return hash == key.hash && same(std::string_view(text, nameLength), key.name) &&
               same(typeName, key.type);
    }

    std::size_t hash;
    IndexedEntry* nextInChain;
    std::size_t nameLength;
    char nearName[40]; // the whole name or nothing
};

// The first of a chain, and where the words of its lock are: in memory that no cache holds,
// they are fetched together with the entry instead of one after the other. All of them are
// for fetching only: an entry whose lock has been given another one is still found.
struct NamedObjectsNamespace::Bucket {
    std::size_t hash; // of the first entry
    IndexedEntry* first;
    const void* lock;
    const void* platformLock;
};

// An entry with its link in the list: from here on nothing can fail.
struct NamedObjectsNamespace::NewEntry {
    std::unique_ptr<IndexedEntry> entry;
    std::list<Entry*> link;
};

NamedObjectsNamespace::NamedObjectsNamespace(const char* name) : name(name) {}

NamedObjectsNamespace::~NamedObjectsNamespace() { delete[] buckets_; }

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

// Before the namespace lock is entered, which takes about as long. What is read here may be
// out of date: then something else is fetched, which does no harm.
void NamedObjectsNamespace::fetchBucketOf(const Key& key) const noexcept
{
    const unsigned long count = __atomic_load_n(&bucketCount_, __ATOMIC_RELAXED);
    __builtin_prefetch(__atomic_load_n(&buckets_, __ATOMIC_RELAXED) + (key.hash & (count - 1)));
}

// The namespace lock is held.
auto NamedObjectsNamespace::lookUp(const Key& key) const noexcept -> IndexedEntry*
{
    if (buckets_ == nullptr) {
        for (Entry* entry : entries)
            if (static_cast<IndexedEntry*>(entry)->answersTo(key))
                return static_cast<IndexedEntry*>(entry);
        return nullptr;
    }
    const Bucket& bucket = buckets_[key.hash & (bucketCount_ - 1)];
    IndexedEntry* entry = bucket.first;
    if (bucket.hash == key.hash) {
        __builtin_prefetch(bucket.lock);
        __builtin_prefetch(bucket.platformLock);
        __builtin_prefetch(entry);
    }
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
    if (entries.size() > bucketCount_ / 2)
        grow();
    else
        link(entry);
    return entry;
}

// At the end of its chain: of entries with the same key the oldest is found.
void NamedObjectsNamespace::link(IndexedEntry* entry) noexcept
{
    Bucket& bucket = buckets_[entry->hash & (bucketCount_ - 1)];
    entry->nextInChain = nullptr;
    if (bucket.first == nullptr) {
        const CriticalSection::Rep* const lock = entry->lock.rep_.get();
        bucket = {entry->hash, entry, lock, lock->lock.get()};
        return;
    }
    IndexedEntry* last = bucket.first;
    while (last->nextInChain != nullptr)
        last = last->nextInChain;
    last->nextInChain = entry;
}

// Indexes all entries anew. Without memory for more buckets the chains grow longer, and
// nothing else happens.
void NamedObjectsNamespace::grow() noexcept
{
    const unsigned long count = bucketCount_ < 16 ? 16 : bucketCount_ * 2;
    Bucket* const buckets = new (std::nothrow) Bucket[count]{};
    if (buckets == nullptr) {
        if (buckets_ != nullptr)
            link(static_cast<IndexedEntry*>(entries.back()));
        return;
    }
    delete[] buckets_;
    __atomic_store_n(&buckets_, buckets, __ATOMIC_RELAXED);
    __atomic_store_n(&bucketCount_, count, __ATOMIC_RELAXED);
    for (Entry* entry : entries)
        link(static_cast<IndexedEntry*>(entry));
}

auto NamedObjectsNamespace::findInfo_(const std::type_info& type, const char* name) -> Entry*
{
    const Key key(type, name);
    fetchBucketOf(key);
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
