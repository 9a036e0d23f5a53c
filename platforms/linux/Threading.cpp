#include "Threading.h"

#include "ForkPage.h"

#include <atomic>
#include <cassert>
#include <mutex>
#include <unistd.h>

namespace {

// Few bytes, and initial-exec: reading them is one instruction and can never allocate, and
// a host may still load this library late, since that little static storage is to spare.
struct ThreadNote {
    std::uint32_t epoch; // of the process that id belongs to
    unsigned int id;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local ThreadNote note = {0, 0};

/// A recursive lock: the C library's plain mutex, and an owner who may come again.
///
/// Deliberate: not the C library's recursive mutex. That one knows its owner by the kernel's
/// number of the thread, so a child forked by the holder could never unlock it. The address
/// of a thread's storage is the same on both sides of a fork, and entering again costs no
/// atomic operation.
class RecursiveLock final : public iLock {
public:
    void lock() override
    {
        if (mine()) {
            ++depth_;
            return;
        }
        mutex_.lock();
        begin();
    }

    bool tryLock() override
    {
        if (mine()) {
            ++depth_;
            return true;
        }
        if (!mutex_.try_lock())
            return false;
        begin();
        return true;
    }

    void unlock() override
    {
        assert(mine() && "only the holder gives the lock back");
        if (--depth_ != 0)
            return;
        owner_.store(nullptr, std::memory_order_relaxed);
        mutex_.unlock();
    }

    unsigned int refCount = 0;

private:
    // Only the holder itself ever finds its own mark here, and it wrote it: relaxed will do.
    bool mine() const noexcept { return owner_.load(std::memory_order_relaxed) == &note; }

    void begin() noexcept
    {
        owner_.store(&note, std::memory_order_relaxed);
        depth_ = 1;
    }

    std::mutex mutex_;
    std::atomic<const ThreadNote*> owner_ = nullptr;
    unsigned int depth_ = 0; // guarded by mutex_
};

} // namespace

Vx::Ptr<iLock> Threading::createLock(unsigned int)
{
    RecursiveLock* lock = new RecursiveLock;
    return Vx::Ptr<iLock>(&lock->refCount, lock);
}

unsigned int Threading::currentThreadId()
{
    const std::uint32_t epoch = forkEpoch();
    if (epoch == 0)
        return static_cast<unsigned int>(gettid());
    if (note.epoch != epoch)
        note = {epoch, static_cast<unsigned int>(gettid())};
    return note.id;
}
