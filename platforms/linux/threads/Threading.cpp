#include "threads/Threading.h"

#include "threads/ForkEpoch.h"

#include <atomic>
#include <cassert>
#include <cstddef>
#include <mutex>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// What the calling thread knows about itself. In the initial-exec model reading it takes one
// instruction and can never allocate. A host may still load this library late, since the loader
// keeps that little static storage spare.
struct Self {
    std::uint64_t number; // see threadNumber(); 0 until it is needed
    std::uint64_t epoch;  // of the process in which the kernel gave the thread this identifier
    unsigned int id;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local Self self = {0, 0, 0};

constinit std::atomic<std::uint64_t> threadsNumbered = 0;

// The kernel's identifiers have 22 bits at most.
constexpr std::uint32_t kThreadIdBits = 24;

// By number, since older C libraries have no gettid().
unsigned int kernelId() noexcept { return static_cast<unsigned int>(syscall(SYS_gettid)); }

[[gnu::noinline]] std::uint64_t takeNumber() noexcept
{
    return self.number = ++threadsNumbered << kThreadIdBits | kernelId();
}

// Returns the calling thread's number: never 0, and never that of another thread, even of one
// that has ended. It survives a fork, in which the kernel's identifier changes. Its low bits are
// the identifier that the thread had at first, so that diagnostic tools can name the holder of
// a lock.
std::uint64_t threadNumber() noexcept { return self.number != 0 ? self.number : takeNumber(); }

/// A recursive lock: a plain mutex, its owner, and how often that has entered again.
///
/// Deliberate: not the C library's recursive mutex. That one identifies its owner by the
/// kernel's identifier, so a child forked by the holder could never unlock it.
class RecursiveLock final : public iLock {
public:
    void lock() override
    {
        const std::uint64_t caller = threadNumber();
        if (heldBy(caller)) {
            ++recursion_;
            return;
        }
        mutex_.lock();
        owner_.store(caller, std::memory_order_relaxed);
    }

    bool tryLock() override
    {
        const std::uint64_t caller = threadNumber();
        if (heldBy(caller)) {
            ++recursion_;
            return true;
        }
        if (!mutex_.try_lock())
            return false;
        owner_.store(caller, std::memory_order_relaxed);
        return true;
    }

    void unlock() override
    {
        assert(heldBy(threadNumber()) && "only the holder may unlock");
        if (recursion_ != 0) {
            --recursion_;
            return;
        }
        owner_.store(0, std::memory_order_relaxed);
        mutex_.unlock();
    }

    static constexpr Vx::detail::InspectPlatformLocks layout() noexcept;

    unsigned int refCount = 0;

private:
    // Relaxed, because a caller that finds its own number here has written it itself.
    bool heldBy(std::uint64_t caller) const noexcept
    {
        return owner_.load(std::memory_order_relaxed) == caller;
    }

    unsigned int recursion_ = 0; // entries of the owner beyond the first; guarded by mutex_
    std::atomic<std::uint64_t> owner_ = 0; // the holder's threadNumber(), 0 if free
    std::mutex mutex_;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constexpr Vx::detail::InspectPlatformLocks RecursiveLock::layout() noexcept
{
    return {
        .size = sizeof(Vx::detail::InspectPlatformLocks),
        .lockSize = sizeof(RecursiveLock),
        .self = &Threading::lockLayout,
        .recursion = offsetof(RecursiveLock, recursion_),
        .owner = offsetof(RecursiveLock, owner_),
        .futex = offsetof(RecursiveLock, mutex_), // the first member of the C library's mutex
        .threadIdBits = kThreadIdBits,
    };
}
#pragma GCC diagnostic pop

// Out of line so that the cached case needs no stack frame.
[[gnu::noinline]] unsigned int askForId(std::uint64_t epoch) noexcept
{
    const unsigned int id = kernelId();
    self.epoch = epoch;
    self.id = id;
    return id;
}

} // namespace

Vx::Ptr<iLock> Threading::createLock(unsigned int)
{
    RecursiveLock* lock = new RecursiveLock;
    return Vx::Ptr<iLock>(&lock->refCount, lock);
}

unsigned int Threading::currentThreadId()
{
    const std::uint64_t epoch = forkEpoch();
    return epoch != 0 && self.epoch == epoch ? self.id : askForId(epoch);
}

constinit const Vx::detail::InspectPlatformLocks Threading::lockLayout = RecursiveLock::layout();
