// A platform with one fault, which the environment variable VX_BROKEN chooses from the table below:
// what platform-check must find. Loaded before the reference platform, to which it forwards the
// rest.
#include <Vx/Reclaimable.h>
#include <Vx/testing/PlatformProxy.h>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <pthread.h>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;
using Frames = std::vector<Narrow, StdAllocator<Narrow>>;

// A fault and the checks that must find it.
constexpr std::pair<const char*, const char*> kFaults[] = {
    {"no-service", "root.services"},
    {"misaligned", "memory.aligned"},
    {"overlapping", "memory.content"},
    {"zero-shared", "memory.distinct"},
    {"null-crashes", "memory.null"},
    {"null-when-exhausted", "memory.exhaustion"},
    {"threads-share", "memory.concurrent"},
    {"foreign-free", "memory.threads"},
    {"dead-in-child", "memory.fork"},
    {"dead-at-exit", "memory.early-and-late"},
    {"calls-back", "reclaim.registry"},
    {"ascii-signed", "text.ascii"},
    {"ascii-null", "text.null"},
    {"length-ignored", "text.lengths"},
    {"surrogate-passes", "text.no-code-points"},
    {"latin1", "text.scalars"},
    {"malformed-dropped", "text.malformed"},
    {"encode-cut", "text.zeros"},
    {"decode-cut", "text.zeros"},
    {"encode-loses-last", "text.sizes"},
    {"decode-loses-last", "text.sizes"},
    {"clock-backwards", "clock"},
    {"clock-seconds", "clock"},
    {"clock-stopped", "clock clock.steps"},
    {"clock-coarse", "clock.steps"},
    {"uuid-version", "uuid.bits"},
    {"uuid-repeats", "uuid.unique"},
    {"uuid-fork", "uuid.fork"},
    {"stack-clears", "call-stack"},
    {"stack-throws", "call-stack"},
    {"negative-processors", "processors"},
    {"no-processors", "processors.known"},
    {"lock-leaks", "lock.counted"},
    {"lock-null", "lock.flags"},
    {"lock-open", "lock.excludes"},
    {"try-takes", "lock.reentrant lock.try"},
    {"try-refuses", "lock.try"},
    {"unlock-all", "lock.reentrant"},
    {"owner-freed", "lock.owner-ends"},
    {"one-lock", "lock.independent"},
    {"thread-same", "thread-id thread-id.fork"},
    {"thread-zero", "thread-id"},
    {"file-leaks", "files.counted files.holders"},
    {"text-mode", "files.read"},
    {"short-read", "files.short"},
    {"size-left", "files.size"},
    {"one-position", "files.positions"},
    {"read-writes", "files.read-only"},
    {"write-loses-last", "files.write"},
    {"in-place", "files.publish disk.kill"},
    {"neighbour", "disk.mode disk.links disk.exception disk.litter"},
    {"commit-fails", "files.commit"},
    {"commit-lies", "disk.missing-folder"},
    {"nowhere", "files.commit disk.files"},
    {"missing-opens", "files.none"},
    {"folder-opens", "files.none"},
    {"names-7-bit", "files.names"},
    {"names-16-bit", "files.names"},
    {"names-cut", "files.zeros"},
    {"one-thread", "files.threads settings.threads"},
    {"huge-opens", "disk.size"},
    {"separator", "files.separator disk.separator"},
    {"folder-open-end", "folders"},
    {"folder-missing", "folders.exists disk.folder"},
    {"diagnostics-throws", "folders.diagnostics"},
    {"one-section", "settings.keys"},
    {"keys-folded", "settings.keys"},
    {"keys-cut", "settings.keys"},
    {"one-scope", "settings.scopes"},
    {"values-trimmed", "settings.bytes"},
    {"values-cut", "settings.bytes"},
    {"values-forgotten", "settings.values"},
    {"child-forgets", "disk.settings disk.settings.unsaved disk.settings.processes"},
    {"empty-missing", "settings.defaults"},
    {"save-forgets", "settings.save"},
};

const char* chosen = "";
bool has(std::string_view fault) { return chosen == fault; }

pid_t firstProcess = 0;
bool exiting = false;
thread_local long balance = 0; // blocks that this thread has allocated and not freed
bool isChild() { return getpid() != firstProcess; }
bool isMain() { return gettid() == getpid(); }
bool isServed() { return isMain() || !has("one-thread"); }

template <class Object, class... Arguments> auto made(Arguments&&... arguments)
{
    Object* const object = new Object(std::forward<Arguments>(arguments)...);
    return Vx::Ptr<typename Object::Interface>(&object->refCount, object);
}

// Forwards to an object of the reference platform, if there is one.
template <class I> struct Faulty : I {
    using Interface = I;
    explicit Faulty(Vx::Ptr<I> real) : real(std::move(real)) {}
    Vx::Ptr<I> real;
    unsigned int refCount = 0;
};

struct Lock final : Faulty<iLock> {
    explicit Lock(Vx::Ptr<iLock> real) : Faulty(std::move(real)) { refCount = has("lock-leaks"); }
    void lock() override
    {
        if (has("lock-open"))
            return;
        real->lock();
        ++depth;
        thread_local struct Owner { // gives the lock up at the end of the thread
            ~Owner() { held != nullptr&& has("owner-freed") ? held->real->unlock() : void(); }
            Lock* held = nullptr;
        } owner;
        owner.held = this;
    }
    bool tryLock() override
    {
        return has("try-takes") || (!has("try-refuses") && real->tryLock() && ++depth);
    }
    void unlock() override
    {
        for (int n = has("unlock-all") ? depth : 1; n > 0 && depth > 0; --n, --depth)
            real->unlock();
    }
    int depth = 0; // of the holder
};

// Writes as many programs do: over the file itself, or to a neighbour that is then renamed.
struct NaiveFile final : Faulty<iFile> {
    NaiveFile(const std::string& path, const char* suffix)
        : Faulty({}), path(path), written(path + suffix), stream(std::fopen(written.c_str(), "wb"))
    {}
    ~NaiveFile() override
    {
        if (stream != nullptr && std::fclose(stream) == 0 && written != path)
            std::rename(written.c_str(), path.c_str());
    }
    unsigned int size() override { return 0; }
    bool read(void*, unsigned int) override { return false; }
    bool write(const void* bytes, unsigned int count) override
    {
        return std::fwrite(bytes, 1, count, stream) == count;
    }
    std::string path, written;
    std::FILE* stream;
};

struct File final : Faulty<iFile> {
    File(Vx::Ptr<iFile> real, Wide path) : Faulty(std::move(real)), path(std::move(path))
    {
        refCount = has("file-leaks");
    }
    unsigned int size() override { return real->size() - (has("size-left") ? position : 0); }
    bool read(void* buffer, unsigned int count) override
    {
        position += count;
        const bool full = real->read(buffer, count);
        if (has("text-mode") && full)
            std::replace(static_cast<char*>(buffer), static_cast<char*>(buffer) + count, '\r', ' ');
        return full || has("short-read");
    }
    bool write(const void* bytes, unsigned int count) override
    {
        if (has("read-writes"))
            return NaiveFile(narrow(path), "").write(bytes, count);
        if (count == 0 && has("commit-fails"))
            return false;
        const bool loses = has("write-loses-last") && count > 1 << 20;
        return real->write(bytes, count - loses) || (count == 0 && has("commit-lies"));
    }
    static std::string narrow(const Wide& path) { return std::string(path.begin(), path.end()); }
    Wide path;
    unsigned int position = 0;
};

struct Settings final : Faulty<iSettings> {
    using Faulty::Faulty;
    static Narrow place(const Narrow& key)
    {
        Narrow changed(has("keys-cut") ? Narrow(key.c_str()) : key);
        for (char& c : std::span(changed.mutableChars(), changed.length()))
            c = has("keys-folded") && c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        return changed;
    }
    void setValue(const Narrow& key, const Narrow& value, const Narrow& section) override
    {
        Narrow stored(has("values-cut") ? Narrow(value.c_str()) : value);
        while (has("values-trimmed") && !stored.empty() && stored.back() == ' ')
            stored.resizeFor(stored.length() - 1);
        const bool forgets = has("values-forgotten") || (has("child-forgets") && isChild());
        if (!forgets && isServed())
            real->setValue(place(key), stored, has("one-section") ? "" : section);
    }
    Narrow getValue(const Narrow& key, const Narrow& otherwise, const Narrow& section) override
    {
        if (saved)
            return otherwise;
        const Narrow found =
            real->getValue(place(key), otherwise, has("one-section") ? "" : section);
        return has("empty-missing") && found.empty() ? otherwise : found;
    }
    void save() override
    {
        real->save();
        saved = has("save-forgets");
    }
    static inline bool saved = false;
};

alignas(16) char sharedBlock[4096];
std::atomic<unsigned int> calls = 0;

struct Platform final : PlatformProxy {
    using Base = PlatformProxy;

    iSystemInfo* systemInfo() override { return has("no-service") ? nullptr : this; }

    static bool isShared(unsigned long size)
    {
        return (has("zero-shared") && size == 0) ||
               (has("threads-share") && !isMain() && size == 150) ||
               (has("overlapping") && size > 1100 && size < 1200);
    }
    void* allocate(unsigned long size) override
    try {
        if (has("dead-in-child") && isChild())
            std::abort();
        if (isShared(size))
            return sharedBlock;
        ++balance;
        if (has("misaligned") && size < 1ul << 40)
            return static_cast<char*>(Base::allocate(size + 8)) + 8;
        return Base::allocate(size);
    } catch (...) {
        if (!has("null-when-exhausted"))
            throw;
        return nullptr;
    }
    void deallocate(void* block) override
    {
        if ((block == nullptr && has("null-crashes")) || (has("dead-at-exit") && exiting) ||
            (has("foreign-free") && !isMain() && --balance < -10))
            std::abort();
        // Blocks from before the fault are aligned.
        const bool moved = reinterpret_cast<std::uintptr_t>(block) % 16 == 8;
        if (block != sharedBlock)
            Base::deallocate(moved && has("misaligned") ? static_cast<char*>(block) - 8 : block);
    }
    void add(Reclaimable* object) override
    {
        has("calls-back") ? void(object->reclaimPriority()) : Base::add(object);
    }

    Wide wideFromAscii(const char* text) override
    {
        Wide wide = Base::wideFromAscii(text == nullptr && has("ascii-null") ? "null" : text);
        for (unsigned int i = 0; has("ascii-signed") && i < wide.length(); ++i)
            wide.mutableChars()[i] = static_cast<signed char>(wide[i]);
        return wide;
    }
    Narrow toUTF8(const Wide& wide) override
    {
        const bool surrogate = wide.length() == 1 && (wide[0] & ~0x7FF) == 0xD800;
        if (surrogate && has("surrogate-passes"))
            return "\xED\xA0\x80";
        if (has("encode-loses-last") && wide.length() > 4096)
            return Base::toUTF8(Wide(wide.c_str(), wide.length() - 1));
        return Base::toUTF8(has("encode-cut") ? Wide(wide.c_str()) : wide);
    }
    Wide fromUTF8(const char* bytes, unsigned int length) override
    {
        if (has("decode-cut") && bytes != nullptr)
            length = static_cast<unsigned int>(strnlen(bytes, length));
        Wide wide = Base::fromUTF8(bytes, has("length-ignored") ? kUpToTerminator : length);
        if (has("latin1") && wide.length() == 1 && wide[0] > 0x7F)
            return Base::wideFromAscii(bytes);
        if (has("decode-loses-last") && wide.length() > 4096)
            wide.resizeFor(wide.length() - 1);
        if (!has("malformed-dropped"))
            return wide;
        Wide kept;
        for (const wchar_t c : wide)
            c != 0xFFFD ? kept.push_back(c) : void();
        return kept;
    }

    double msecsNow() override
    {
        const double now = has("clock-stopped") ? 1.0 : Base::msecsNow();
        if (has("clock-backwards") && ++calls % 1000 == 0)
            return now - 50;
        if (has("clock-coarse"))
            return std::floor(now / 10) * 10;
        return has("clock-seconds") ? now / 1000 : now;
    }
    SimpleUUID generateUUID() override
    {
        SimpleUUID uuid = has("uuid-fork") ? SimpleUUID() : Base::generateUUID();
        if (has("uuid-version"))
            uuid.bytes[7] = static_cast<unsigned char>(0x10 | (uuid.bytes[7] & 0x0F));
        if (has("uuid-repeats")) {
            std::memset(uuid.bytes, 0, 7);
            std::memset(uuid.bytes + 9, 0, 7);
        }
        if (has("uuid-fork")) {
            const unsigned int number = ++calls;
            std::memcpy(uuid.bytes, &number, sizeof number);
        }
        return uuid;
    }
    void captureCallStack(Frames& frames) override
    {
        if (has("stack-throws"))
            throw std::bad_alloc();
        has("stack-clears") ? frames.clear() : Base::captureCallStack(frames);
    }

    Vx::Ptr<iLock> createLock(unsigned int flags) override
    {
        static const Vx::Ptr<iLock> one = Base::createLock(0);
        if (has("lock-null") && flags != 0)
            return {};
        return has("one-lock") ? one : made<Lock>(Base::createLock(flags));
    }
    unsigned int currentThreadId() override
    {
        if (has("thread-zero") && !isMain())
            return 0;
        return has("thread-same") ? 1 : Base::currentThreadId();
    }
    int numProcessors() override
    {
        return has("no-processors") ? 0 : has("negative-processors") ? -1 : Base::numProcessors();
    }

    Vx::Ptr<iFile> openFile(const Wide& path, int access, int disposition, int flags,
                            int reserved) override
    {
        const std::string name = Base::toUTF8(path).c_str();
        if (access == 2 && (has("in-place") || has("neighbour")))
            return made<NaiveFile>(name, has("in-place") ? "" : ".tmp");
        if (access == 1 && has("one-position")) {
            static const Vx::Ptr<iFile> only = Base::openFile(path, 1, 0, 1, 0);
            return only;
        }
        if (access == 1 && has("missing-opens"))
            std::fclose(std::fopen(name.c_str(), "ab"));
        if (!isServed())
            return {};
        Wide opened(has("names-cut") ? Wide(path.c_str()) : path);
        const bool folder = has("folder-opens") && !path.empty() && path.back() == L'/';
        if (folder || (access == 2 && has("nowhere")))
            opened = L"/dev/null";
        const int kept = has("names-7-bit") ? 0x7F : has("names-16-bit") ? 0xFFFF : -1;
        for (wchar_t& c : std::span(opened.mutableChars(), opened.length()))
            c &= kept;
        const Vx::Ptr<iFile> file = Base::openFile(opened, access, disposition, flags, reserved);
        struct stat status = {};
        if (has("huge-opens") && stat(name.c_str(), &status) == 0 && status.st_size >> 32 != 0)
            return Base::openFile(L"/proc/self/exe", 1, 0, 1, 0);
        return file ? made<File>(file, opened) : file;
    }
    wchar_t pathSeparator() override { return has("separator") ? L'\\' : Base::pathSeparator(); }

    Wide getFolder(int kind) override
    {
        Wide folder = Base::getFolder(kind);
        if (has("folder-missing"))
            folder += L"nowhere/";
        return has("folder-open-end") ? folder.resizeFor(folder.length() - 1) : folder;
    }
    void setOutputDiagnosticsFolder(const Wide& folder) override
    {
        if (has("diagnostics-throws"))
            throw std::runtime_error("no such folder");
        Base::setOutputDiagnosticsFolder(folder);
    }
    Vx::Ptr<iSettings> getSettings(int scope) override
    {
        return made<Settings>(Base::getSettings(has("one-scope") ? 0 : scope));
    }
};

// In the processes that check, not in the one that starts them. That one lists the table if
// VX_BROKEN says so.
[[gnu::constructor]] void begin(int, char** arguments, char**)
{
    const char* const fault = std::getenv("VX_BROKEN");
    if (fault == nullptr)
        return;
    if (fault == std::string_view("list")) {
        for (const auto& [name, checks] : kFaults)
            std::printf("fault %s %s\n", name, checks);
    } else if (std::string_view(arguments[1]) == "--child") {
        chosen = fault;
        firstProcess = getpid();
        // In a child, so that it comes before the other destructors.
        pthread_atfork(nullptr, nullptr, [] { std::atexit([] { exiting = true; }); });
        alignas(Platform) static char place[sizeof(Platform)];
        new (place) Platform; // never destroyed
    }
}

} // namespace
