// CriticalSection.h - A recursive lock that knows its owner.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxPtr.h>
#include <Vx/VxTypeManip.h>
#include <Vx/platform/iThreading.h>
#include <cstddef>

namespace Vx {
namespace detail {
struct Inspect;
}
} // namespace Vx

/// A recursive lock around a lock of the platform. It knows its owner and can carry a name
/// for diagnostic tools.
///
///     CriticalSection lock("thumbnail cache");
///     std::lock_guard<CriticalSection> hold(lock);
///
/// Ownership: a shared handle of 16 bytes. Copies share the lock, its owner and its name; the
///   last copy destroys them, and no thread may hold the lock then.
/// Errors: none of its own. attemptEntry() reports a busy lock with -1. Exceptions of the
///   platform and of memory exhaustion pass through and leave the lock as it was, except that
///   leave() has counted the entry as ended before it asks the platform to unlock.
/// Thread safety: enter(), attemptEntry(), leave() and owner() from any thread. Call init()
///   and setName() before the lock is shared; name() is not synchronized with them.
class VX_API CriticalSection {
public:
    /// Makes a free lock, with platform flags 0.
    CriticalSection();

    /// Makes a free lock; \p flags go to iThreading::createLock() unchanged. Write 0u for no
    /// flags: a plain 0 might also be a null name, and does not compile.
    explicit CriticalSection(unsigned int flags);

    /// Makes a free lock with a name, as by setName().
    explicit CriticalSection(const char* name);

    CriticalSection(const CriticalSection&) noexcept = default;
    CriticalSection& operator=(const CriticalSection&) noexcept = default;
    ~CriticalSection();

    /// Replaces the lock by a new, free one without a name. Copies keep the old one.
    void init(unsigned int flags);

    /// Blocks until the calling thread holds the lock. The holder may enter again; every
    /// entry needs a leave() of its own.
    void enter();

    /// Ends one entry of the calling thread. Does not check that the caller is the owner.
    void leave();

    /// Enters if that is possible without waiting.
    /// \returns 0 if it entered, -1 if another thread holds the lock
    int attemptEntry();

    /// Returns the platform's identifier of the thread that holds the lock, 0 if it is free.
    /// This is a snapshot, read without locking.
    unsigned int owner() const;

    /// Names the lock for diagnostic tools; the library prints the name nowhere. Null and ""
    /// remove the name. A name that fits overwrites the current one in place unless a copy of
    /// that string exists. \p name must not point into the current one.
    void setName(const char* name);

    /// Returns the name, empty if there is none.
    LightweightString<char> name() const { return rep_->name; }

    /// Deliberate: prints nothing. A place for a breakpoint.
    void debugPrint();

    /// The standard library's names, for its guards. try_lock() tells whether it entered.
    void lock() { enter(); }
    bool try_lock() { return attemptEntry() == 0; }
    void unlock() { leave(); }

private:
    friend struct Vx::detail::Inspect;

    struct Rep {
        Vx::Ptr<iLock> lock;
        unsigned int entryCount = 0;  // nested entries of the owner; guarded by lock
        unsigned int ownerThread = 0; // written under lock, read without it
        unsigned long unused = 0;
        LightweightString<char> name;
    };
    static_assert(sizeof(Rep) == 48 && offsetof(Rep, entryCount) == 16 &&
                      offsetof(Rep, ownerThread) == 20 && offsetof(Rep, name) == 32,
                  "diagnostic tools find the owner and the name at these offsets");

    void noteEntry();

    Vx::Ptr<Rep, Vx::DtorTraits, Vx::ExternalRefCountTraits> rep_;
};
static_assert(sizeof(CriticalSection) == 16, "CriticalSection is part of the binary interface");

// Instantiated in the library: modules create locks through this factory.
extern template struct VX_API Vx::TypeManip::TemplatedNew<CriticalSection>;
