// VxNamedObjects.h - Process-wide objects and locks, found by type and name.
#pragma once

#include <Vx/CriticalSection.h>
#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxTypeManip.h>
#include <cstddef>
#include <list>
#include <memory>
#include <type_traits>
#include <typeinfo>

namespace Vx {

namespace detail {
template <class Node> class NameIndex;
}

/// A registry in which modules publish and find objects by type and name, and lock a name.
///
///     auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
///     Cache* cache = names.findOrCreate<Cache>("thumbnails");
///     Vx::NamedObjectsNamespace::ScopedLock<Cache> hold(names, "thumbnails");
///
/// Entries: one per pair of type and name ever used, kept forever; removing an object leaves
///   its entry and lock. The type is the one in angle brackets, compared by its name. "" is a
///   valid name. A look-up takes the same time however many names there are.
/// Ownership: none. Objects belong to their makers; the namespace never destroys them.
/// Errors: misuse throws Vx::Exception::RuntimeError: a null name, a null object, a second
///   object under one name, unlocking a name that was never used. Exceptions of factories, the
///   platform and memory exhaustion pass through and leave every lock free and the namespace
///   as it was.
/// Thread safety: every operation from any thread. The namespace has a lock, and so has each
///   entry, taken in this order. Holding a name blocks find(), create() and remove() of it in
///   other threads. A factory runs under the entry's lock, or under the namespace's if the name
///   is new: it must not wait for another thread that uses the namespace.
class VX_API NamedObjectsNamespace {
public:
    /// One pair of type and name.
    struct Entry {
        unsigned int typeHash;              ///< Vx::CRC checksum of typeName
        unsigned int nameHash;              ///< Vx::CRC checksum of objectName
        void* object;                       ///< guarded by lock; null if there is none
        CriticalSection lock;               ///< entered by lock() and left by unlock()
        LightweightString<char> typeName;   ///< std::type_info::name() without a leading '*'
        LightweightString<char> objectName; ///< the name under which the object is published
    };

    /// Makes an empty namespace; \p ownName is for diagnostic tools and may be null.
    explicit NamedObjectsNamespace(const char* ownName);

    /// Deliberate: frees neither entries nor objects. They may outlive the namespace.
    ~NamedObjectsNamespace();

    NamedObjectsNamespace(const NamedObjectsNamespace&) = delete;
    NamedObjectsNamespace& operator=(const NamedObjectsNamespace&) = delete;

    /// Returns the namespace "GLOBAL" of the process, made on first use and never destroyed.
    static NamedObjectsNamespace* getGlobalNamespaceInstance();

    // The typed front. T is never deduced: find<Cache>("thumbnails").

    /// Returns the object, or null if there is none. Waits while another thread holds the name.
    template <class T> T* find(const char* objectName)
    {
        return static_cast<T*>(find_(typeid(T), objectName));
    }

    /// Publishes \p object, which must not be null.
    /// \throws Vx::Exception::RuntimeError if the name has an object
    template <class T> void create(const char* objectName, std::enable_if_t<true, T>* object)
    {
        create_(typeid(T), objectName, object);
    }

    /// Returns the object. If there is none, \p factory makes it.
    template <class T>
    T* findOrCreate(const char* objectName, void* (*factory)() = TypeManip::TemplatedNew<T>::new_)
    {
        return static_cast<T*>(findOrCreate_(typeid(T), objectName, factory));
    }

    /// Publishes \p object, which must not be null, instead of the one that was there. That one
    /// is not destroyed.
    template <class T>
    void createOrReplace(const char* objectName, std::enable_if_t<true, T>* object)
    {
        createOrReplace_(typeid(T), objectName, object);
    }

    /// Withdraws the object, if there is one, without destroying it.
    template <class T> void remove(const char* objectName) { remove_(typeid(T), objectName); }

    /// Locks a name for its lifetime. Prefer it to lock() and unlock().
    template <class T> class ScopedLock {
    public:
        /// Enters the lock of \p objectName; if \p wait is false, only without waiting.
        ScopedLock(NamedObjectsNamespace& names, const char* objectName, bool wait = true)
            : entry_(names.entryToLock_(typeid(T), objectName))
        {
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

        /// Returns whether the lock was entered.
        explicit operator bool() const noexcept { return entry_ != nullptr; }

    private:
        Entry* entry_;
    };

    /// Enters the lock of the name, which is recursive and needs no object.
    ///
    /// lock() and unlock() look the name up, so they wait for the namespace lock while the
    /// caller may hold the name. They deadlock with a factory that runs for a new name in
    /// another thread and waits for the name held here. Leaving a ScopedLock looks nothing up.
    /// \returns false if another thread holds it and \p wait is false
    template <class T> bool lock(const char* objectName, bool wait = true)
    {
        return lock_(typeid(T), objectName, wait);
    }

    /// Leaves the lock of the name. Does not check that the caller holds it. See lock().
    /// \throws Vx::Exception::RuntimeError if the name was never used
    template <class T> void unlock(const char* objectName) { unlock_(typeid(T), objectName); }

    /// Returns the entry, or null if the name was never used. A null \p objectName means "".
    template <class T> Entry* findInfo(const char* objectName)
    {
        return findInfo_(typeid(T), objectName);
    }

    /// Adds an entry even if there is one of that name; the older one is found. A null
    /// \p objectName means "".
    template <class T>
    Entry* addListEntry(const char* objectName, std::enable_if_t<true, T>* object)
    {
        return addListEntry_(typeid(T), objectName, object);
    }

    /// The same operations with the type as an argument.
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
    friend struct detail::Inspect;

    struct Key;
    struct IndexedEntry;
    struct NewEntry;
    struct Found {
        Entry* entry;
        bool isNew;
    };

    Entry* lookUp(const Key& key) const;
    NewEntry prepare(const Key& key) const;
    Entry* append(const Key& key, NewEntry& prepared, void* object) noexcept;
    Found findOrAdd(const std::type_info& type, const char* objectName, void* object);
    Entry* entryToLock_(const std::type_info& type, const char* objectName);

    std::list<Entry*> entries;     // in order of creation; guarded by namespaceLock
    CriticalSection namespaceLock; // lock() is the typed front
    LightweightString<char> name;
    std::unique_ptr<detail::NameIndex<IndexedEntry>> index_; // guarded by namespaceLock
};

static_assert(sizeof(NamedObjectsNamespace::Entry) == 64 &&
                  offsetof(NamedObjectsNamespace::Entry, object) == 8 &&
                  offsetof(NamedObjectsNamespace::Entry, lock) == 16 &&
                  offsetof(NamedObjectsNamespace::Entry, typeName) == 32 &&
                  offsetof(NamedObjectsNamespace::Entry, objectName) == 48,
              "modules and diagnostic tools read entries, so their layout is fixed");

} // namespace Vx
