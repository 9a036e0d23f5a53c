// testing/ScriptedPlatform.h - A platform that tests control.
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

/// Thrown by an operation that failCall() chose; deliberately not a std::exception.
struct ScriptedFault {
    const char* service; ///< the argument of failCall()
};

/// A platform with files and settings in memory and fixed folders. Everything else is forwarded
/// to the previous platform unless a setter below says otherwise.
///
///     ScriptedPlatform platform;
///     platform.addFile(L"a.ini", "[S]\nx=1\n");
///     platform.failFileCall(2);
///
/// Files are written in place, as the writes come: a commit (a write of 0 bytes) changes nothing,
/// but it can be made to fail and is logged.
/// Its own bookkeeping does not count as memory of the program.
/// Thread safety: services may be called from any thread; script from one. One object at a time.
class ScriptedPlatform : public PlatformProxy {
public:
    ScriptedPlatform();
    ScriptedPlatform(const ScriptedPlatform&) = delete;
    ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;
    ~ScriptedPlatform() override;

    // Faults: the n-th call from now on fails, only that one or all from there on. 0 cancels.

    /// Which calls fail.
    enum Times {
        Once,   ///< only that call
        ForEver ///< that call and all later ones
    };

    /// The n-th allocation throws std::bad_alloc.
    void failAllocation(unsigned int n, Times times = Once)
    {
        setOrder(allocationFault_, n, times);
    }
    /// The n-th file call (open, size, read, write, commit) fails: no file, size 0, false.
    void failFileCall(unsigned int n, Times times = Once) { setOrder(fileFault_, n, times); }
    /// The n-th call of the operation of this name ("createLock", "getFolder", "read", "commit",
    /// "save", ...) throws ScriptedFault.
    void failCall(const char* operation, unsigned int n = 1, Times times = Once);
    /// Returns whether a call has failed since the last of these orders.
    bool faultFired() const { return faultFired_; }

    // Counts, since the construction of this object.

    /// Blocks allocated minus blocks freed; negative if older blocks were freed.
    long liveBlocks() const { return liveBlocks_; }
    /// Allocations, including those that failed.
    unsigned long allocations() const { return allocations_; }
    /// Records the call stack of every allocation from now on, which makes allocations slow.
    void trackMemory() { tracking_ = true; }
    /// Lists the live blocks allocated since trackMemory(): for each call stack the number of
    /// blocks, their bytes and the frames, innermost first; most bytes first. Functions of the
    /// program have names if it is linked with -rdynamic.
    std::string liveMemory() const;

    /// Returns the registered Reclaimable objects in order of registration.
    std::vector<Reclaimable*> reclaimables() const;

    // Fixed results.

    /// Sets the clock to \p msecs and stops it.
    void setClock(double msecs)
    {
        clock_ = msecs;
        clockIsSet_ = true;
    }
    /// Advances the clock; one that was never set starts at 0.
    void advanceClock(double msecs) { setClock(clock_ + msecs); }
    /// Makes every reading of a clock that is set advance it by \p msecs.
    void tickClock(double msecs) { tick_ = msecs; }
    /// Sets the result of numProcessors(); negative forwards to the previous platform.
    void setProcessors(int count) { processors_ = count; }
    /// Sets the result of currentThreadId() on every thread; 0 forwards.
    void setThreadId(unsigned int id) { threadId_ = id; }
    /// Sets the result of every generateUUID() from now on.
    void setNextUUID(const SimpleUUID& uuid)
    {
        uuid_ = uuid;
        uuidIsSet_ = true;
    }
    /// Sets the frames of every call stack, innermost first; none forwards.
    void setCallStack(std::vector<std::string> frames) { callStack_ = std::move(frames); }
    /// Sets the result of getFolder() for every kind; initially "/data/".
    void setFolder(const std::wstring& folder) { folder_.assign(folder.data(), folder.size()); }

    /// Creates or replaces a file.
    void addFile(const std::wstring& path, const std::string& content);
    /// Returns whether there is a file with exactly this path.
    bool hasFile(const std::wstring& path) const;
    /// Returns the content of a file; empty if there is none.
    std::string file(const std::wstring& path) const;
    /// Returns the sizes of all writes since construction, without commits.
    std::vector<unsigned int> writes() const;

    /// Stores a value as if the host had.
    void setSetting(int scope, const std::string& section, const std::string& key,
                    const std::string& value);
    /// Returns the stored value; empty if there is none.
    std::string setting(int scope, const std::string& section, const std::string& key) const;

    // The log: one word per call except allocations.

    /// Starts logging.
    void logCalls() { logging_ = true; }
    /// Adds a word to the log.
    void note(const std::string& word);
    /// Returns the words so far, separated by blanks, and clears the log.
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
    friend struct ScriptedObjects;

    /// Allocates the bookkeeping without the platform's allocator.
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

    using SettingKey = std::pair<int, Text<char>>;

    static SettingKey settingKey(int scope, const std::string& section, const std::string& key);
    void setOrder(Order& order, unsigned int n, Times times);
    bool due(Order& order);
    bool fileFault() { return due(fileFault_); }
    void enter(const char* operation);
    template <class Details> void enter(const char* operation, Details&& details);
    void remember(void* block, unsigned long size, const void* caller);
    template <class Books, class Key> static std::string find(const Books& books, const Key& key);

    // Recursive: copying out of the books under the lock allocates.
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
    Map<SettingKey, Text<char>> settings_;
};

/// Runs \p work with its first allocation failing, then its second, and so on until it completes;
/// calls \p check after each failure. \p work must start from the same state each time: it builds
/// what it works on, or \p check restores it.
/// \returns the number of failures
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
