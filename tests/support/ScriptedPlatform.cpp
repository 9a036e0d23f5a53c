#include "ScriptedPlatform.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <Vx/platform/iReclaimRegistry.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <Vx/platform/iSystemInfo.h>
#include <Vx/platform/iThreading.h>
#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <string_view>

namespace {

constinit ScriptedPlatform* active = nullptr;

// libOS.so, which stands behind this program in the order of symbol lookup.
iPlatformServices* reference()
{
    static iPlatformServices* const platform = [] {
        void* symbol = dlsym(RTLD_NEXT, "_Z2OSv");
        iPlatformServices* (*entry)() = nullptr;
        std::memcpy(&entry, &symbol, sizeof entry);
        return entry();
    }();
    return platform;
}

ScriptedPlatform::WideBytes wide(const LightweightString<wchar_t>& text)
{
    return ScriptedPlatform::WideBytes(text.c_str(), text.length());
}

std::string narrow(const LightweightString<char>& text)
{
    return std::string(text.c_str(), text.length());
}

ScriptedPlatform::Bytes bytes(const std::string& text)
{
    return ScriptedPlatform::Bytes(text.data(), text.size());
}

} // namespace

struct ScriptedServices {
    static void enter(const char* operation)
    {
        enter(operation, [] { return std::string(); });
    }
    // The details are only spelled out for a log: they allocate.
    template <class Details> static void enter(const char* operation, Details&& details)
    {
        if (active != nullptr)
            active->enter(operation, active->logging_ ? details() : std::string());
    }
    static ScriptedPlatform& script() { return *active; }

    struct Allocator final : iMemoryAllocator {
        void* allocate(unsigned long size) override
        {
            if (active != nullptr)
                active->countAllocation();
            void* block = reference()->memoryAllocator()->allocate(size);
            if (active != nullptr)
                __atomic_fetch_add(&active->liveBlocks_, 1, __ATOMIC_RELAXED);
            return block;
        }
        void deallocate(void* block) override
        {
            if (active != nullptr && block != nullptr)
                __atomic_fetch_sub(&active->liveBlocks_, 1, __ATOMIC_RELAXED);
            reference()->memoryAllocator()->deallocate(block);
        }
    };

    struct Registry final : iReclaimRegistry {
        void add(Reclaimable* object) override
        {
            enter("add");
            if (active != nullptr)
                active->reclaimables_.push_back(object);
            reference()->reclaimRegistry()->add(object);
        }
        void remove(Reclaimable* object) override
        {
            enter("remove");
            if (active != nullptr)
                std::erase(active->reclaimables_, object);
            reference()->reclaimRegistry()->remove(object);
        }
    };

    struct Utils final : iSystemUtils {
        LightweightString<wchar_t> wideFromAscii(const char* text) override
        {
            enter("wideFromAscii");
            return reference()->systemUtils()->wideFromAscii(text);
        }
        LightweightString<char> toUTF8(const LightweightString<wchar_t>& text) override
        {
            enter("toUTF8");
            return reference()->systemUtils()->toUTF8(text);
        }
        LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) override
        {
            enter("fromUTF8", [=] { return std::string(length == kUpToTerminator ? "(-1)" : ""); });
            return reference()->systemUtils()->fromUTF8(bytes, length);
        }
        double msecsNow() override
        {
            enter("msecsNow");
            return active != nullptr && active->clockIsSet_
                       ? active->readClock()
                       : reference()->systemUtils()->msecsNow();
        }
        SimpleUUID generateUUID() override
        {
            enter("generateUUID");
            return active != nullptr && active->uuidIsSet_
                       ? active->uuid_
                       : reference()->systemUtils()->generateUUID();
        }
        void captureCallStack(std::vector<LightweightString<char>,
                                          StdAllocator<LightweightString<char>>>& frames) override
        {
            enter("captureCallStack");
            if (active == nullptr || active->callStack_.empty())
                return reference()->systemUtils()->captureCallStack(frames);
            for (const std::string& frame : active->callStack_)
                frames.push_back(LightweightString<char>(frame));
        }
    };

    struct File final : iFile {
        explicit File(ScriptedPlatform::WideBytes path) : path(std::move(path)) {}
        ~File() override { enter("close"); }

        unsigned int size() override
        {
            enter("size");
            return script().fileFault() ? 0 : static_cast<unsigned int>(content().size());
        }
        bool read(void* buffer, unsigned int count) override
        {
            enter("read");
            if (script().fileFault() || count > content().size() - position)
                return false;
            std::memcpy(buffer, content().data() + position, count);
            position += count;
            return true;
        }
        bool write(const void* bytes, unsigned int count) override
        {
            enter("write");
            if (script().fileFault())
                return false;
            content().append(static_cast<const char*>(bytes), count);
            script().writes_.push_back(count);
            return true;
        }
        ScriptedPlatform::Bytes& content() { return script().files_[path]; }

        ScriptedPlatform::WideBytes path;
        std::size_t position = 0;
        unsigned int refCount = 0;
    };

    struct Files final : iFileSystem {
        Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                                int flags, int reserved) override
        {
            if (active == nullptr)
                return reference()->fileSystem()->openFile(path, access, disposition, flags,
                                                           reserved);
            enter("openFile", [&] {
                return "(" + std::to_string(access) + "," + std::to_string(disposition) + "," +
                       std::to_string(flags) + "," + std::to_string(reserved) + ")";
            });
            const bool forWriting = access == 2;
            if (active->fileFault() || path.empty() ||
                (!forWriting && active->files_.count(wide(path)) == 0))
                return {};
            if (forWriting)
                active->files_[wide(path)].clear();
            File* file = new File(wide(path));
            return Vx::Ptr<iFile>(&file->refCount, file);
        }
        wchar_t pathSeparator() override
        {
            enter("pathSeparator");
            return L'/';
        }
    };

    struct Lock final : iLock {
        explicit Lock(Vx::Ptr<iLock> real) : real(std::move(real)) {}
        void lock() override
        {
            enter("lock");
            real->lock();
        }
        bool tryLock() override
        {
            enter("tryLock");
            return real->tryLock();
        }
        void unlock() override
        {
            enter("unlock");
            real->unlock();
        }

        Vx::Ptr<iLock> real;
        unsigned int refCount = 0;
    };

    struct Threads final : iThreading {
        Vx::Ptr<iLock> createLock(unsigned int flags) override
        {
            enter("createLock", [&] { return "(" + std::to_string(flags) + ")"; });
            Vx::Ptr<iLock> real = reference()->threading()->createLock(flags);
            Lock* lock = new Lock(std::move(real));
            return Vx::Ptr<iLock>(&lock->refCount, lock);
        }
        unsigned int currentThreadId() override
        {
            enter("currentThreadId");
            return active != nullptr && active->threadId_ != 0
                       ? active->threadId_
                       : reference()->threading()->currentThreadId();
        }
    };

    struct Info final : iSystemInfo {
        int numProcessors() override
        {
            enter("numProcessors");
            return active != nullptr && active->processors_ >= 0
                       ? active->processors_
                       : reference()->systemInfo()->numProcessors();
        }
    };

    struct Settings final : iSettings {
        explicit Settings(int scope) : scope(scope) {}
        static std::string place(const LightweightString<char>& section,
                                 const LightweightString<char>& key)
        {
            return narrow(section) + "/" + narrow(key);
        }
        void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                      const LightweightString<char>& section) override
        {
            enter("setValue", [&] {
                return "(" + std::to_string(scope) + "," + place(section, key) + "=" +
                       narrow(value) + ")";
            });
            script().settings_[{scope, bytes(place(section, key))}] = bytes(narrow(value));
        }
        LightweightString<char> getValue(const LightweightString<char>& key,
                                         const LightweightString<char>& defaultValue,
                                         const LightweightString<char>& section) override
        {
            enter("getValue", [&] {
                return "(" + std::to_string(scope) + "," + place(section, key) + "," +
                       narrow(defaultValue) + ")";
            });
            const auto found = script().settings_.find({scope, bytes(place(section, key))});
            return found != script().settings_.end()
                       ? LightweightString<char>(std::string_view(found->second))
                       : defaultValue;
        }
        void save() override
        {
            enter("save", [&] { return "(" + std::to_string(scope) + ")"; });
        }

        int scope;
        unsigned int refCount = 0;
    };

    struct UserShell final : iShell {
        LightweightString<wchar_t> getFolder(int kind) override
        {
            if (active == nullptr)
                return reference()->shell()->getFolder(kind);
            enter("getFolder", [&] { return "(" + std::to_string(kind) + ")"; });
            return LightweightString<wchar_t>(active->folder_);
        }
        void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder) override
        {
            if (active == nullptr)
                return reference()->shell()->setOutputDiagnosticsFolder(folder);
            enter("setOutputDiagnosticsFolder",
                  [&] { return "(" + narrow(reference()->systemUtils()->toUTF8(folder)) + ")"; });
        }
        Vx::Ptr<iSettings> getSettings(int scope) override
        {
            if (active == nullptr)
                return reference()->shell()->getSettings(scope);
            enter("getSettings", [&] { return "(" + std::to_string(scope) + ")"; });
            Settings* settings = new Settings(scope);
            return Vx::Ptr<iSettings>(&settings->refCount, settings);
        }
    };
};

namespace {

constinit ScriptedServices::Allocator allocatorService;
constinit ScriptedServices::Registry registryService;
constinit ScriptedServices::Utils utilsService;
constinit ScriptedServices::Files filesService;
constinit ScriptedServices::Threads threadsService;
constinit ScriptedServices::Info infoService;
constinit ScriptedServices::UserShell shellService;

struct Root final : iPlatformServices {
    iMemoryAllocator* memoryAllocator() override { return &allocatorService; }
    iReclaimRegistry* reclaimRegistry() override { return &registryService; }
    iSystemUtils* systemUtils() override { return &utilsService; }
    iFileSystem* fileSystem() override { return &filesService; }
    iThreading* threading() override { return &threadsService; }
    iSystemInfo* systemInfo() override { return &infoService; }
    iShell* shell() override { return &shellService; }
};

constinit Root root;

} // namespace

iPlatformServices* OS() { return &root; }

ScriptedPlatform::ScriptedPlatform()
{
    if (std::exchange(active, this) != nullptr)
        std::abort(); // one at a time
}

ScriptedPlatform::~ScriptedPlatform() { active = nullptr; }

void ScriptedPlatform::failCall(const char* operation, unsigned int n)
{
    faultyCall_ = operation;
    callFault_ = n;
    faultFired_ = false;
}

bool ScriptedPlatform::hasFile(const std::wstring& path) const
{
    return files_.count(WideBytes(path.data(), path.size())) != 0;
}

void ScriptedPlatform::addFile(const std::wstring& path, const std::string& content)
{
    files_[WideBytes(path.data(), path.size())] = bytes(content);
}

std::string ScriptedPlatform::file(const std::wstring& path) const
{
    const auto found = files_.find(WideBytes(path.data(), path.size()));
    return found != files_.end() ? std::string(std::string_view(found->second)) : std::string();
}

void ScriptedPlatform::setSetting(int scope, const std::string& section, const std::string& key,
                                  const std::string& value)
{
    settings_[{scope, bytes(section + "/" + key)}] = bytes(value);
}

std::string ScriptedPlatform::setting(int scope, const std::string& section,
                                      const std::string& key) const
{
    const auto found = settings_.find({scope, bytes(section + "/" + key)});
    return found != settings_.end() ? std::string(std::string_view(found->second)) : std::string();
}

void ScriptedPlatform::note(const std::string& word)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!log_.empty())
        log_ += ' ';
    log_.append(word.data(), word.size());
}

std::string ScriptedPlatform::takeLog()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::string words(log_.data(), log_.size());
    log_.clear();
    return words;
}

void ScriptedPlatform::enter(const char* operation, const std::string& details)
{
    if (logging_)
        note(operation + details);
    if (callFault_ != 0 && std::string_view(operation) == faultyCall_ && --callFault_ == 0) {
        faultFired_ = true;
        throw ScriptedFault{faultyCall_};
    }
}

double ScriptedPlatform::readClock()
{
    if (tick_ == 0.0)
        return clock_;
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(clock_, clock_ + tick_);
}

bool ScriptedPlatform::fileFault()
{
    if (fileFault_ == 0 || --fileFault_ != 0)
        return false;
    faultFired_ = true;
    return true;
}

void ScriptedPlatform::countAllocation()
{
    __atomic_fetch_add(&allocations_, 1, __ATOMIC_RELAXED);
    unsigned int order = __atomic_load_n(&allocationFault_, __ATOMIC_RELAXED);
    if (order != 0 && __atomic_sub_fetch(&allocationFault_, 1u, __ATOMIC_RELAXED) == 0) {
        faultFired_ = true;
        throw std::bad_alloc();
    }
}
