// A platform with one fault, chosen by the environment variable VX_BROKEN: what platform-check
// must find. Loaded ahead of the reference platform, to which it hands on everything else.
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

std::string_view chosen;

bool broken(std::string_view fault) { return fault == chosen; }

struct Lock final : iLock {
    explicit Lock(Vx::Ptr<iLock> real) : real(std::move(real)) {}
    void lock() override
    {
        if (!broken("lock-open"))
            real->lock();
    }
    bool tryLock() override { return broken("try-lies") || broken("lock-open") || real->tryLock(); }
    void unlock() override
    {
        if (!broken("lock-open"))
            real->unlock();
    }

    Vx::Ptr<iLock> real;
    unsigned int refCount = 0;
};

// Writes as many programs do: over the file itself, or into a neighbour that is renamed.
struct NaiveFile final : iFile {
    explicit NaiveFile(const std::string& path)
        : path(path),
          written(path + (broken("neighbour") ? ".tmp" : "")),
          stream(std::fopen(written.c_str(), "wb"))
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
    unsigned int refCount = 0;
};

struct ShortReadFile final : iFile {
    explicit ShortReadFile(Vx::Ptr<iFile> real) : real(std::move(real)) {}
    unsigned int size() override { return real->size(); }
    bool read(void* buffer, unsigned int count) override { return real->read(buffer, count), true; }
    bool write(const void* bytes, unsigned int count) override { return real->write(bytes, count); }

    Vx::Ptr<iFile> real;
    unsigned int refCount = 0;
};

struct Settings final : iSettings {
    using Text = LightweightString<char>;

    explicit Settings(Vx::Ptr<iSettings> real) : real(std::move(real)) {}
    void setValue(const Text& key, const Text& value, const Text& section) override
    {
        Text stored(value);
        while (broken("values-trimmed") && !stored.empty() && stored.back() == ' ')
            stored.resizeFor(stored.length() - 1);
        real->setValue(key, stored, broken("one-section") ? "" : section);
    }
    Text getValue(const Text& key, const Text& defaultValue, const Text& section) override
    {
        return real->getValue(key, defaultValue, broken("one-section") ? "" : section);
    }
    void save() override
    {
        if (!broken("save-forgets"))
            real->save();
    }

    Vx::Ptr<iSettings> real;
    unsigned int refCount = 0;
};

template <class Object, class... Arguments> Vx::Ptr<Object> made(Arguments&&... arguments)
{
    Object* const object = new Object(std::forward<Arguments>(arguments)...);
    return Vx::Ptr<Object>(&object->refCount, object);
}

struct Platform final : PlatformProxy {
    void* allocate(unsigned long size) override
    {
        if (broken("zero-shared") && size == 0)
            return &shared;
        if (broken("misaligned") && size < (1ul << 40))
            return static_cast<char*>(PlatformProxy::allocate(size + 8)) + 8;
        try {
            return PlatformProxy::allocate(size);
        } catch (...) {
            if (broken("null-when-exhausted"))
                return nullptr;
            throw;
        }
    }
    void deallocate(void* block) override
    {
        if (broken("null-crashes") && block == nullptr)
            std::abort();
        // Blocks of the time before the fault are aligned.
        if (broken("misaligned") && reinterpret_cast<std::uintptr_t>(block) % 16 == 8)
            block = static_cast<char*>(block) - 8;
        if (block != &shared)
            PlatformProxy::deallocate(block);
    }

    LightweightString<wchar_t> wideFromAscii(const char* text) override
    {
        LightweightString<wchar_t> wide = PlatformProxy::wideFromAscii(text);
        if (broken("ascii-signed"))
            for (unsigned int i = 0; i < wide.length(); ++i)
                wide.mutableChars()[i] = static_cast<signed char>(wide[i]);
        return wide;
    }
    LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) override
    {
        if (broken("surrogate-passes") && wide.length() == 1 && (wide[0] & ~0x7FF) == 0xD800)
            return "\xED\xA0\x80";
        return PlatformProxy::toUTF8(wide);
    }
    LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) override
    {
        const LightweightString<wchar_t> wide =
            PlatformProxy::fromUTF8(bytes, broken("length-ignored") ? kUpToTerminator : length);
        if (broken("latin1") && wide.length() == 1 && wide[0] > 0x7F)
            return PlatformProxy::wideFromAscii(bytes);
        if (!broken("malformed-dropped"))
            return wide;
        LightweightString<wchar_t> kept;
        for (wchar_t c : wide)
            if (c != 0xFFFD)
                kept += c;
        return kept;
    }
    double msecsNow() override
    {
        const double now = PlatformProxy::msecsNow();
        if (broken("clock-backwards") && ++readings % 1000 == 0)
            return now - 50;
        if (broken("clock-seconds"))
            return now / 1000;
        return broken("clock-coarse") ? std::floor(now / 10) * 10 : now;
    }
    SimpleUUID generateUUID() override
    {
        SimpleUUID uuid = PlatformProxy::generateUUID();
        if (broken("uuid-version"))
            uuid.bytes[7] = static_cast<unsigned char>(0x10 | (uuid.bytes[7] & 0x0F));
        if (broken("uuid-repeats")) {
            std::memset(uuid.bytes, 0, 7);
            std::memset(uuid.bytes + 9, 0, 7);
        }
        if (broken("uuid-fork")) {
            std::memset(uuid.bytes, 0, 16);
            ++readings;
            std::memcpy(uuid.bytes, &readings, sizeof readings);
        }
        return uuid;
    }
    void captureCallStack(std::vector<LightweightString<char>,
                                      StdAllocator<LightweightString<char>>>& frames) override
    {
        if (broken("stack-clears"))
            frames.clear();
        PlatformProxy::captureCallStack(frames);
    }

    int numProcessors() override
    {
        return broken("no-processors") ? 0 : PlatformProxy::numProcessors();
    }

    Vx::Ptr<iLock> createLock(unsigned int flags) override
    {
        static Vx::Ptr<iLock> one = PlatformProxy::createLock(0);
        return made<Lock>(broken("one-lock") ? one : PlatformProxy::createLock(flags));
    }
    unsigned int currentThreadId() override
    {
        static const unsigned int first = PlatformProxy::currentThreadId();
        return broken("thread-same") || broken("thread-fork") ? first
                                                              : PlatformProxy::currentThreadId();
    }

    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override
    {
        const LightweightString<char> narrow = PlatformProxy::toUTF8(path);
        if (access == 2 && (broken("in-place") || broken("neighbour")))
            return made<NaiveFile>(narrow.c_str());
        if (broken("missing-opens") && access == 1)
            std::fclose(std::fopen(narrow.c_str(), "ab"));
        LightweightString<wchar_t> opened(path);
        for (unsigned int i = 0; broken("names-truncated") && i < opened.length(); ++i)
            opened.mutableChars()[i] &= 0x7F;
        Vx::Ptr<iFile> real = PlatformProxy::openFile(opened, access, disposition, flags, reserved);
        if (!real || !broken("short-read"))
            return real;
        return made<ShortReadFile>(std::move(real));
    }
    wchar_t pathSeparator() override { return broken("separator") ? L'\\' : L'/'; }

    LightweightString<wchar_t> getFolder(int kind) override
    {
        LightweightString<wchar_t> folder = PlatformProxy::getFolder(kind);
        return broken("folder-open-end") ? folder.resizeFor(folder.length() - 1) : folder;
    }
    Vx::Ptr<iSettings> getSettings(int scope) override
    {
        return made<Settings>(PlatformProxy::getSettings(broken("one-scope") ? 0 : scope));
    }

    char shared = 0;
    unsigned int readings = 0;
};

// In the processes that check, not in the one that starts them.
[[gnu::constructor]] void begin(int, char** arguments, char**)
{
    const char* const fault = std::getenv("VX_BROKEN");
    if (fault == nullptr || std::string_view(arguments[1]) != "--child")
        return;
    chosen = fault;
    alignas(Platform) static char place[sizeof(Platform)]; // never destroyed
    new (place) Platform;
}

} // namespace
