// A platform that keeps files and settings in memory: a libOS.so that touches no disk. It keeps the
// contract and promises nothing more.
#include "Utf8.h"

#include <Vx/LightweightString.h>
#include <Vx/VxPtr.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <Vx/platform/iReclaimRegistry.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <Vx/platform/iSystemInfo.h>
#include <Vx/platform/iSystemUtils.h>
#include <Vx/platform/iThreading.h>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

std::string bytes(const Narrow& text) { return std::string(text.c_str(), text.length()); }

struct State {
    std::mutex mutex;
    std::map<std::wstring, std::shared_ptr<std::string>> files; // null until published
    std::map<std::tuple<int, std::string, std::string>, std::string> settings;
};

State& state()
{
    static State& state = *new State; // never destroyed: the last destructors may use it
    return state;
}

// Hands out a new object with a count of its own, which starts at 0.
template <class Interface> struct Counted : Interface {
    unsigned int count = 0;
};
template <class Object, class... Arguments> auto make(Arguments&&... arguments)
{
    auto* const object = new Object(std::forward<Arguments>(arguments)...);
    return Vx::Ptr(&object->count, object);
}

struct File final : Counted<iFile> {
    File(std::shared_ptr<std::string> content, std::shared_ptr<std::string>* target)
        : content(std::move(content)), target(target)
    {}
    ~File() override { File::write(nullptr, 0); }

    unsigned int size() override { return static_cast<unsigned int>(content->size()); }
    bool read(void* buffer, unsigned int byteCount) override
    {
        if (target != nullptr || byteCount > content->size() - position)
            return false;
        std::memcpy(buffer, content->data() + position, byteCount);
        position += byteCount;
        return true;
    }
    bool write(const void* buffer, unsigned int byteCount) override
    {
        if (target == nullptr || byteCount > UINT_MAX - content->size())
            return false;
        const std::lock_guard<std::mutex> guard(state().mutex);
        if (byteCount == 0)
            *target = content; // the commit
        else
            content->append(static_cast<const char*>(buffer), byteCount);
        return true;
    }

    const std::shared_ptr<std::string> content;
    std::shared_ptr<std::string>* const target; // where to publish; null to read
    std::size_t position = 0;
};

struct Lock final : Counted<iLock> {
    void lock() override { mutex.lock(); }
    bool tryLock() override { return mutex.try_lock(); }
    void unlock() override { mutex.unlock(); }
    std::recursive_mutex mutex;
};

struct Settings final : Counted<iSettings> {
    explicit Settings(int scope) : scope(scope) {}
    void setValue(const Narrow& key, const Narrow& value, const Narrow& section) override
    {
        const std::lock_guard<std::mutex> guard(state().mutex);
        state().settings[{scope, bytes(section), bytes(key)}] = bytes(value);
    }
    Narrow getValue(const Narrow& key, const Narrow& otherwise, const Narrow& section) override
    {
        const std::lock_guard<std::mutex> guard(state().mutex);
        const auto found = state().settings.find({scope, bytes(section), bytes(key)});
        return found != state().settings.end() ? Narrow(std::string_view(found->second))
                                               : otherwise;
    }
    void save() override {}
    const int scope;
};

class MemoryPlatform final : public iPlatformServices,
                             iMemoryAllocator,
                             iReclaimRegistry,
                             iSystemUtils,
                             iFileSystem,
                             iThreading,
                             iSystemInfo,
                             iShell {
    iMemoryAllocator* memoryAllocator() override { return this; }
    iReclaimRegistry* reclaimRegistry() override { return this; }
    iSystemUtils* systemUtils() override { return this; }
    iFileSystem* fileSystem() override { return this; }
    iThreading* threading() override { return this; }
    iSystemInfo* systemInfo() override { return this; }
    iShell* shell() override { return this; }

    void* allocate(unsigned long size) override
    {
        if (void* const block = std::malloc(size != 0 ? size : 1))
            return block;
        throw std::bad_alloc();
    }
    void deallocate(void* block) override { std::free(block); }

    void add(Reclaimable*) override {} // this platform never asks for memory back
    void remove(Reclaimable*) override {}

    Wide wideFromAscii(const char* text) override
    {
        Wide wide;
        for (; text != nullptr && *text != 0; ++text)
            wide += wchar_t(static_cast<unsigned char>(*text));
        return wide;
    }
    Narrow toUTF8(const Wide& wide) override
    {
        return Narrow(encodeUTF8({wide.c_str(), wide.length()}));
    }
    Wide fromUTF8(const char* text, unsigned int length) override
    {
        if (text == nullptr)
            return {};
        return Wide(decodeUTF8(length == kUpToTerminator ? std::string_view(text)
                                                         : std::string_view(text, length)));
    }
    double msecsNow() override
    {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration<double, std::milli>(now).count();
    }
    SimpleUUID generateUUID() override
    {
        SimpleUUID uuid;
        std::random_device random;
        for (unsigned char& byte : uuid.bytes)
            byte = static_cast<unsigned char>(random());
        return uuid;
    }
    void captureCallStack(std::vector<Narrow, StdAllocator<Narrow>>&) override {}

    Vx::Ptr<iFile> openFile(const Wide& path, int access, int, int, int) override
    {
        if (path.empty() || path.back() == L'/') // a folder
            return {};
        const std::lock_guard<std::mutex> guard(state().mutex);
        const std::wstring name(path.c_str(), path.length());
        if (access == 2)
            return make<File>(std::make_shared<std::string>(), &state().files[name]);
        const auto found = state().files.find(name);
        const bool published = found != state().files.end() && found->second;
        return published ? make<File>(found->second, nullptr) : Vx::Ptr<iFile>();
    }
    wchar_t pathSeparator() override { return L'/'; }

    Vx::Ptr<iLock> createLock(unsigned int) override { return make<Lock>(); }
    unsigned int currentThreadId() override
    {
        static std::atomic<unsigned int> last{0};
        thread_local const unsigned int id = ++last;
        return id;
    }
    int numProcessors() override { return 1; }

    Wide getFolder(int) override { return L"/"; }
    Vx::Ptr<iSettings> getSettings(int scope) override { return make<Settings>(scope); }
};

// Constant-initialised and never destroyed: the first block is asked for before any constructor
// has run, the last one is freed after every destructor.
MemoryPlatform platform;

} // namespace

iPlatformServices* OS() { return &platform; }
