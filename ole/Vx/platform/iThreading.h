// platform/iThreading.h - locks and thread identity.
#pragma once

#include <Vx/VxFwd.h>

/// A recursive lock made by iThreading.
class iLock {
public:
    virtual ~iLock() = default;

    /// Blocks until the calling thread holds the lock. The holder may enter again:
    /// the library calls this on every entry, nested or not.
    virtual void lock() = 0;

    /// Takes the lock when it is free or already the caller's.
    /// \returns false at once when another thread holds it
    virtual bool tryLock() = 0;

    /// Gives back one level of holding.
    virtual void unlock() = 0;
};

/// Makes locks and names threads.
///
/// Threads: any.
class iThreading {
public:
    /// A new, free lock; never empty. \p flags is what CriticalSection was given,
    /// passed through untouched; 0 asks for an ordinary recursive lock.
    virtual Vx::Ptr<iLock> createLock(unsigned int flags) = 0;

    /// Identifies the calling thread among the living threads of the process;
    /// never 0, which stands for "nobody".
    virtual unsigned int currentThreadId() = 0;

protected:
    ~iThreading() = default;
};
