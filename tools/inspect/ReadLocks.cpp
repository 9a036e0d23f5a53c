// Locks, their owners and the threads that wait for them.
#include "Reader.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace inspect {
namespace {

// A lock that is entered and left all the time is rarely caught in the middle twice.
constexpr int kMostLooks = 16;

const Thread* find(const std::vector<Thread>& threads, unsigned int innerId)
{
    const auto found = std::find_if(threads.begin(), threads.end(), [=](const Thread& thread) {
        return thread.innerId == innerId;
    });
    return found != threads.end() ? &*found : nullptr;
}

} // namespace

const Thread* threadOf(const Snapshot& snapshot, unsigned int innerId)
{
    return find(snapshot.threads, innerId);
}

// Only the platform's own locks have the layout that it describes. Their virtual table is in the
// platform's module.
bool Reader::isOfPlatform(Address lock) const
{
    const auto table = process_.get<Address>(lock);
    const Mapping* const mapping = table ? process_.mappingOf(*table) : nullptr;
    return roots_.platformLocks && mapping != nullptr && !mapping->executable &&
           mapping->path == roots_.platformFile;
}

// Takes the owner from the library's and the platform's record. They are written one after the
// other, so a lock in transition shows two records that do not match: look again.
void Reader::readOwner(Address rep, Lock& lock) const
{
    struct Seen {
        std::uint32_t depth = 0, owner = 0;
        std::uint64_t number = 0;
        bool operator==(const Seen& other) const
        {
            return depth == other.depth && owner == other.owner && number == other.number;
        }
    };
    const auto look = [&](Seen& seen) {
        std::uint32_t pair[2] = {};
        const auto& layout = *roots_.locks;
        const bool together = layout.ownerThread == layout.entryCount + sizeof(std::uint32_t);
        if (together && process_.read(rep + layout.entryCount, pair, sizeof pair)) {
            seen.depth = pair[0];
            seen.owner = pair[1];
        }
        if (lock.futex != 0)
            seen.number =
                process_.get<std::uint64_t>(lock.platformLock + roots_.platformLocks->owner)
                    .value_or(0);
        const bool held = seen.owner != 0;
        return held == (seen.depth != 0) && (lock.futex == 0 || held == (seen.number != 0));
    };
    Seen first;
    Seen second;
    lock.changing = true;
    for (int i = 0; i < kMostLooks && lock.changing; ++i)
        lock.changing = !look(first) || !look(second) || !(first == second);
    if (lock.changing)
        return;
    lock.owner = first.owner;
    lock.depth = first.depth;
    lock.ownerNumber = first.number;
}

std::size_t Reader::addLock(Address section, const std::string& name, const char* place)
{
    Lock lock;
    lock.name = name;
    lock.place = place;
    const auto& layout = *roots_.locks;
    const auto rep = process_.get<Address>(section + layout.repInSection);
    const auto platformLock = process_.get<Address>(rep.value_or(0) + layout.platformLock);
    if (!rep || *rep == 0 || !platformLock) {
        lock.place = "damaged";
        lock.changing = true;
    } else {
        // Copies of a lock, and an entry that is found twice, are one lock.
        const auto known = lockOfPlatformLock_.find(*platformLock);
        if (known != lockOfPlatformLock_.end())
            return known->second;
        lockOfPlatformLock_.emplace(*platformLock, snapshot_.locks.size());
        const auto own = string(*rep + layout.name);
        if (own && !own->empty())
            lock.name = *own;
        lock.platformLock = *platformLock;
        if (isOfPlatform(*platformLock))
            lock.futex = *platformLock + roots_.platformLocks->futex;
        readOwner(*rep, lock);
    }
    snapshot_.locks.push_back(std::move(lock));
    return snapshot_.locks.size() - 1;
}

// A host's private locks are on no list, but a thread that waits for one leads to it.
void Reader::addLocksOfWaiting(const std::vector<Thread>& waiting)
{
    if (!roots_.platformLocks)
        return;
    const auto& layout = *roots_.platformLocks;
    for (const Thread& thread : waiting) {
        const Address at = thread.futex.value_or(0) - layout.futex;
        if (!thread.futex || lockOfPlatformLock_.count(at) != 0 || !isOfPlatform(at))
            continue;
        Lock lock;
        lock.name = fmt::format("lock at {:#x}", at);
        lock.place = "private lock";
        lock.platformLock = at;
        lock.futex = *thread.futex;
        const auto number = process_.get<std::uint64_t>(at + layout.owner);
        const auto recursion = process_.get<std::uint32_t>(at + layout.recursion);
        const auto again = process_.get<std::uint64_t>(at + layout.owner);
        lock.changing = !number || !recursion || number != again;
        if (!lock.changing && *number != 0) {
            lock.ownerNumber = *number;
            lock.owner = static_cast<unsigned int>(*number &
                                                   ((std::uint64_t{1} << layout.threadIdBits) - 1));
            lock.depth = *recursion + 1;
        }
        lockOfPlatformLock_.emplace(at, snapshot_.locks.size());
        snapshot_.locks.push_back(std::move(lock));
    }
}

// A thread counts as waiting if it slept on the word before the locks were read and has not run
// since: so what it holds and waits for was true at one moment, together with the owners.
void Reader::noteWaiting(const std::vector<Thread>& before)
{
    std::unordered_map<Address, Lock*> lockOfFutex;
    for (Lock& lock : snapshot_.locks) {
        if (lock.futex != 0)
            lockOfFutex.emplace(lock.futex, &lock);
        lock.ownerEnded = !lock.changing && lock.owner != 0 &&
                          find(before, lock.owner) == nullptr &&
                          find(snapshot_.threads, lock.owner) == nullptr;
    }
    for (const Thread& thread : snapshot_.threads) {
        const Thread* const earlier = find(before, thread.innerId);
        const auto lock = lockOfFutex.find(thread.futex.value_or(0));
        if (lock == lockOfFutex.end() || earlier == nullptr || earlier->futex != thread.futex ||
            earlier->switches != thread.switches)
            continue;
        lock->second->waiting.push_back(thread.innerId);
    }
}

std::vector<Deadlock> findDeadlocks(const Snapshot& snapshot)
{
    // Each thread waits for one lock at most, and each lock has one owner at most.
    std::map<unsigned int, std::size_t> waitsFor;
    for (std::size_t i = 0; i < snapshot.locks.size(); ++i)
        for (const unsigned int thread : snapshot.locks[i].waiting)
            waitsFor.emplace(thread, i);
    std::vector<Deadlock> found;
    std::map<unsigned int, unsigned int> visitedFrom; // the start of the walk that came here
    for (const auto& [start, unused] : waitsFor) {
        (void)unused;
        unsigned int thread = start;
        while (waitsFor.count(thread) != 0 && visitedFrom.emplace(thread, start).second)
            thread = snapshot.locks[waitsFor[thread]].owner;
        const auto visited = visitedFrom.find(thread);
        // A cycle of this walk; other walks end in cycles that are known.
        if (waitsFor.count(thread) == 0 || visited == visitedFrom.end() || visited->second != start)
            continue;
        Deadlock deadlock;
        const unsigned int first = thread;
        do {
            const std::size_t wanted = waitsFor[thread];
            const unsigned int owner = snapshot.locks[wanted].owner;
            // What the owner holds is what this thread waits for.
            deadlock.steps.push_back({owner, wanted, waitsFor[owner]});
            thread = owner;
        } while (thread != first);
        found.push_back(std::move(deadlock));
    }
    return found;
}

} // namespace inspect
