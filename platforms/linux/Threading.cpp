#include "Threading.h"

#include <mutex>
#include <unistd.h>

namespace {

struct RecursiveLock final : iLock {
    void lock() override { mutex.lock(); }
    bool tryLock() override { return mutex.try_lock(); }
    void unlock() override { mutex.unlock(); }

    std::recursive_mutex mutex;
    unsigned int refCount = 0;
};

} // namespace

Vx::Ptr<iLock> Threading::createLock(unsigned int)
{
    RecursiveLock* lock = new RecursiveLock;
    return Vx::Ptr<iLock>(&lock->refCount, lock);
}

unsigned int Threading::currentThreadId() { return static_cast<unsigned int>(gettid()); }
