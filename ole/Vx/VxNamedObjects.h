// VxNamedObjects.h - process-wide objects and locks, found by type and name.
#pragma once

#include <Vx/CriticalSection.h>
#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxTypeManip.h>
#include <cstddef>
#include <list>
#include <type_traits>
#include <typeinfo>

namespace Vx {

/// A registry in which modules publish and find objects by type and name, and take a lock
/// on a name.
///
///     auto* names = Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
///     Cache* cache = names->findOrCreate<Cache>("thumbnails");
///     Vx::NamedObjectsNamespace::ScopedLock<Cache> hold(*names, "thumbnails");
///
/// Shape: one entry for every pair of type and name ever used. Entries never go away;
///   removing an object leaves its entry, lock and all. The same name under two types
///   makes two entries. "" is a name like any other. The type is the one given between
///   the angle brackets, not what an object turns out to be.
/// Cost: a look-up does not grow with the number of names.
/// Ownership: none. Objects belong to whoever made them and are never destroyed here,
///   not even with the namespace.
/// Errors: Vx::Exception::RuntimeError for misuse: a null name, a null object, a second
///   object under one name, the unlocking of a name never used. What a factory, the
///   platform or memory throws passes through, with every lock free and the namespace as
///   it was.
/// Threads: any. The namespace has a lock, and so has each entry; who takes both takes
///   the namespace's first. A thread that holds a name keeps others from finding,
///   creating and removing what bears it. Factories run with a lock held: the entry's for
///   a known name, the namespace's for a new one.
class VX_API NamedObjectsNamespace {
public:
    /// One pair of type and name.
    struct Entry {
        unsigned int typeHash;              ///< checksum of typeName
        unsigned int nameHash;              ///< checksum of objectName
        void* object;                       ///< guarded by lock; null when there is none
        CriticalSection lock;               ///< what lock() and unlock() of the name enter
        LightweightString<char> typeName;   ///< std::type_info::name() without a leading '*'
        LightweightString<char> objectName; ///< the name under which it was published
    };

    /// An empty namespace; \p ownName is for diagnostics, null means none.
    explicit NamedObjectsNamespace(const char* ownName);

    /// Deliberate: frees neither the entries nor the objects. They may outlive the
    /// namespace, and others own them.
    ~NamedObjectsNamespace();

    NamedObjectsNamespace(const NamedObjectsNamespace&) = delete;
    NamedObjectsNamespace& operator=(const NamedObjectsNamespace&) = delete;

    /// The namespace "GLOBAL" of the process, made on first use and never destroyed.
    static NamedObjectsNamespace* getGlobalNamespaceInstance();

    // The typed front. T is always spelled out: find<Cache>("thumbnails").

    /// The object, or null when there is none. Waits for the thread that holds the name.
    template <class T> T* find(const char* objectName)
    {
        return static_cast<T*>(find_(typeid(T), objectName));
    }

    /// Publishes \p object, which is not null.
    /// \throws Vx::Exception::RuntimeError when the name has an object already
    template <class T> void create(const char* objectName, std::enable_if_t<true, T>* object)
    {
        create_(typeid(T), objectName, object);
    }

    /// The object; when there is none, the one that \p factory makes.
    template <class T>
    T* findOrCreate(const char* objectName, void* (*factory)() = TypeManip::TemplatedNew<T>::new_)
    {
        return static_cast<T*>(findOrCreate_(typeid(T), objectName, factory));
    }

    /// Publishes \p object, which is not null, in place of what was there before. That is
    /// not destroyed.
    template <class T>
    void createOrReplace(const char* objectName, std::enable_if_t<true, T>* object)
    {
        createOrReplace_(typeid(T), objectName, object);
    }

    /// Withdraws the object, if there is one; it is not destroyed.
    template <class T> void remove(const char* objectName) { remove_(typeid(T), objectName); }

    /// Enters the lock of the name, which is recursive and needs no object.
    /// \returns false when another thread holds it and \p wait is false
    template <class T> bool lock(const char* objectName, bool wait = true)
    {
        return lock_(typeid(T), objectName, wait);
    }

    /// Leaves the lock of the name. Whether the caller holds it is not checked.
    /// \throws Vx::Exception::RuntimeError when the name was never used
    template <class T> void unlock(const char* objectName) { unlock_(typeid(T), objectName); }

    /// The entry, or null when the name was never used. A null \p objectName reads as "".
    template <class T> Entry* findInfo(const char* objectName)
    {
        return findInfo_(typeid(T), objectName);
    }

    /// Adds an entry without looking whether there is one: the older one is found first. A
    /// null \p objectName reads as "".
    template <class T>
    Entry* addListEntry(const char* objectName, std::enable_if_t<true, T>* object)
    {
        return addListEntry_(typeid(T), objectName, object);
    }

    /// Holds the lock of a name for its lifetime.
    template <class T> class ScopedLock {
    public:
        /// Enters the lock of \p objectName; without \p wait only if that is possible at once.
        ScopedLock(NamedObjectsNamespace& names, const char* objectName, bool wait = true)
            : entry_(names.entryToLock_(typeid(T), objectName))
        {
            // Nothing but the entry's lock from here on: who waited for the namespace's while
            // holding it could wait for a factory that waits for the name.
            if (wait)
                entry_->lock.enter();
            else if (entry_->lock.attemptEntry() != 0)
                entry_ = nullptr;
        }
        ~ScopedLock()
        {
            if (entry_ != nullptr)
                entry_->lock.leave();
        }
        ScopedLock(const ScopedLock&) = delete;
        ScopedLock& operator=(const ScopedLock&) = delete;

        /// Whether the lock was entered.
        explicit operator bool() const noexcept { return entry_ != nullptr; }

    private:
        Entry* entry_;
    };

    // What the typed front stands on: the same operations, with the type given by hand.

    /// As the operation of the same name without the underscore, for objects of \p type.
    Entry* findInfo_(const std::type_info& type, const char* objectName);
    void* find_(const std::type_info& type, const char* objectName);
    void create_(const std::type_info& type, const char* objectName, void* object);
    void* findOrCreate_(const std::type_info& type, const char* objectName, void* (*factory)());
    void createOrReplace_(const std::type_info& type, const char* objectName, void* object);
    void remove_(const std::type_info& type, const char* objectName);
    bool lock_(const std::type_info& type, const char* objectName, bool wait);
    void unlock_(const std::type_info& type, const char* objectName);
    Entry* addListEntry_(const std::type_info& type, const char* objectName, void* object);

private:
    struct Key;
    struct NewEntry;
    struct Bucket;
    struct Found {
        Entry* entry;
        bool isNew;
    };

    Entry* search(const std::type_info& type, const char* objectName);
    Found searchOrAdd(const std::type_info& type, const char* objectName, void* object);
    Entry* entryToLock_(const std::type_info& type, const char* objectName);
    void fetchBucketOf(const Key& key) const noexcept;
    Entry* lookUp(const Key& key) const noexcept;
    Entry* lookUpInList(Key key) const noexcept;
    void prepare(const Key& key, NewEntry& prepared) const;
    Entry* append(NewEntry& prepared, void* object) noexcept;
    void index(Entry* entry) noexcept;
    void grow() noexcept;

    std::list<Entry*> entries;     // in order of creation; guarded by namespaceLock
    CriticalSection namespaceLock; // lock() is the typed front
    LightweightString<char> name;

    // The index, guarded by namespaceLock: all entries once more, in a table by hash. Without
    // memory for it there is none, and the list is searched.
    Bucket* buckets_ = nullptr;
    unsigned long bucketCount_ = 0; // a power of two, or 0
    void* indexBlock_ = nullptr;    // what the buckets stand in
};

static_assert(sizeof(NamedObjectsNamespace::Entry) == 64 &&
                  offsetof(NamedObjectsNamespace::Entry, object) == 8 &&
                  offsetof(NamedObjectsNamespace::Entry, lock) == 16 &&
                  offsetof(NamedObjectsNamespace::Entry, typeName) == 32 &&
                  offsetof(NamedObjectsNamespace::Entry, objectName) == 48,
              "modules and diagnostic tools read entries, so their layout is fixed");

} // namespace Vx
