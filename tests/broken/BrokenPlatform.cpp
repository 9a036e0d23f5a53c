// A platform with one fault, which the environment variable VX_BROKEN chooses from the table below:
// what platform-check must find. Loaded before the reference platform, to which it forwards the
// rest.
#include <Vx/testing/PlatformProxy.h>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace {

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;
using Frames = std::vector<Narrow, StdAllocator<Narrow>>;

// A fault and the checks that must find it.
constexpr std::pair<const char*, const char*> kFaults[] = {
    {"misaligned", "memory.aligned"},
    {"zero-shared", "memory.distinct"},
    {"null-crashes", "memory.null"},
    {"null-when-exhausted", "memory.exhaustion"},
    {"ascii-signed", "text.ascii"},
    {"length-ignored", "text.lengths"},
    {"surrogate-passes", "text.no-code-points"},
    {"latin1", "text.scalars"},
    {"malformed-dropped", "text.malformed"},
    {"clock-backwards", "clock"},
    {"clock-coarse", "clock"},
    {"clock-seconds", "clock"},
    {"uuid-version", "uuid.bits"},
    {"uuid-repeats", "uuid.unique"},
    {"uuid-fork", "uuid.fork"},
    {"stack-clears", "call-stack"},
    {"no-processors", "processors"},
    {"lock-open", "lock.excludes"},
    {"try-lies", "lock.reentrant"},
    {"one-lock", "lock.independent"},
    {"thread-same", "thread-id thread-id.fork"},
    {"in-place", "files.replace"},
    {"neighbour", "files.mode files.links files.exception files.kill"},
    {"short-read", "files.read"},
    {"commit-lies", "files.commit"},
    {"commit-nowhere", "files.commit"},
    {"missing-opens", "files.none"},
    {"names-truncated", "files.names"},
    {"names-cut", "files.names"},
    {"separator", "files.separator"},
    {"folder-open-end", "folders"},
    {"one-section", "settings.values"},
    {"one-scope", "settings.scopes"},
    {"values-trimmed", "settings.bytes"},
    {"values-forgotten", "settings.bytes"},
};

const char* chosen = "";
bool has(std::string_view fault) { return chosen == fault; }

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
    using Faulty::Faulty;
    void lock() override { real ? real->lock() : void(); }
    bool tryLock() override { return true; }
    void unlock() override { real ? real->unlock() : void(); }
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

// Fails like the real file, or claims success where it should not.
struct LyingFile final : Faulty<iFile> {
    using Faulty::Faulty;
    unsigned int size() override { return real->size(); }
    bool read(void* buffer, unsigned int count) override
    {
        return real->read(buffer, count) || has("short-read");
    }
    bool write(const void* bytes, unsigned int count) override
    {
        return real->write(bytes, count) || (count == 0 && has("commit-lies"));
    }
};

struct Settings final : Faulty<iSettings> {
    using Faulty::Faulty;
    void setValue(const Narrow& key, const Narrow& value, const Narrow& section) override
    {
        Narrow stored(value);
        while (has("values-trimmed") && !stored.empty() && stored.back() == ' ')
            stored.resizeFor(stored.length() - 1);
        if (!has("values-forgotten"))
            real->setValue(key, stored, has("one-section") ? "" : section);
    }
    Narrow getValue(const Narrow& key, const Narrow& otherwise, const Narrow& section) override
    {
        return real->getValue(key, otherwise, has("one-section") ? "" : section);
    }
    void save() override { real->save(); }
};

char sharedBlock = 0;
unsigned int calls = 0;

struct Platform final : PlatformProxy {
    using Base = PlatformProxy;

    void* allocate(unsigned long size) override
    try {
        if (has("zero-shared") && size == 0)
            return &sharedBlock;
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
        if (block == nullptr && has("null-crashes"))
            std::abort();
        // Blocks from before the fault are aligned.
        const bool moved = reinterpret_cast<std::uintptr_t>(block) % 16 == 8;
        if (block != &sharedBlock)
            Base::deallocate(moved && has("misaligned") ? static_cast<char*>(block) - 8 : block);
    }

    Wide wideFromAscii(const char* text) override
    {
        Wide wide = Base::wideFromAscii(text);
        for (unsigned int i = 0; has("ascii-signed") && i < wide.length(); ++i)
            wide.mutableChars()[i] = static_cast<signed char>(wide[i]);
        return wide;
    }
    Narrow toUTF8(const Wide& wide) override
    {
        const bool surrogate = wide.length() == 1 && (wide[0] & ~0x7FF) == 0xD800;
        return surrogate && has("surrogate-passes") ? Narrow("\xED\xA0\x80") : Base::toUTF8(wide);
    }
    Wide fromUTF8(const char* bytes, unsigned int length) override
    {
        const Wide wide = Base::fromUTF8(bytes, has("length-ignored") ? kUpToTerminator : length);
        if (has("latin1") && wide.length() == 1 && wide[0] > 0x7F)
            return Base::wideFromAscii(bytes);
        if (!has("malformed-dropped"))
            return wide;
        Wide kept;
        for (const wchar_t c : wide)
            if (c != 0xFFFD)
                kept += c;
        return kept;
    }

    double msecsNow() override
    {
        const double now = Base::msecsNow();
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
        if (has("uuid-fork"))
            std::memcpy(uuid.bytes, &++calls, sizeof calls);
        return uuid;
    }
    void captureCallStack(Frames& frames) override
    {
        has("stack-clears") ? frames.clear() : Base::captureCallStack(frames);
    }

    Vx::Ptr<iLock> createLock(unsigned int flags) override
    {
        if (has("one-lock")) {
            static const Vx::Ptr<iLock> one = Base::createLock(0);
            return one;
        }
        if (has("lock-open"))
            return made<Lock>(Vx::Ptr<iLock>());
        return has("try-lies") ? made<Lock>(Base::createLock(flags)) : Base::createLock(flags);
    }
    unsigned int currentThreadId() override
    {
        return has("thread-same") ? 1 : Base::currentThreadId();
    }
    int numProcessors() override { return has("no-processors") ? 0 : Base::numProcessors(); }

    Vx::Ptr<iFile> openFile(const Wide& path, int access, int disposition, int flags,
                            int reserved) override
    {
        const std::string name = Base::toUTF8(path).c_str();
        if (access == 2 && (has("in-place") || has("neighbour")))
            return made<NaiveFile>(name, has("in-place") ? "" : ".tmp");
        if (access == 1 && has("missing-opens"))
            std::fclose(std::fopen(name.c_str(), "ab"));
        Wide opened(path);
        if (access == 2 && has("commit-nowhere"))
            opened = L"/dev/null";
        if (has("names-cut"))
            opened = path.c_str();
        for (unsigned int i = 0; has("names-truncated") && i < opened.length(); ++i)
            opened.mutableChars()[i] &= 0x7F;
        const Vx::Ptr<iFile> file = Base::openFile(opened, access, disposition, flags, reserved);
        const bool lies = has("short-read") || has("commit-lies");
        return file && lies ? made<LyingFile>(file) : file;
    }
    wchar_t pathSeparator() override { return has("separator") ? L'\\' : Base::pathSeparator(); }

    Wide getFolder(int kind) override
    {
        Wide folder = Base::getFolder(kind);
        return has("folder-open-end") ? folder.resizeFor(folder.length() - 1) : folder;
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
        alignas(Platform) static char place[sizeof(Platform)];
        new (place) Platform; // never destroyed
    }
}

} // namespace
