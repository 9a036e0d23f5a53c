#include <Vx/VxNamedObjects.h>

#include <Vx/VxCRC.h>
#include <Vx/VxException.h>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

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

constexpr Word kFactors[] = {0x9E3779B97F4A7C15u, 0xE7037ED1A0B428DBu};

// Two words a step; the last step may overlap.
[[gnu::always_inline]] inline Word hashOf(std::string_view text)
{
    constexpr Word kFirst = kFactors[0], kSecond = kFactors[1];
    const char* at = text.data();
    const char* const end = at + text.size();
    if (text.size() < sizeof(Word))
        return mixed(loadFew(text) ^ kFirst, text.size() ^ kSecond);
    Word hash = text.size();
    for (; end - at > 16; at += 16)
        hash = mixed(load(at) ^ hash ^ kFirst, load(at + sizeof(Word)) ^ kSecond);
    const char* const last = end - sizeof(Word);
    return mixed(load(text.size() < 16 ? at : end - 16) ^ hash ^ kFirst, load(last) ^ kSecond);
}

// For short texts, which most are: by the word as well.
[[gnu::always_inline]] inline bool same(std::string_view a, std::string_view b)
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

} // namespace

namespace Vx {

// What is looked up, worked out before any lock is taken. Equal texts have equal checksums,
// so comparing the texts is enough and the checksums are only made for a new entry; the
// index has a faster hash of its own.
struct NamedObjectsNamespace::Key {
    [[gnu::always_inline]] Key(const std::type_info& typeInfo, const char* objectName)
        : Key(typeInfo.name(), objectName != nullptr ? objectName : "")
    {}
    [[gnu::always_inline]] Key(std::string_view typeName, std::string_view objectName)
        : type(typeName), name(objectName), hash(hashOf(name) + hashOf(type) * kFactors[0])
    {}

    std::string_view type;
    std::string_view name;
    std::size_t hash;
};

// What a look-up reads, in one line of the cache: the entry, its name unless that is long, and
// where its lock goes. Among very many names that line is in no cache, and neither is anything
// else; so the rest is fetched all together, not one after the other.
struct NamedObjectsNamespace::Bucket {
    static constexpr unsigned char kLong = 0xFF;

    Bucket(Entry* newEntry, std::size_t hashOfEntry) noexcept
        : hash(hashOfEntry), entry(newEntry), lock(newEntry->lock)
    {
        const std::string_view name(newEntry->objectName);
        if (name.size() > sizeof nearName)
            return;
        nameLength = static_cast<unsigned char>(name.size());
        std::memcpy(nearName, name.data(), name.size());
    }

    [[gnu::always_inline]] bool answersTo(const Key& key) const noexcept
    {
        const std::string_view name = nameLength != kLong ? std::string_view(nearName, nameLength)
                                                          : std::string_view(entry->objectName);
        return same(name, key.name) && same(entry->typeName, key.type);
    }

    std::size_t hash;
    Entry* entry;                    // null in a bucket of zeros
    CriticalSection::Footprint lock; // a hint: an entry may be given another lock
    unsigned char nameLength = kLong;
    char nearName[31];
};

// An entry with its link in the list: from here on nothing can fail.
struct NamedObjectsNamespace::NewEntry {
    std::unique_ptr<Entry> entry;
    std::list<Entry*> link;
};

NamedObjectsNamespace::NamedObjectsNamespace(const char* name) : name(name) {}

NamedObjectsNamespace::~NamedObjectsNamespace() { ::operator delete(indexBlock_); }

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
[[gnu::always_inline]] inline void
NamedObjectsNamespace::fetchBucketOf(const Key& key) const noexcept
{
    const Bucket* const buckets = __atomic_load_n(&buckets_, __ATOMIC_RELAXED);
    const std::size_t count = __atomic_load_n(&bucketCount_, __ATOMIC_RELAXED);
    if (__builtin_expect(buckets != nullptr, true))
        __builtin_prefetch(buckets + (key.hash & (count - 1)));
}

// The namespace lock is held.
[[gnu::noinline]] auto NamedObjectsNamespace::lookUpInList(Key key) const noexcept -> Entry*
{
    for (Entry* entry : entries)
        if (same(entry->objectName, key.name) && same(entry->typeName, key.type))
            return entry;
    return nullptr;
}

// The namespace lock is held.
[[gnu::always_inline]] inline auto NamedObjectsNamespace::lookUp(const Key& key) const noexcept
    -> Entry*
{
    if (__builtin_expect(buckets_ == nullptr, false))
        return lookUpInList(key);
    for (std::size_t at = key.hash;; ++at) {
        const Bucket& bucket = buckets_[at & (bucketCount_ - 1)];
        Entry* const entry = bucket.entry;
        if (entry == nullptr)
            return nullptr;
        if (bucket.hash == key.hash) {
            __builtin_prefetch(entry);
            bucket.lock.fetch();
            if (bucket.answersTo(key))
                return entry;
        }
    }
}

// The namespace lock is held. Everything that may fail happens here, and nothing of it is
// seen from outside.
void NamedObjectsNamespace::prepare(const Key& key, NewEntry& prepared) const
{
    prepared.entry.reset(new Entry{});
    Entry& entry = *prepared.entry;
    entry.objectName = LightweightString<char>(key.name);
    // Neighbours are often of one type: they share its name.
    if (!entries.empty() && std::string_view(entries.back()->typeName) == key.type)
        entry.typeName = entries.back()->typeName;
    else
        entry.typeName = LightweightString<char>(key.type);
    entry.typeHash = checksum(key.type);
    entry.nameHash = checksum(key.name);
    prepared.link.push_back(&entry);
}

// The namespace lock is held.
auto NamedObjectsNamespace::append(NewEntry& prepared, void* object) noexcept -> Entry*
{
    Entry* const entry = prepared.entry.release();
    entry->object = object;
    entries.splice(entries.end(), prepared.link);
    if (entries.size() > bucketCount_ / 2)
        grow();
    else
        index(entry);
    return entry;
}

// In the first free bucket from its own on. Of entries with the same key the oldest is found,
// so the others stay out: each would stand behind all those before it.
void NamedObjectsNamespace::index(Entry* entry) noexcept
{
    const Key key(entry->typeName, entry->objectName);
    for (std::size_t at = key.hash;; ++at) {
        Bucket& bucket = buckets_[at & (bucketCount_ - 1)];
        if (bucket.entry == nullptr) {
            new (&bucket) Bucket(entry, key.hash);
            return;
        }
        if (bucket.hash == key.hash && bucket.answersTo(key))
            return;
    }
}

// Indexes all entries anew. Without memory for that they stand closer, and when there is no
// free bucket left, the list is searched.
void NamedObjectsNamespace::grow() noexcept
{
    std::size_t count = 16;
    while (count / 2 < entries.size())
        count *= 2;
    // One more, so that each of them can stand in a line of its own.
    void* block = ::operator new((count + 1) * sizeof(Bucket), std::nothrow);
    if (block == nullptr && entries.size() < bucketCount_) {
        index(entries.back());
        return;
    }
    void* aligned = nullptr;
    if (block != nullptr) {
        std::size_t room = (count + 1) * sizeof(Bucket);
        aligned = block;
        std::align(sizeof(Bucket), count * sizeof(Bucket), aligned, room);
        std::memset(aligned, 0, count * sizeof(Bucket));
    }
    ::operator delete(std::exchange(indexBlock_, block));
    __atomic_store_n(&buckets_, static_cast<Bucket*>(aligned), __ATOMIC_RELAXED);
    __atomic_store_n(&bucketCount_, block != nullptr ? count : 0, __ATOMIC_RELAXED);
    if (block != nullptr)
        for (Entry* entry : entries)
            index(entry);
}

// Takes the namespace lock.
[[gnu::always_inline]] inline auto NamedObjectsNamespace::search(const std::type_info& type,
                                                                 const char* name) -> Entry*
{
    const Key key(type, name);
    fetchBucketOf(key);
    const Hold hold(namespaceLock);
    return lookUp(key);
}

// Takes the namespace lock. A new entry has the object from the start.
auto NamedObjectsNamespace::searchOrAdd(const std::type_info& type, const char* name, void* object)
    -> Found
{
    const Key key(type, name);
    fetchBucketOf(key);
    const Hold hold(namespaceLock);
    if (Entry* const entry = lookUp(key))
        return {entry, false};
    NewEntry prepared;
    prepare(key, prepared);
    return {append(prepared, object), true};
}

auto NamedObjectsNamespace::findInfo_(const std::type_info& type, const char* name) -> Entry*
{
    return search(type, name);
}

void* NamedObjectsNamespace::find_(const std::type_info& type, const char* name)
{
    checkName(name, 115);
    const Key key(type, name);
    fetchBucketOf(key);
    namespaceLock.enter();
    Entry* const entry = lookUp(key);
    if (entry == nullptr) {
        namespaceLock.leave();
        return nullptr;
    }
    entry->lock.enterAfter(namespaceLock);
    const Hold hold(entry->lock, std::adopt_lock);
    return entry->object;
}

void NamedObjectsNamespace::create_(const std::type_info& type, const char* name, void* object)
{
    checkName(name, 143);
    checkObject(object, 148);
    const Found found = searchOrAdd(type, name, object);
    if (found.isNew)
        return;
    const Hold hold(found.entry->lock);
    if (found.entry->object != nullptr)
        fail("Attempted to create named objects with duplicate names!", 172);
    found.entry->object = object;
}

void* NamedObjectsNamespace::findOrCreate_(const std::type_info& type, const char* name,
                                           void* (*factory)())
{
    checkName(name, 195);
    const Key key(type, name);
    fetchBucketOf(key);
    std::unique_lock<CriticalSection> holdAll(namespaceLock);
    Entry* const entry = lookUp(key);
    if (entry == nullptr) {
        // The entry comes first: an object that finds no entry could not be destroyed,
        // because its type is not known here.
        NewEntry prepared;
        prepare(key, prepared);
        return append(prepared, factory())->object;
    }
    entry->lock.enterAfter(*holdAll.release());
    const Hold hold(entry->lock, std::adopt_lock);
    if (entry->object == nullptr)
        entry->object = factory();
    return entry->object;
}

void NamedObjectsNamespace::createOrReplace_(const std::type_info& type, const char* name,
                                             void* object)
{
    checkName(name, 234);
    checkObject(object, 239);
    const Found found = searchOrAdd(type, name, object);
    if (found.isNew)
        return;
    const Hold hold(found.entry->lock);
    found.entry->object = object;
}

void NamedObjectsNamespace::remove_(const std::type_info& type, const char* name)
{
    checkName(name, 269);
    Entry* const entry = search(type, name);
    if (entry == nullptr)
        return;
    const Hold hold(entry->lock);
    entry->object = nullptr;
}

// What lock_() enters; made when the name is new.
auto NamedObjectsNamespace::entryToLock_(const std::type_info& type, const char* name) -> Entry*
{
    checkName(name, 292);
    return searchOrAdd(type, name, nullptr).entry;
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
    Entry* const entry = search(type, name);
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
