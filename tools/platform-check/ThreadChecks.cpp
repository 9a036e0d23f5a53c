// Locks and thread identity.
#include "Check.h"

#include <Vx/VxPtr.h>
#include <Vx/platform/iThreading.h>
#include <atomic>
#include <set>
#include <thread>

namespace {

iThreading* threading() { return OS()->threading(); }

bool takenByAnother(iLock& lock)
{
    bool taken = false;
    std::thread([&] {
        taken = lock.tryLock();
        if (taken)
            lock.unlock();
    }).join();
    return taken;
}

void reentrant()
{
    const Vx::Ptr<iLock> lock = threading()->createLock(0);
    require(bool(lock), "createLock returns an empty pointer");
    require(lock.useCount() == 1, "the counter of a new lock does not start at 0");
    lock->lock();
    lock->lock();
    require(lock->tryLock(), "tryLock fails for the holder");
    for (int depth = 3; depth > 0; --depth) {
        require(!takenByAnother(*lock), "another thread takes the lock while it is held " +
                                            std::to_string(depth) + " deep");
        lock->unlock();
    }
    require(takenByAnother(*lock), "the lock stays held after the last unlock");
}

void excludes()
{
    const Vx::Ptr<iLock> lock = threading()->createLock(0);
    std::atomic<bool> started{false};
    std::atomic<bool> entered{false};
    lock->lock();
    std::thread other([&] {
        started = true;
        lock->lock();
        entered = true;
        lock->unlock();
    });
    // A working lock passes however long this looks; a broken one lets the other thread in as
    // soon as it gets a processor.
    for (int looks = 0; looks < 1000 && !entered; ++looks) {
        std::this_thread::yield();
        if (!started)
            looks = 0;
    }
    const bool intruded = entered;
    lock->unlock();
    other.join();
    require(!intruded, "lock() lets a second thread in");
    require(entered, "the waiting thread never takes the lock");

    constexpr int kThreads = 4;
    constexpr int kRounds = 50000;
    volatile long counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < kRounds; ++n) {
                lock->lock();
                counter = counter + 1;
                lock->unlock();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    require(counter == long(kThreads) * kRounds,
            "two threads held the lock at once: " + std::to_string(counter) + " of " +
                std::to_string(long(kThreads) * kRounds));
}

void independent()
{
    const Vx::Ptr<iLock> first = threading()->createLock(0);
    const Vx::Ptr<iLock> second = threading()->createLock(0);
    first->lock();
    require(takenByAnother(*second), "two locks exclude each other");
    first->unlock();
}

void identifiers()
{
    const unsigned int mine = threading()->currentThreadId();
    require(mine != 0, "an identifier is 0");
    require(threading()->currentThreadId() == mine, "the identifier of a thread changes");
    std::set<unsigned int> seen{mine};
    std::vector<std::thread> threads;
    std::vector<unsigned int> found(8);
    // Only identifiers of threads that live at the same time must differ.
    const Vx::Ptr<iLock> gate = threading()->createLock(0);
    gate->lock();
    for (unsigned int& id : found)
        threads.emplace_back([&id, &gate] {
            id = threading()->currentThreadId();
            gate->lock();
            gate->unlock();
        });
    gate->unlock();
    for (std::thread& thread : threads)
        thread.join();
    for (unsigned int id : found)
        require(id != 0, "an identifier is 0");
    require(found[0] != mine && found[1] != mine, "another thread has this thread's identifier");
}

void identifierAfterFork()
{
    const unsigned int mine = threading()->currentThreadId();
    const int status = inChild([&] { return threading()->currentThreadId() == mine ? 1 : 0; });
    require(status == 0, "the child has the parent's identifier");
}

} // namespace

std::vector<Check> threadChecks()
{
    return {
        {"lock.reentrant", "the holder may enter again, other threads may not", reentrant},
        {"lock.excludes", "one thread at a time holds a lock", excludes},
        {"lock.independent", "locks are independent", independent},
        {"thread-id", "never 0, constant, different for live threads", identifiers},
        {"thread-id.fork", "a forked child has a different identifier", identifierAfterFork},
    };
}
