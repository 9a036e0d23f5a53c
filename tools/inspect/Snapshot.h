// Snapshot.h - What a reader has found in a process: plain data, for printing and for tests.
#pragma once

#include "Process.h"

namespace inspect {

struct Lock {
    std::string name;                  ///< as set by the host, or that of the entry it belongs to
    std::string place;                 ///< where it was found: "namespace", "named object", ...
    Address platformLock = 0;          ///< the iLock
    Address futex = 0;                 ///< the word that waiting threads sleep on, 0 if unknown
    unsigned int owner = 0;            ///< the holder as the process sees it, 0 if free
    unsigned int depth = 0;            ///< entries of the owner
    std::uint64_t ownerNumber = 0;     ///< the platform's number of the holder, 0 if unknown
    bool changing = false;             ///< it changed at each look: owner and depth are not known
    bool ownerEnded = false;           ///< no thread of the process has this identifier
    std::vector<unsigned int> waiting; ///< threads, as the process sees them
};

struct NamedObject {
    std::string space; ///< the name of its namespace
    std::string type;  ///< mangled
    std::string name;
    Address object = 0;   ///< null if there is none
    std::size_t lock = 0; ///< in Snapshot::locks
};

struct Callback {
    unsigned int priority = 0;
    unsigned int sequence = 0;
    Address object = 0;   ///< the callback
    std::string type;     ///< mangled, empty if unknown
    Address function = 0; ///< what it calls, 0 if unknown
    bool running = false;
    bool firstPass = false; ///< taken off the list by the first pass
};

struct ShutdownList {
    int status = 0; ///< Shutdown::status
    bool ended = false;
    bool complete = false; ///< the list could be read without changing meanwhile
    std::vector<Callback> callbacks;
};

struct Application {
    std::string name;
    std::string version;
    std::string logsPath;
    std::string userDataPath;
    bool previousExitWasNormal = false;
};

struct Pool {
    std::string name;
    int inUse = 0;
    int maxInUse = 0;
    double peakDemand = 0;         ///< allocations per second
    double peakTime = 0;           ///< milliseconds of the process's clock
    std::int64_t peakWallTime = 0; ///< seconds since 1970
};

struct BlockSize {
    std::uint32_t size = 0; ///< bytes
    std::uint64_t spans = 0;
    std::uint64_t blocks = 0;
    std::uint64_t free = 0; ///< in spans; the others are live or cached by a thread
};

struct Memory {
    bool known = false; ///< the platform describes its small blocks
    std::uint32_t spanSize = 0;
    std::uint64_t spans = 0;                ///< mapped, in use or idle
    std::vector<BlockSize> sizes;           ///< in use
    std::optional<std::uint64_t> anonymous; ///< private memory of the process
};

/// A cycle of threads, each holding the lock that the one before waits for.
struct Deadlock {
    struct Step {
        unsigned int thread; ///< as the process sees it
        std::size_t holds;   ///< in Snapshot::locks
        std::size_t waitsFor;
    };
    std::vector<Step> steps;
};

struct Snapshot {
    std::string libraryVersion;
    bool platformKnown = false; ///< the platform describes its locks, so waiting threads are known
    std::vector<Thread> threads;
    std::vector<Lock> locks;
    std::vector<Deadlock> deadlocks;
    std::optional<Application> application;
    std::optional<ShutdownList> shutdown;
    std::vector<NamedObject> names;
    std::vector<Pool> pools;
    Memory memory;
    std::vector<std::string> notes; ///< what could not be read, or not consistently
};

/// The thread that the process itself calls \p innerId, or null.
const Thread* threadOf(const Snapshot& snapshot, unsigned int innerId);

/// Reads everything. Never trusts what it reads: every list is bounded, every pointer is read
/// through \p process, and what is inconsistent is read again or noted.
/// \throws CannotInspect if the process does not use the library, or one of another version
Snapshot takeSnapshot(const Process& process);

/// Finds the cycles of owners and waiting threads among the locks of \p snapshot.
std::vector<Deadlock> findDeadlocks(const Snapshot& snapshot);

} // namespace inspect
