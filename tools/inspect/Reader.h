// Reader.h - Reads the library's objects out of a process, step by step.
#pragma once

#include "Roots.h"
#include "Snapshot.h"

#include <map>
#include <unordered_map>

namespace inspect {

/// Fills a snapshot. One object per snapshot.
class Reader {
public:
    Reader(const Process& process, Snapshot& snapshot)
        : process_(process), roots_(findRoots(process)), snapshot_(snapshot)
    {}

    void readAll();

private:
    void readNames();
    void readNamespace(Address space);
    bool readEntry(Address entry, const std::string& space);
    void readShutdown();
    bool readCallbacks(Address set, bool firstPass, Address running, std::vector<Callback>& into);
    std::optional<Callback> readCallback(Address item);
    Address functionOf(Address function) const;
    bool readPasses(ShutdownList& shutdown);
    void readApplication();
    void readPools();
    bool readPool(Address logger);
    void readMemory();
    void noteMissingModules();

    /// Reads a lock and adds it, or finds it among those that have been read.
    std::size_t addLock(Address section, const std::string& name, const char* place);
    void readOwner(Address rep, Lock& lock) const;
    void addLocksOfWaiting(const std::vector<Thread>& waiting);
    void noteWaiting(const std::vector<Thread>& waiting);

    /// The characters of a LightweightString, or nothing if it is damaged.
    std::optional<std::string> string(Address string);
    std::optional<std::u32string> wideString(Address string);
    std::string text(Address string); ///< the same, marked if it is damaged
    template <class Ch> std::optional<std::basic_string<Ch>> characters(Address string);
    std::optional<std::string> cString(Address from);
    bool isOfPlatform(Address address) const;
    void note(std::string text) { snapshot_.notes.push_back(std::move(text)); }

    const Process& process_;
    const Roots roots_;
    Snapshot& snapshot_;
    std::unordered_map<Address, std::size_t> lockOfPlatformLock_;
    std::size_t bytesLeft_ = std::size_t{1} << 28; ///< of strings: damaged lists may repeat one
};

} // namespace inspect
