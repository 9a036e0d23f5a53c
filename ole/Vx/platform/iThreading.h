// platform/iThreading.h - Locks and thread identifiers.
#pragma once

#include <Vx/VxFwd.h>

/// A recursive lock. iThreading::createLock() returns it.
///
/// Thread safety: every operation may be called from any thread at any time.
class iLock {
public:
    virtual ~iLock() = default;

    /// Blocks until the calling thread holds the lock. The holder may enter again: the library
    /// calls this on every entry, nested or not. A lock whose holder has ended stays held.
    virtual void lock() = 0;

    /// Takes the lock if it is free or the caller holds it.
    /// \returns false at once if another thread holds it
    virtual bool tryLock() = 0;

    /// Releases one level of holding.
    virtual void unlock() = 0;
};

/// Makes locks and identifies threads.
///
/// Thread safety: every operation may be called from any thread at any time.
class iThreading {
public:
    /// Returns a new, free lock, never null. \p flags is the argument of CriticalSection,
    /// passed on unchanged; 0 asks for an ordinary recursive lock.
    virtual Vx::Ptr<iLock> createLock(unsigned int flags) = 0;

    /// Returns a number that identifies the calling thread among the living threads of the
    /// process, the same at every call. Never 0, which means "no owner".
    virtual unsigned int currentThreadId() = 0;

protected:
    ~iThreading() = default;
};
