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

// --- Faulty objects

template <class Object, class... Arguments> Vx::Ptr<Object> made(Arguments&&... arguments)
{
    Object* const object = new Object(std::forward<Arguments>(arguments)...);
    return Vx::Ptr<Object>(&object->refCount, object);
}

struct OpenLock final : iLock {
    void lock() override {}
    bool tryLock() override { return true; }
    void unlock() override {}
    unsigned int refCount = 0;
};

struct LyingLock final : iLock {
    explicit LyingLock(Vx::Ptr<iLock> real) : real(std::move(real)) {}
    void lock() override { real->lock(); }
    bool tryLock() override { return true; }
    void unlock() override { real->unlock(); }
    Vx::Ptr<iLock> real;
    unsigned int refCount = 0;
};

// Writes as many programs do: over the file itself, or to a neighbour that is then renamed.
struct NaiveFile final : iFile {
    NaiveFile(const std::string& path, const char* suffix)
        : path(path), written(path + suffix), stream(std::fopen(written.c_str(), "wb"))
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

// Fails like the real file, or claims success where it should not.
struct LyingFile final : iFile {
    explicit LyingFile(Vx::Ptr<iFile> real) : real(std::move(real)) {}
    unsigned int size() override { return real->size(); }
    bool read(void* buffer, unsigned int count) override
    {
        return real->read(buffer, count) || readLies;
    }
    bool write(const void* bytes, unsigned int count) override
    {
        return real->write(bytes, count) || (count == 0 && commitLies);
    }
    Vx::Ptr<iFile> real;
    bool readLies = false, commitLies = false;
    unsigned int refCount = 0;
};

struct FaultySettings final : iSettings {
    explicit FaultySettings(Vx::Ptr<iSettings> real) : real(std::move(real)) {}
    void setValue(const Narrow& key, const Narrow& value, const Narrow& section) override
    {
        if (forgets)
            return;
        Narrow stored(value);
        while (trims && !stored.empty() && stored.back() == ' ')
            stored.resizeFor(stored.length() - 1);
        real->setValue(key, stored, oneSection ? "" : section);
    }
    Narrow getValue(const Narrow& key, const Narrow& otherwise, const Narrow& section) override
    {
        return real->getValue(key, otherwise, oneSection ? "" : section);
    }
    void save() override { real->save(); }
    Vx::Ptr<iSettings> real;
    bool trims = false, oneSection = false, forgets = false;
    unsigned int refCount = 0;
};

// --- The platform

PlatformProxy* real = nullptr; // the reference platform

// Each operation calls the pointer of its name or, if that is null, the reference platform.
struct Platform final : PlatformProxy {
#define OPERATION(result, name, parameters, arguments)                                             \
    result(*name##_) parameters = nullptr;                                                         \
    result name parameters override                                                                \
    {                                                                                              \
        return name##_ != nullptr ? name##_ arguments : real->name arguments;                      \
    }
    OPERATION(void*, allocate, (unsigned long size), (size))
    OPERATION(void, deallocate, (void* block), (block))
    OPERATION(Wide, wideFromAscii, (const char* text), (text))
    OPERATION(Narrow, toUTF8, (const Wide& wide), (wide))
    OPERATION(Wide, fromUTF8, (const char* bytes, unsigned int length), (bytes, length))
    OPERATION(double, msecsNow, (), ())
    OPERATION(SimpleUUID, generateUUID, (), ())
    OPERATION(void, captureCallStack, (Frames & frames), (frames))
    OPERATION(wchar_t, pathSeparator, (), ())
    OPERATION(Vx::Ptr<iLock>, createLock, (unsigned int flags), (flags))
    OPERATION(unsigned int, currentThreadId, (), ())
    OPERATION(int, numProcessors, (), ())
    OPERATION(Wide, getFolder, (int kind), (kind))
    OPERATION(Vx::Ptr<iSettings>, getSettings, (int scope), (scope))
#undef OPERATION

    Vx::Ptr<iFile> (*open)(const Wide& path, int access) = nullptr;
    Vx::Ptr<iFile> openFile(const Wide& path, int access, int, int, int) override
    {
        return open != nullptr ? open(path, access) : reallyOpen(path, access);
    }
    static Vx::Ptr<iFile> reallyOpen(const Wide& path, int access)
    {
        return access == 2 ? real->openFile(path, 2, 3, 0, 0) : real->openFile(path, 1, 0, 1, 0);
    }
};

Platform* on = nullptr;
char sharedBlock = 0;
unsigned int calls = 0;

std::string utf8(const Wide& path) { return real->toUTF8(path).c_str(); }

template <bool LyingFile::*kFault> void openLyingFiles()
{
    on->open = [](const Wide& path, int access) {
        Vx::Ptr<iFile> opened = Platform::reallyOpen(path, access);
        if (!opened)
            return opened;
        LyingFile* const file = new LyingFile(std::move(opened));
        file->*kFault = true;
        return Vx::Ptr<iFile>(&file->refCount, file);
    };
}

template <bool FaultySettings::*kFault> void getFaultySettings()
{
    on->getSettings_ = [](int scope) {
        auto* const settings = new FaultySettings(real->getSettings(scope));
        settings->*kFault = true;
        return Vx::Ptr<iSettings>(&settings->refCount, settings);
    };
}

template <const char* kSuffix> void writeNaively()
{
    on->open = [](const Wide& path, int access) {
        return access == 2 ? Vx::Ptr<iFile>(made<NaiveFile>(utf8(path), kSuffix))
                           : Platform::reallyOpen(path, access);
    };
}
constexpr char kInPlace[] = "", kNeighbour[] = ".tmp";

// --- The table: a fault and the checks that must find it.

constexpr struct {
    std::string_view name, checks;
    void (*change)();
} kFaults[] = {
    {"misaligned", "memory.aligned",
     [] {
         on->allocate_ = [](unsigned long size) -> void* {
             if (size >= 1ul << 40)
                 return real->allocate(size);
             return static_cast<char*>(real->allocate(size + 8)) + 8;
         };
         on->deallocate_ = [](void* block) {
             // Blocks from before the fault are aligned.
             const bool ours = reinterpret_cast<std::uintptr_t>(block) % 16 == 8;
             real->deallocate(ours ? static_cast<char*>(block) - 8 : block);
         };
     }},
    {"zero-shared", "memory.distinct",
     [] {
         on->allocate_ = [](unsigned long size) -> void* {
             return size == 0 ? &sharedBlock : real->allocate(size);
         };
         on->deallocate_ = [](void* block) {
             if (block != &sharedBlock)
                 real->deallocate(block);
         };
     }},
    {"null-crashes", "memory.null",
     [] {
         on->deallocate_ = [](void* block) {
             block != nullptr ? real->deallocate(block) : std::abort();
         };
     }},
    {"null-when-exhausted", "memory.exhaustion",
     [] {
         on->allocate_ = [](unsigned long size) -> void* {
             try {
                 return real->allocate(size);
             } catch (...) {
                 return nullptr;
             }
         };
     }},
    {"ascii-signed", "text.ascii",
     [] {
         on->wideFromAscii_ = [](const char* text) {
             Wide wide = real->wideFromAscii(text);
             for (unsigned int i = 0; i < wide.length(); ++i)
                 wide.mutableChars()[i] = static_cast<signed char>(wide[i]);
             return wide;
         };
     }},
    {"length-ignored", "text.lengths",
     [] {
         on->fromUTF8_ = [](const char* bytes, unsigned int) {
             return real->fromUTF8(bytes, iSystemUtils::kUpToTerminator);
         };
     }},
    {"surrogate-passes", "text.no-code-points",
     [] {
         on->toUTF8_ = [](const Wide& wide) {
             const bool surrogate = wide.length() == 1 && (wide[0] & ~0x7FF) == 0xD800;
             return surrogate ? Narrow("\xED\xA0\x80") : real->toUTF8(wide);
         };
     }},
    {"latin1", "text.scalars",
     [] {
         on->fromUTF8_ = [](const char* bytes, unsigned int length) {
             const Wide wide = real->fromUTF8(bytes, length);
             return wide.length() == 1 && wide[0] > 0x7F ? real->wideFromAscii(bytes) : wide;
         };
     }},
    {"malformed-dropped", "text.malformed",
     [] {
         on->fromUTF8_ = [](const char* bytes, unsigned int length) {
             Wide kept;
             for (const wchar_t c : real->fromUTF8(bytes, length))
                 if (c != 0xFFFD)
                     kept += c;
             return kept;
         };
     }},
    {"clock-backwards", "clock",
     [] {
         on->msecsNow_ = [] {
             const double now = real->msecsNow();
             return ++calls % 1000 == 0 ? now - 50 : now;
         };
     }},
    {"clock-coarse", "clock",
     [] { on->msecsNow_ = [] { return std::floor(real->msecsNow() / 10) * 10; }; }},
    {"clock-seconds", "clock", [] { on->msecsNow_ = [] { return real->msecsNow() / 1000; }; }},
    {"uuid-version", "uuid.bits",
     [] {
         on->generateUUID_ = [] {
             SimpleUUID uuid = real->generateUUID();
             uuid.bytes[7] = static_cast<unsigned char>(0x10 | (uuid.bytes[7] & 0x0F));
             return uuid;
         };
     }},
    {"uuid-repeats", "uuid.unique",
     [] {
         on->generateUUID_ = [] {
             SimpleUUID uuid = real->generateUUID();
             std::memset(uuid.bytes, 0, 7);
             std::memset(uuid.bytes + 9, 0, 7);
             return uuid;
         };
     }},
    {"uuid-fork", "uuid.fork",
     [] {
         on->generateUUID_ = [] {
             SimpleUUID uuid = {};
             ++calls;
             std::memcpy(uuid.bytes, &calls, sizeof calls);
             return uuid;
         };
     }},
    {"stack-clears", "call-stack",
     [] { on->captureCallStack_ = [](Frames& frames) { frames.clear(); }; }},
    {"no-processors", "processors", [] { on->numProcessors_ = [] { return 0; }; }},
    {"lock-open", "lock.excludes",
     [] { on->createLock_ = [](unsigned int) { return Vx::Ptr<iLock>(made<OpenLock>()); }; }},
    {"try-lies", "lock.reentrant",
     [] {
         on->createLock_ = [](unsigned int flags) {
             return Vx::Ptr<iLock>(made<LyingLock>(real->createLock(flags)));
         };
     }},
    {"one-lock", "lock.independent",
     [] {
         on->createLock_ = [](unsigned int) {
             static const Vx::Ptr<iLock> one = real->createLock(0);
             return one;
         };
     }},
    {"thread-same", "thread-id thread-id.fork", [] { on->currentThreadId_ = [] { return 1u; }; }},
    {"in-place", "files.replace", writeNaively<kInPlace>},
    {"neighbour", "files.mode files.links files.exception files.kill", writeNaively<kNeighbour>},
    {"short-read", "files.read", openLyingFiles<&LyingFile::readLies>},
    {"commit-lies", "files.commit", openLyingFiles<&LyingFile::commitLies>},
    {"commit-nowhere", "files.commit",
     [] {
         on->open = [](const Wide& path, int access) {
             return Platform::reallyOpen(access == 2 ? L"/dev/null" : path.c_str(), access);
         };
     }},
    {"missing-opens", "files.none",
     [] {
         on->open = [](const Wide& path, int access) {
             if (access == 1)
                 std::fclose(std::fopen(utf8(path).c_str(), "ab"));
             return Platform::reallyOpen(path, access);
         };
     }},
    {"names-truncated", "files.names",
     [] {
         on->open = [](const Wide& path, int access) {
             Wide ascii(path);
             for (unsigned int i = 0; i < ascii.length(); ++i)
                 ascii.mutableChars()[i] &= 0x7F;
             return Platform::reallyOpen(ascii, access);
         };
     }},
    {"names-cut", "files.names",
     [] {
         on->open = [](const Wide& path, int access) {
             return Platform::reallyOpen(path.c_str(), access);
         };
     }},
    {"separator", "files.separator", [] { on->pathSeparator_ = [] { return L'\\'; }; }},
    {"folder-open-end", "folders",
     [] {
         on->getFolder_ = [](int kind) {
             Wide folder = real->getFolder(kind);
             return folder.resizeFor(folder.length() - 1);
         };
     }},
    {"one-section", "settings.values", getFaultySettings<&FaultySettings::oneSection>},
    {"one-scope", "settings.scopes",
     [] { on->getSettings_ = [](int) { return real->getSettings(0); }; }},
    {"values-trimmed", "settings.bytes", getFaultySettings<&FaultySettings::trims>},
    {"values-forgotten", "settings.bytes", getFaultySettings<&FaultySettings::forgets>},
};

// In the processes that check, not in the one that starts them. That one lists the table if
// VX_BROKEN says so.
[[gnu::constructor]] void begin(int, char** arguments, char**)
{
    const char* const chosen = std::getenv("VX_BROKEN");
    if (chosen == nullptr)
        return;
    for (const auto& fault : kFaults)
        if (chosen == std::string_view("list")) {
            std::printf("fault %s %s\n", fault.name.data(), fault.checks.data());
        } else if (chosen == fault.name && std::string_view(arguments[1]) == "--child") {
            // Never destroyed.
            alignas(Platform) static char places[2][sizeof(Platform)];
            real = new (places[0]) PlatformProxy;
            on = new (places[1]) Platform;
            fault.change();
        }
}

} // namespace
