#include "threads/Threading.h"

#include "threads/ForkPage.h"

#include <atomic>
#include <cassert>
#include <unistd.h>

namespace {

// Few bytes, and initial-exec: reading them is one instruction and can never allocate, and
// a host may still load this library late, since that little static storage is to spare.
struct ThreadNote {
    std::uint32_t epoch; // of the process that id belongs to
    unsigned int id;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local ThreadNote note = {0, 0};

/// A recursive lock: a word that threads wait on, and an owner who may come again.
///
/// Deliberate: not the C library's recursive mutex. That one knows its owner by the kernel's
/// number of the thread, so a child forked by the holder could never unlock it. The address
/// of a thread's storage is the same on both sides of a fork, and entering again costs no
/// atomic operation. Its plain mutex would do, but is reached by two more calls.
class RecursiveLock final : public iLock {
public:
    void lock() override
    {
        if (mine()) {
            ++again_;
            return;
        }
        int state = kFree;
        if (__builtin_expect(
                state_.compare_exchange_strong(state, kHeld, std::memory_order_acquire), true))
            begin();
        else
            waitUntilMine(state);
    }

    bool tryLock() override
    {
        if (mine()) {
            ++again_;
            return true;
        }
        int state = kFree;
        if (!state_.compare_exchange_strong(state, kHeld, std::memory_order_acquire))
            return false;
        begin();
        return true;
    }

    void unlock() override
    {
        assert(mine() && "only the holder gives the lock back");
        if (again_ != 0) {
            --again_;
            return;
        }
        owner_.store(nullptr, std::memory_order_relaxed);
        if (state_.exchange(kFree, std::memory_order_release) == kWaitedFor)
            state_.notify_one();
    }

    // A line of the cache for each lock: threads that enter different ones would otherwise take
    // the line from one another.
    static void* operator new(std::size_t) { return ::operator new(64); }
    static void operator delete(void* lock) { ::operator delete(lock); }

    unsigned int refCount = 0;

private:
    // Only the holder itself ever finds its own mark here, and it wrote it: relaxed will do.
    bool mine() const noexcept { return owner_.load(std::memory_order_relaxed) == &note; }

    void begin() noexcept { owner_.store(&note, std::memory_order_relaxed); }

    // Whoever has waited holds the lock as one that others wait for: there may be some left.
    [[gnu::noinline]] void waitUntilMine(int state) noexcept
    {
        if (state != kWaitedFor)
            state = state_.exchange(kWaitedFor, std::memory_order_acquire);
        while (state != kFree) {
            state_.wait(kWaitedFor, std::memory_order_relaxed);
            state = state_.exchange(kWaitedFor, std::memory_order_acquire);
        }
        begin();
    }

    static constexpr int kFree = 0, kHeld = 1, kWaitedFor = 2;

    std::atomic<int> state_ = kFree;
    unsigned int again_ = 0; // how often the holder has entered beyond the first time
    std::atomic<const ThreadNote*> owner_ = nullptr;
};

// Kept apart, so that who has a number gets it without a frame.
[[gnu::noinline]] unsigned int askForId() noexcept
{
    const std::uint32_t epoch = forkEpoch();
    const auto id = static_cast<unsigned int>(gettid());
    if (epoch != 0)
        note = {epoch, id};
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
    const std::uint32_t epoch = begunForkEpoch();
    return epoch != 0 && note.epoch == epoch ? note.id : askForId();
}
