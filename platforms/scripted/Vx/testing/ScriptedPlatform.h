// testing/ScriptedPlatform.h - a platform that does what a test tells it to.
#pragma once

#include <Vx/testing/PlatformProxy.h>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

/// What a scripted service throws; deliberately no descendant of std::exception.
struct ScriptedFault {
    const char* service; ///< the name that failCall() was given
};

/// A platform whose files and settings live in memory, whose folders are fixed, and which
/// answers the rest like the platform before it unless a setter below says otherwise.
///
///     ScriptedPlatform platform;
///     platform.addFile(L"a.ini", "[S]\nx=1\n");
///     platform.failFileCall(2);
///
/// Its own books are kept outside its account of memory.
/// Threads: services may be called from any thread; script from one. One at a time.
class ScriptedPlatform : public PlatformProxy {
public:
    ScriptedPlatform();
    ~ScriptedPlatform() override;

    // Faults: the n-th call from now on fails, that one only or all from there on. 0 takes the
    // order back.

    /// How often an order to fail holds.
    enum Times {
        Once,   ///< that call only
        ForEver ///< that call and all behind it
    };

    /// The n-th allocation throws std::bad_alloc.
    void failAllocation(unsigned int n, Times times = Once) { give(allocationFault_, n, times); }
    /// The n-th file call (open, size, read, write) fails: no file, size 0, false.
    void failFileCall(unsigned int n, Times times = Once) { give(fileFault_, n, times); }
    /// The n-th call of the operation of this name ("createLock", "getFolder", "read", "save",
    /// ...) throws ScriptedFault.
    void failCall(const char* operation, unsigned int n = 1, Times times = Once);
    /// Whether a fault has happened since the last order.
    bool faultFired() const { return faultFired_; }

    // Accounts, from the construction of this object on.

    /// Blocks that the process allocated and has not given back. Negative when older ones went.
    long liveBlocks() const { return liveBlocks_; }
    /// Calls of the allocator, those that failed included.
    unsigned long allocations() const { return allocations_; }
    /// From now on the call stack of every allocation is kept, which makes it slow.
    void trackMemory() { tracking_ = true; }
    /// Who holds the blocks that were allocated since trackMemory(): for each call stack the
    /// count, the bytes and the frames, innermost first; the most bytes first. Empty: nobody.
    /// Functions of the program show by name when it is linked with -rdynamic.
    std::string liveMemory() const;

    /// The objects in the reclaim registry, in order of registration.
    std::vector<Reclaimable*> reclaimables() const;

    // Scripts.

    /// Sets the clock, which stands still from now on, in milliseconds.
    void setClock(double msecs) { clock_ = msecs, clockIsSet_ = true; }
    /// Moves the clock on; one that was never set starts from 0.
    void advanceClock(double msecs) { setClock(clock_ + msecs); }
    /// From now on every reading of a clock that is set moves it on by this much.
    void tickClock(double msecs) { tick_ = msecs; }
    /// What numProcessors() answers; negative asks the platform before.
    void setProcessors(int count) { processors_ = count; }
    /// What currentThreadId() answers on every thread; 0 asks the platform before.
    void setThreadId(unsigned int id) { threadId_ = id; }
    /// What generateUUID() answers from now on, every time.
    void setNextUUID(const SimpleUUID& uuid) { uuid_ = uuid, uuidIsSet_ = true; }
    /// The frames of every call stack, innermost first; none asks the platform before.
    void setCallStack(std::vector<std::string> frames) { callStack_ = std::move(frames); }
    /// What getFolder() answers for every kind; "/data/" at first.
    void setFolder(const std::wstring& folder) { folder_.assign(folder.data(), folder.size()); }

    /// Puts a file in place of the one that may be there.
    void addFile(const std::wstring& path, const std::string& content);
    /// Whether there is such a file, by the path as it was spelled.
    bool hasFile(const std::wstring& path) const;
    /// The content of a file; empty when there is none.
    std::string file(const std::wstring& path) const;
    /// The sizes of the write calls since construction, in order.
    std::vector<unsigned int> writes() const;

    /// Stores a value, as if the host had; scope 0 is the user's, 1 the machine's.
    void setSetting(int scope, const std::string& section, const std::string& key,
                    const std::string& value);
    /// The stored value; empty when there is none.
    std::string setting(int scope, const std::string& section, const std::string& key) const;

    // The log: one word a call, in the order of the calls, from logCalls() on. Allocations
    // do not show in it.

    /// Starts to log.
    void logCalls() { logging_ = true; }
    /// Adds a word of the test's own.
    void note(const std::string& word);
    /// The words so far, with one blank between them; starts the log anew.
    std::string takeLog();

    // The services.

    void* allocate(unsigned long size) override;
    void deallocate(void* block) override;
    void add(Reclaimable* object) override;
    void remove(Reclaimable* object) override;
    LightweightString<wchar_t> wideFromAscii(const char* text) override;
    LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) override;
    LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) override;
    double msecsNow() override;
    SimpleUUID generateUUID() override;
    void captureCallStack(std::vector<LightweightString<char>,
                                      StdAllocator<LightweightString<char>>>& frames) override;
    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override;
    wchar_t pathSeparator() override;
    Vx::Ptr<iLock> createLock(unsigned int flags) override;
    unsigned int currentThreadId() override;
    int numProcessors() override;
    LightweightString<wchar_t> getFolder(int kind) override;
    void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder) override;
    Vx::Ptr<iSettings> getSettings(int scope) override;

private:
    friend struct ScriptedObjects; // the files, locks and settings that it hands out

    /// Memory for the books, past the allocator.
    template <class T> struct Uncounted {
        using value_type = T;
        Uncounted() = default;
        template <class U> Uncounted(const Uncounted<U>&) {}
        T* allocate(std::size_t n)
        {
            void* block = std::malloc(n * sizeof(T));
            return block != nullptr ? static_cast<T*>(block) : throw std::bad_alloc();
        }
        void deallocate(T* block, std::size_t) { std::free(block); }
        template <class U> bool operator==(const Uncounted<U>&) const { return true; }
        template <class U> bool operator!=(const Uncounted<U>&) const { return false; }
    };
    template <class Ch> using Text = std::basic_string<Ch, std::char_traits<Ch>, Uncounted<Ch>>;
    template <class T> using List = std::vector<T, Uncounted<T>>;
    template <class Key, class Value>
    using Map = std::map<Key, Value, std::less<Key>, Uncounted<std::pair<const Key, Value>>>;
    struct Block {
        unsigned long size;
        Text<char> callStack;
    };
    struct Order {
        std::atomic<unsigned int> n = 0, calls = 0;
        Times times = Once;
    };

    void give(Order& order, unsigned int n, Times times);
    bool due(Order& order);
    bool fileFault() { return due(fileFault_); }
    void enter(const char* operation);
    template <class Details> void enter(const char* operation, Details&& details);
    void remember(void* block, unsigned long size, const void* caller);
    template <class Books, class Key> static std::string find(const Books& books, const Key& key);

    // Recursive: what is copied out of the books under the lock allocates.
    mutable std::recursive_mutex mutex_;
    Order allocationFault_, fileFault_, callFault_;
    const char* faultyCall_ = "";
    std::atomic<bool> faultFired_ = false;
    std::atomic<long> liveBlocks_ = 0;
    std::atomic<unsigned long> allocations_ = 0;
    std::atomic<bool> tracking_ = false;
    Map<void*, Block> blocks_;
    bool logging_ = false;
    Text<char> log_;

    double clock_ = 0.0;
    bool clockIsSet_ = false;
    double tick_ = 0.0;
    List<Reclaimable*> reclaimables_;
    int processors_ = -1;
    unsigned int threadId_ = 0;
    SimpleUUID uuid_ = {};
    bool uuidIsSet_ = false;
    std::vector<std::string> callStack_;
    Text<wchar_t> folder_;
    Map<Text<wchar_t>, Text<char>> files_;
    List<unsigned int> writes_;
    Map<std::pair<int, Text<char>>, Text<char>> settings_;
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
