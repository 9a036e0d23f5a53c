#include <Vx/testing/ScriptedPlatform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <string_view>

using Guard = std::lock_guard<std::recursive_mutex>;

namespace {

// What was handed out may outlive the platform, so it asks here.
constinit std::atomic<ScriptedPlatform*> active = nullptr;

// Set while this thread writes the books: what that allocates is nobody's.
constinit thread_local bool keepingBooks = false;

std::string narrow(const LightweightString<char>& text)
{
    return std::string(text.c_str(), text.length());
}

// Under which a setting is kept: another one for every pair, whatever stands in the texts.
std::string keyOf(const std::string& section, const std::string& key)
{
    return std::to_string(section.size()) + ':' + section + key;
}

} // namespace

struct ScriptedObjects {
    using Bytes = ScriptedPlatform::Text<char>;
    using Path = ScriptedPlatform::Text<wchar_t>;

    template <class... Details> static void enter(const char* operation, Details&&... details)
    {
        if (ScriptedPlatform* platform = active)
            platform->enter(operation, details...);
    }

    struct File final : iFile {
        File(ScriptedPlatform& platform, Path path) : platform(platform), path(std::move(path)) {}
        ~File() override { ScriptedObjects::enter("close"); }

        unsigned int size() override
        {
            platform.enter("size");
            const Guard guard(platform.mutex_);
            return platform.fileFault() ? 0 : static_cast<unsigned int>(content().size());
        }
        bool read(void* buffer, unsigned int count) override
        {
            platform.enter("read");
            const Guard guard(platform.mutex_);
            if (platform.fileFault() || position + count > content().size())
                return false;
            std::memcpy(buffer, content().data() + position, count);
            position += count;
            return true;
        }
        bool write(const void* bytes, unsigned int count) override
        {
            platform.enter(count != 0 ? "write" : "commit");
            const Guard guard(platform.mutex_);
            if (platform.fileFault())
                return false;
            if (count == 0)
                return true;
            content().append(static_cast<const char*>(bytes), count);
            platform.writes_.push_back(count);
            return true;
        }
        Bytes& content() { return platform.files_[path]; }

        ScriptedPlatform& platform;
        Path path;
        std::size_t position = 0;
        unsigned int refCount = 0;
    };

    struct Lock final : iLock {
        explicit Lock(Vx::Ptr<iLock> real) : real(std::move(real)) {}
        void lock() override
        {
            ScriptedObjects::enter("lock");
            real->lock();
        }
        bool tryLock() override
        {
            ScriptedObjects::enter("tryLock");
            return real->tryLock();
        }
        void unlock() override
        {
            ScriptedObjects::enter("unlock");
            real->unlock();
        }

        Vx::Ptr<iLock> real;
        unsigned int refCount = 0;
    };

    struct Settings final : iSettings {
        Settings(ScriptedPlatform& platform, int scope) : platform(platform), scope(scope) {}
        static std::string place(const LightweightString<char>& section,
                                 const LightweightString<char>& key)
        {
            return narrow(section) + "/" + narrow(key);
        }
        std::string before() const { return "(" + std::to_string(scope) + ","; }

        void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                      const LightweightString<char>& section) override
        {
            platform.enter("setValue", [&] {
                return before() + place(section, key) + "=" + narrow(value) + ")";
            });
            platform.setSetting(scope, narrow(section), narrow(key), narrow(value));
        }
        LightweightString<char> getValue(const LightweightString<char>& key,
                                         const LightweightString<char>& defaultValue,
                                         const LightweightString<char>& section) override
        {
            platform.enter("getValue", [&] {
                return before() + place(section, key) + "," + narrow(defaultValue) + ")";
            });
            const Guard guard(platform.mutex_);
            const auto found = platform.settings_.find(
                {scope, Bytes(std::string_view(keyOf(narrow(section), narrow(key))))});
            return found != platform.settings_.end()
                       ? LightweightString<char>(std::string_view(found->second))
                       : defaultValue;
        }
        void save() override
        {
            platform.enter("save", [&] { return "(" + std::to_string(scope) + ")"; });
        }

        ScriptedPlatform& platform;
        int scope;
        unsigned int refCount = 0;
    };
};

ScriptedPlatform::ScriptedPlatform() : folder_(L"/data/")
{
    if (active.exchange(this) != nullptr)
        std::abort(); // one at a time
}

ScriptedPlatform::~ScriptedPlatform()
{
    retire();
    active = nullptr;
}

// --- Faults and the log

void ScriptedPlatform::give(Order& order, unsigned int n, Times times)
{
    order.n = 0;
    order.calls = 0;
    order.times = times;
    faultFired_ = false;
    order.n = n;
}

bool ScriptedPlatform::due(Order& order)
{
    const unsigned int n = order.n;
    if (n == 0)
        return false;
    const unsigned int call = ++order.calls;
    if (call != n && (call < n || order.times == Once))
        return false;
    faultFired_ = true;
    return true;
}

void ScriptedPlatform::failCall(const char* operation, unsigned int n, Times times)
{
    faultyCall_ = operation;
    give(callFault_, n, times);
}

void ScriptedPlatform::enter(const char* operation)
{
    enter(operation, [] { return std::string(); });
}

// The details are only spelled out for a log: they allocate.
template <class Details> void ScriptedPlatform::enter(const char* operation, Details&& details)
{
    if (logging_)
        note(operation + details());
    if (std::string_view(operation) == faultyCall_ && due(callFault_))
        throw ScriptedFault{faultyCall_};
}

void ScriptedPlatform::note(const std::string& word)
{
    const Guard guard(mutex_);
    if (!log_.empty())
        log_ += ' ';
    log_ += std::string_view(word);
}

std::string ScriptedPlatform::takeLog()
{
    const Guard guard(mutex_);
    std::string words(log_.data(), log_.size());
    log_.clear();
    return words;
}

// --- Memory

void* ScriptedPlatform::allocate(unsigned long size)
{
    if (keepingBooks)
        return PlatformProxy::allocate(size);
    ++allocations_;
    if (due(allocationFault_))
        throw std::bad_alloc();
    void* block = PlatformProxy::allocate(size);
    ++liveBlocks_;
    if (tracking_)
        remember(block, size, __builtin_return_address(0));
    return block;
}

void ScriptedPlatform::deallocate(void* block)
{
    if (block != nullptr && !keepingBooks) {
        --liveBlocks_;
        if (tracking_) {
            const Guard guard(mutex_);
            blocks_.erase(block);
        }
    }
    PlatformProxy::deallocate(block);
}

void ScriptedPlatform::remember(void* block, unsigned long size, const void* caller)
{
    keepingBooks = true;
    {
        std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>> frames;
        PlatformProxy::captureCallStack(frames);
        // The frames above the caller are ours. Each ends with the offset of the call, which is
        // the byte before the return address.
        Dl_info module = {};
        dladdr(caller, &module);
        char end[32];
        std::snprintf(end, sizeof end, "+0x%tx)",
                      static_cast<const char*>(caller) - 1 -
                          static_cast<const char*>(module.dli_fbase));
        auto first = std::find_if(frames.begin(), frames.end(), [&](const auto& frame) {
            return std::strstr(frame.c_str(), end) != nullptr;
        });
        if (first == frames.end())
            first = frames.begin();
        Block entry{size, {}};
        for (; first != frames.end(); ++first)
            entry.callStack.append("    ").append(first->c_str()).append("\n");
        const Guard guard(mutex_);
        blocks_[block] = std::move(entry);
    }
    keepingBooks = false;
}

std::string ScriptedPlatform::liveMemory() const
{
    struct Holder {
        unsigned long bytes, blocks;
        std::string_view callStack;
    };
    const Guard guard(mutex_);
    Map<Text<char>, Holder> byStack;
    for (const auto& [address, block] : blocks_) {
        Holder& holder =
            byStack.try_emplace(block.callStack, Holder{0, 0, block.callStack}).first->second;
        holder.bytes += block.size;
        ++holder.blocks;
    }
    List<Holder> holders;
    for (const auto& [callStack, holder] : byStack)
        holders.push_back(holder);
    std::stable_sort(holders.begin(), holders.end(),
                     [](const Holder& a, const Holder& b) { return a.bytes > b.bytes; });
    std::string text;
    for (const Holder& holder : holders) {
        text +=
            std::to_string(holder.blocks) + " blocks, " + std::to_string(holder.bytes) + " bytes\n";
        text += holder.callStack;
    }
    return text;
}

void ScriptedPlatform::add(Reclaimable* object)
{
    enter("add");
    {
        const Guard guard(mutex_);
        reclaimables_.push_back(object);
    }
    PlatformProxy::add(object);
}

void ScriptedPlatform::remove(Reclaimable* object)
{
    enter("remove");
    {
        const Guard guard(mutex_);
        std::erase(reclaimables_, object);
    }
    PlatformProxy::remove(object);
}

std::vector<Reclaimable*> ScriptedPlatform::reclaimables() const
{
    const Guard guard(mutex_);
    return {reclaimables_.begin(), reclaimables_.end()};
}

// --- Text, clock, identifiers, call stacks

LightweightString<wchar_t> ScriptedPlatform::wideFromAscii(const char* text)
{
    enter("wideFromAscii");
    return PlatformProxy::wideFromAscii(text);
}

LightweightString<char> ScriptedPlatform::toUTF8(const LightweightString<wchar_t>& wide)
{
    enter("toUTF8");
    return PlatformProxy::toUTF8(wide);
}

LightweightString<wchar_t> ScriptedPlatform::fromUTF8(const char* bytes, unsigned int length)
{
    enter("fromUTF8", [=] { return std::string(length == kUpToTerminator ? "(-1)" : ""); });
    return PlatformProxy::fromUTF8(bytes, length);
}

double ScriptedPlatform::msecsNow()
{
    enter("msecsNow");
    if (!clockIsSet_)
        return PlatformProxy::msecsNow();
    if (tick_ == 0.0)
        return clock_;
    const Guard guard(mutex_);
    return std::exchange(clock_, clock_ + tick_);
}

SimpleUUID ScriptedPlatform::generateUUID()
{
    enter("generateUUID");
    return uuidIsSet_ ? uuid_ : PlatformProxy::generateUUID();
}

void ScriptedPlatform::captureCallStack(
    std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>& frames)
{
    enter("captureCallStack");
    if (callStack_.empty())
        return PlatformProxy::captureCallStack(frames);
    for (const std::string& frame : callStack_)
        frames.push_back(LightweightString<char>(frame));
}

// --- Files

Vx::Ptr<iFile> ScriptedPlatform::openFile(const LightweightString<wchar_t>& path, int access,
                                          int disposition, int flags, int reserved)
{
    enter("openFile", [&] {
        return "(" + std::to_string(access) + "," + std::to_string(disposition) + "," +
               std::to_string(flags) + "," + std::to_string(reserved) + ")";
    });
    const Text<wchar_t> key(path.c_str(), path.length());
    const Guard guard(mutex_);
    const bool forWriting = access == 2;
    if (fileFault() || key.empty() || (!forWriting && files_.count(key) == 0))
        return {};
    if (forWriting)
        files_[key].clear();
    auto* file = new ScriptedObjects::File(*this, key);
    return Vx::Ptr<iFile>(&file->refCount, file);
}

wchar_t ScriptedPlatform::pathSeparator()
{
    enter("pathSeparator");
    return L'/';
}

void ScriptedPlatform::addFile(const std::wstring& path, const std::string& content)
{
    const Guard guard(mutex_);
    files_[Text<wchar_t>(path.data(), path.size())] = std::string_view(content);
}

bool ScriptedPlatform::hasFile(const std::wstring& path) const
{
    const Guard guard(mutex_);
    return files_.count(Text<wchar_t>(path.data(), path.size())) != 0;
}

template <class Books, class Key>
std::string ScriptedPlatform::find(const Books& books, const Key& key)
{
    const auto found = books.find(key);
    return found != books.end() ? std::string(std::string_view(found->second)) : std::string();
}

std::string ScriptedPlatform::file(const std::wstring& path) const
{
    const Guard guard(mutex_);
    return find(files_, Text<wchar_t>(path.data(), path.size()));
}

std::vector<unsigned int> ScriptedPlatform::writes() const
{
    const Guard guard(mutex_);
    return {writes_.begin(), writes_.end()};
}

// --- Threads and the machine

Vx::Ptr<iLock> ScriptedPlatform::createLock(unsigned int flags)
{
    enter("createLock", [&] { return "(" + std::to_string(flags) + ")"; });
    auto* lock = new ScriptedObjects::Lock(PlatformProxy::createLock(flags));
    return Vx::Ptr<iLock>(&lock->refCount, lock);
}

unsigned int ScriptedPlatform::currentThreadId()
{
    enter("currentThreadId");
    return threadId_ != 0 ? threadId_ : PlatformProxy::currentThreadId();
}

int ScriptedPlatform::numProcessors()
{
    enter("numProcessors");
    return processors_ >= 0 ? processors_ : PlatformProxy::numProcessors();
}

// --- Folders and settings

LightweightString<wchar_t> ScriptedPlatform::getFolder(int kind)
{
    enter("getFolder", [&] { return "(" + std::to_string(kind) + ")"; });
    return LightweightString<wchar_t>(std::wstring_view(folder_));
}

void ScriptedPlatform::setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder)
{
    enter("setOutputDiagnosticsFolder",
          [&] { return "(" + narrow(PlatformProxy::toUTF8(folder)) + ")"; });
}

Vx::Ptr<iSettings> ScriptedPlatform::getSettings(int scope)
{
    enter("getSettings", [&] { return "(" + std::to_string(scope) + ")"; });
    auto* settings = new ScriptedObjects::Settings(*this, scope);
    return Vx::Ptr<iSettings>(&settings->refCount, settings);
}

void ScriptedPlatform::setSetting(int scope, const std::string& section, const std::string& key,
                                  const std::string& value)
{
    const Guard guard(mutex_);
    settings_[{scope, Text<char>(std::string_view(keyOf(section, key)))}] = std::string_view(value);
}

std::string ScriptedPlatform::setting(int scope, const std::string& section,
                                      const std::string& key) const
{
    const Guard guard(mutex_);
    return find(settings_, std::pair(scope, Text<char>(std::string_view(keyOf(section, key)))));
}
