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
                if (n % 3 != 0 || !lock->tryLock())
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

void counted()
{
    const Vx::Ptr<iLock> lock = threading()->createLock(0);
    require(lock.useCount() == 1,
            "one holder of a new lock is counted as " + std::to_string(lock.useCount()));
}

void anyFlags()
{
    for (const unsigned int flags : {0u, 1u, 2u, 0x80000000u, 0xFFFFFFFFu}) {
        const Vx::Ptr<iLock> lock = threading()->createLock(flags);
        require(bool(lock), "createLock(" + std::to_string(flags) + ") returns an empty pointer");
        require(takenByAnother(*lock), "a new lock is held");
    }
}

void tryAtOnce()
{
    const Vx::Ptr<iLock> lock = threading()->createLock(0);
    require(lock->tryLock(), "tryLock fails for a free lock");
    require(!takenByAnother(*lock), "tryLock does not take the lock");
    lock->unlock();
    require(takenByAnother(*lock), "unlock does not release what tryLock took");
}

void ownerEnds()
{
    static const Vx::Ptr<iLock> lock = threading()->createLock(0); // held to the end
    std::thread([] { lock->lock(); }).join();
    require(!lock->tryLock(), "the lock is free after the end of the thread that holds it");
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
    constexpr unsigned int kThreads = 8;
    const unsigned int mine = threading()->currentThreadId();
    require(threading()->currentThreadId() == mine, "the identifier of a thread changes");
    std::vector<std::thread> threads;
    std::vector<unsigned int> found(kThreads);
    std::atomic<unsigned int> asked{0}; // all threads live until the last one has asked
    for (unsigned int& id : found)
        threads.emplace_back([&id, &asked] {
            id = threading()->currentThreadId();
            ++asked;
            while (asked != kThreads)
                std::this_thread::yield();
        });
    for (std::thread& thread : threads)
        thread.join();
    found.push_back(mine);
    std::set<unsigned int> seen;
    for (unsigned int id : found) {
        require(id != 0, "an identifier is 0");
        require(seen.insert(id).second, "two living threads have the same identifier");
    }
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
    static constexpr char kThreading[] = "iThreading.h";
    return {
        {"lock.counted", Contract, "OS.h", "The count of a new object starts at 0", counted},
        {"lock.flags", Contract, kThreading, "Returns a new, free lock, never null.", anyFlags},
        {"lock.reentrant", Contract, kThreading, "The holder may enter again", reentrant},
        {"lock.excludes", Contract, kThreading, "Blocks until the calling thread holds the lock.",
         excludes},
        {"lock.try", Contract, kThreading, "Takes the lock if it is free or the caller holds it.",
         tryAtOnce},
        {"lock.owner-ends", Contract, kThreading, "A lock whose holder has ended stays held.",
         ownerEnds},
        {"lock.independent", Contract, kThreading, "Returns a new, free lock, never null.",
         independent},
        {"thread-id", Contract, kThreading,
         "Returns a number that identifies the calling thread among the living threads of the "
         "process, the same at every call. Never 0",
         identifiers},
        {"thread-id.fork", Reference, kGuide, "Forked children get identifiers of their own",
         identifierAfterFork},
    };
}
