// ScriptedPlatform.h - a platform for tests: scripted where a test says so, real elsewhere.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSystemUtils.h>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// Memory for the books of the platform itself, which must not show up in its own account.
template <class T> struct UncountedAllocator {
    using value_type = T;
    UncountedAllocator() = default;
    template <class U> UncountedAllocator(const UncountedAllocator<U>&) {}
    T* allocate(std::size_t n)
    {
        void* block = std::malloc(n * sizeof(T));
        return block != nullptr ? static_cast<T*>(block) : throw std::bad_alloc();
    }
    void deallocate(T* block, std::size_t) { std::free(block); }
    template <class U> bool operator==(const UncountedAllocator<U>&) const { return true; }
    template <class U> bool operator!=(const UncountedAllocator<U>&) const { return false; }
};

/// What a scripted service throws; deliberately no descendant of std::exception.
struct ScriptedFault {
    const char* service;
};

/// Replaces the platform of the test program for its lifetime. One at a time.
///
/// Files and settings live in memory, folders are fixed, everything else is answered by the
/// reference platform unless a setter below says otherwise. Outside the lifetime of an
/// instance every service is the reference platform's.
///
///     ScriptedPlatform platform;
///     platform.addFile(L"a.ini", "[S]\nx=1\n");
///     platform.failFileCall(2);
///
/// Threads: services may be called from any thread; script from one.
class ScriptedPlatform {
public:
    using Bytes = std::basic_string<char, std::char_traits<char>, UncountedAllocator<char>>;
    using WideBytes =
        std::basic_string<wchar_t, std::char_traits<wchar_t>, UncountedAllocator<wchar_t>>;

    ScriptedPlatform();
    ~ScriptedPlatform();
    ScriptedPlatform(const ScriptedPlatform&) = delete;
    ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;

    // Faults. The n-th call from now on fails, once; 0 takes the order back.

    /// The n-th allocation throws std::bad_alloc.
    void failAllocation(unsigned int n) { allocationFault_ = n, faultFired_ = false; }
    /// The n-th file call (open, size, read, write) fails: no file, size 0, false.
    void failFileCall(unsigned int n) { fileFault_ = n, faultFired_ = false; }
    /// The n-th call of the named operation ("createLock", "getFolder", ...) throws
    /// ScriptedFault.
    void failCall(const char* operation, unsigned int n = 1);
    /// Whether a fault has happened since the last order.
    bool faultFired() const { return faultFired_; }

    // Accounts, from the construction of this object on.

    long liveBlocks() const { return liveBlocks_; }
    unsigned long allocations() const { return allocations_; }

    /// The objects in the reclaim registry, in order of registration.
    std::vector<Reclaimable*> reclaimables() const
    {
        return {reclaimables_.begin(), reclaimables_.end()};
    }

    // Scripts.

    void setClock(double msecs) { clock_ = msecs, clockIsSet_ = true; }
    void advanceClock(double msecs) { setClock(clock_ + msecs); }
    /// From now on every reading of a clock that is set moves it on by this much.
    void tickClock(double msecs) { tick_ = msecs; }
    void setProcessors(int count) { processors_ = count; }
    void setThreadId(unsigned int id) { threadId_ = id; }
    void setNextUUID(const SimpleUUID& uuid) { uuid_ = uuid, uuidIsSet_ = true; }
    void setCallStack(std::vector<std::string> frames) { callStack_ = std::move(frames); }
    void setFolder(std::wstring folder) { folder_ = std::move(folder); }

    void addFile(const std::wstring& path, const std::string& content);
    bool hasFile(const std::wstring& path) const;
    std::string file(const std::wstring& path) const;
    /// The sizes of the write calls since construction, in order.
    const std::vector<unsigned int, UncountedAllocator<unsigned int>>& writes() const
    {
        return writes_;
    }

    void setSetting(int scope, const std::string& section, const std::string& key,
                    const std::string& value);
    std::string setting(int scope, const std::string& section, const std::string& key) const;

    // The log: one word a call, in the order of the calls, from logCalls() on. Allocations
    // do not show in it.

    void logCalls() { logging_ = true; }
    /// Adds a word of the test's own.
    void note(const std::string& word);
    /// The words so far, with one blank between them; starts the log anew.
    std::string takeLog();

private:
    friend struct ScriptedServices;

    void enter(const char* operation, const std::string& details = {});
    double readClock();
    bool fileFault();
    void countAllocation();

    std::mutex mutex_;
    unsigned int allocationFault_ = 0;
    unsigned int fileFault_ = 0;
    const char* faultyCall_ = nullptr;
    unsigned int callFault_ = 0;
    bool faultFired_ = false;
    long liveBlocks_ = 0;
    unsigned long allocations_ = 0;
    bool logging_ = false;
    Bytes log_;

    double clock_ = 0.0;
    bool clockIsSet_ = false;
    double tick_ = 0.0;
    std::vector<Reclaimable*, UncountedAllocator<Reclaimable*>> reclaimables_;
    int processors_ = -1;
    unsigned int threadId_ = 0;
    SimpleUUID uuid_ = {};
    bool uuidIsSet_ = false;
    std::vector<std::string> callStack_;
    std::wstring folder_ = L"/data/";
    template <class Key, class Value>
    using Map =
        std::map<Key, Value, std::less<Key>, UncountedAllocator<std::pair<const Key, Value>>>;
    Map<WideBytes, Bytes> files_;
    std::vector<unsigned int, UncountedAllocator<unsigned int>> writes_;
    Map<std::pair<int, Bytes>, Bytes> settings_;
};

/// Runs \p work with its first allocation failing, then with its second, and so on until it
/// completes; calls \p check after each failure. \p work starts from the same state each
/// time: let it build what it works on, or let \p check restore it.
/// \returns the number of failures met
template <class Work, class Check>
unsigned int failEachAllocation(ScriptedPlatform& platform, Work&& work, Check&& check)
{
    for (unsigned int n = 1;; ++n) {
        platform.failAllocation(n);
        try {
            work();
            platform.failAllocation(0);
            return n - 1;
        } catch (const std::bad_alloc&) {
            platform.failAllocation(0);
            check();
        }
    }
}
