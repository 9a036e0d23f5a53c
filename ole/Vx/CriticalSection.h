// CriticalSection.h - the recursive lock, with an owner and a name.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxPtr.h>
#include <Vx/VxTypeManip.h>
#include <Vx/platform/iThreading.h>

namespace Vx {
class NamedObjectsNamespace;
}

/// A recursive lock around a lock of the platform. It knows its owner and can carry a
/// name for diagnostic tools.
///
///     CriticalSection lock("thumbnail cache");
///     std::lock_guard<CriticalSection> hold(lock);
///
/// Shape: one shared handle. Copies share the lock, its owner and its name; the last
///   copy destroys them.
/// Errors: no operation reports one. attemptEntry() answers a busy lock by -1; what
///   the platform throws passes through and leaves the lock as it was.
/// Threads: enter, attemptEntry, leave and owner from any. init and setName are for the
///   time before the lock is shared; the name is read as a plain value.
class VX_API CriticalSection {
public:
    /// A free lock, with platform flags 0.
    CriticalSection();

    /// A free lock; \p flags go to iThreading::createLock() untouched. No flags are written
    /// 0u: a plain 0 could be the null name as well, and does not compile.
    explicit CriticalSection(unsigned int flags);

    /// A free lock with a name; null and "" mean none.
    explicit CriticalSection(const char* name);

    CriticalSection(const CriticalSection&) noexcept = default;
    CriticalSection& operator=(const CriticalSection&) noexcept = default;

    /// Lets go; the last copy destroys the lock, which nobody may hold then.
    ~CriticalSection();

    /// Becomes a new, free, nameless lock, and lets go of what it was; copies keep that.
    void init(unsigned int flags);

    /// Blocks until the calling thread holds the lock. Its holder may enter again: each
    /// entry reaches the platform lock and needs a leave() of its own.
    void enter();

    /// Gives back one entry. Whether the caller is the owner is not checked.
    void leave();

    /// Enters if that is possible at once.
    /// \returns 0 when entered, -1 when another thread holds the lock
    int attemptEntry();

    /// The platform's identifier of the thread that holds the lock, 0 when it is free: a
    /// snapshot, read without locking.
    unsigned int owner() const;

    /// Names the lock for diagnostic tools; the library itself prints the name nowhere.
    /// Null and "" take the name away. A shorter name is written over the current one
    /// unless somebody shares that.
    void setName(const char* name);

    /// The name, empty when there is none.
    LightweightString<char> name() const { return rep_->name; }

    /// Deliberate: prints nothing. A place for a breakpoint.
    void debugPrint();

    /// The standard library's names, so that its guards work: enter(), whether attemptEntry()
    /// entered, leave().
    void lock() { enter(); }
    bool try_lock() { return attemptEntry() == 0; }
    void unlock() { leave(); }

private:
    // Fetches locks on their way to being entered.
    friend class Vx::NamedObjectsNamespace;

    struct Rep {
        Vx::Ptr<iLock> lock;
        unsigned int entryCount = 0;  // nested entries of the owner; guarded by lock
        unsigned int ownerThread = 0; // written under lock, read by anybody
        unsigned long unused = 0;
        LightweightString<char> name;
    };
    static_assert(sizeof(Rep) == 48 && offsetof(Rep, entryCount) == 16 &&
                      offsetof(Rep, ownerThread) == 20 && offsetof(Rep, name) == 32,
                  "diagnostic tools find owner and name at these places");

    static void noteEntry(Rep& rep);

    Vx::Ptr<Rep, Vx::DtorTraits, Vx::ExternalRefCountTraits> rep_;
};
static_assert(sizeof(CriticalSection) == 16, "a lock is one handle, part of the binary interface");

// Compiled into the library: modules create locks by this factory without knowing the type.
extern template struct VX_API Vx::TypeManip::TemplatedNew<CriticalSection>;
