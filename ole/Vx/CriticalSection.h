// CriticalSection.h - the recursive lock, with an owner and a name.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxPtr.h>
#include <Vx/VxTypeManip.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iThreading.h>

// Marks the inline operations that the library nevertheless exports: CriticalSection.cpp,
// which emits them, defines it.
#ifndef VX_LOCK_API
#define VX_LOCK_API VX_API
#endif

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
    VX_LOCK_API void enter();

    /// Leaves \p held, which the calling thread has entered, and enters this lock: leave() and
    /// enter(), but the platform is not asked again who is calling.
    void enterAfter(CriticalSection& held);

    /// Gives back one entry. Whether the caller is the owner is not checked.
    VX_LOCK_API void leave();

    /// Enters if that is possible at once.
    /// \returns 0 when entered, -1 when another thread holds the lock
    VX_LOCK_API int attemptEntry();

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

    class Footprint;

    /// The standard library's names, so that its guards work: enter(), whether attemptEntry()
    /// entered, leave().
    void lock() { enter(); }
    bool try_lock() { return attemptEntry() == 0; }
    void unlock() { leave(); }

private:
    struct Rep {
        Vx::Ptr<iLock> lock;
        unsigned int entryCount = 0;  // nested entries of the owner; guarded by lock
        unsigned int ownerThread = 0; // written under lock, read by anybody
        unsigned long unused = 0;
        LightweightString<char> name;

        // A line of the cache for each: who enters a lock writes here, and who enters another
        // one should not wait for that.
        static void* operator new(std::size_t) { return ::operator new(64); }
        static void operator delete(void* rep) { ::operator delete(rep); }
    };
    static_assert(sizeof(Rep) == 48 && offsetof(Rep, entryCount) == 16 &&
                      offsetof(Rep, ownerThread) == 20 && offsetof(Rep, name) == 32,
                  "diagnostic tools find owner and name at these places");

    static unsigned int callingThread(Rep& rep);
    static void noteEntry(Rep& rep, unsigned int self = 0);

    Vx::Ptr<Rep, Vx::DtorTraits, Vx::ExternalRefCountTraits> rep_;
};

/// Where entering a lock goes, for who looks it up long before it is entered and wants that
/// memory to be there by then. A hint to the processor and nothing else: to outlive the lock,
/// or what it was, does no harm.
class CriticalSection::Footprint {
public:
    /// Of no lock.
    Footprint() noexcept = default;

    /// Of \p lock as it is now.
    explicit Footprint(const CriticalSection& lock) noexcept
        : rep_(lock.rep_.get()), platformLock_(lock.rep_->lock.get())
    {}

    /// Has the memory fetched, and does not wait for it.
    // Inline always: a call of it has no effect that the compiler sees, and would be left out.
    [[gnu::always_inline]] void fetch() const noexcept
    {
        __builtin_prefetch(rep_);
        __builtin_prefetch(platformLock_);
    }

private:
    const void* rep_ = nullptr;
    const void* platformLock_ = nullptr;
};

// The calls into the platform are most of what entering costs, so the rest is inline.

// Called with the platform lock held for the first time. Without the platform's answer it is
// free again.
inline unsigned int CriticalSection::callingThread(Rep& rep)
{
    struct Undo {
        Rep* rep;
        [[gnu::always_inline]] ~Undo()
        {
            if (rep != nullptr) {
                rep->entryCount = 0;
                rep->lock->unlock();
            }
        }
    } undo{&rep};
    const unsigned int self = OS()->threading()->currentThreadId();
    undo.rep = nullptr;
    return self;
}

// Called with the platform lock held, which from here to its unlock() makes the
// bookkeeping ours alone. A self of 0 is still to be found out.
inline void CriticalSection::noteEntry(Rep& rep, unsigned int self)
{
    if (__builtin_expect(rep.entryCount++ != 0, false))
        return;
    if (__builtin_expect(self == 0, false))
        self = callingThread(rep);
    // The owner is a snapshot for other threads: an atomic access, no ordering.
    __atomic_store_n(&rep.ownerThread, self, __ATOMIC_RELAXED);
}

inline void CriticalSection::enter()
{
    Rep& rep = *rep_;
    rep.lock->lock();
    noteEntry(rep);
}

inline void CriticalSection::enterAfter(CriticalSection& held)
{
    // The identifier that an outer entry noted may be from before a fork.
    const Rep& before = *held.rep_;
    const unsigned int self =
        __builtin_expect(before.entryCount == 1, true) ? before.ownerThread : 0;
    held.leave();
    Rep& rep = *rep_;
    rep.lock->lock();
    noteEntry(rep, self);
}

inline void CriticalSection::leave()
{
    Rep& rep = *rep_;
    if (__builtin_expect(--rep.entryCount == 0, true))
        __atomic_store_n(&rep.ownerThread, 0u, __ATOMIC_RELAXED);
    // From here on the lock is another thread's to take.
    rep.lock->unlock();
}

inline int CriticalSection::attemptEntry()
{
    Rep& rep = *rep_;
    if (!rep.lock->tryLock())
        return -1;
    noteEntry(rep);
    return 0;
}

static_assert(sizeof(CriticalSection) == 16, "a lock is one handle, part of the binary interface");

// Compiled into the library: modules create locks by this factory without knowing the type.
extern template struct VX_API Vx::TypeManip::TemplatedNew<CriticalSection>;
