// The reference platform with one fault, chosen by the environment variable VX_BROKEN: what
// platform-check must find.
#include <Vx/LightweightString.h>
#include <Vx/VxPtr.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <Vx/platform/iSystemInfo.h>
#include <Vx/platform/iSystemUtils.h>
#include <Vx/platform/iThreading.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

// OS() of the reference platform, compiled under another name.
iPlatformServices* ReferenceOS();

namespace {

bool broken(std::string_view fault)
{
    const char* chosen = std::getenv("VX_BROKEN");
    return chosen != nullptr && fault == chosen;
}

struct Allocator final : iMemoryAllocator {
    void* allocate(unsigned long size) override
    {
        if (broken("misaligned") && size < (1ul << 40))
            return static_cast<char*>(real()->allocate(size + 8)) + 8;
        if (broken("zero-shared") && size == 0)
            return &shared;
        if (broken("null-when-exhausted")) {
            try {
                return real()->allocate(size);
            } catch (...) {
                return nullptr;
            }
        }
        return real()->allocate(size);
    }
    void deallocate(void* block) override
    {
        if (block == &shared)
            return;
        if (broken("null-crashes") && block == nullptr)
            std::abort();
        if (broken("misaligned") && block != nullptr)
            block = static_cast<char*>(block) - 8;
        real()->deallocate(block);
    }
    static iMemoryAllocator* real() { return ReferenceOS()->memoryAllocator(); }
    char shared = 0;
};

struct Utils final : iSystemUtils {
    static iSystemUtils* real() { return ReferenceOS()->systemUtils(); }

    LightweightString<wchar_t> wideFromAscii(const char* text) override
    {
        LightweightString<wchar_t> wide = real()->wideFromAscii(text);
        if (broken("ascii-signed"))
            for (unsigned int i = 0; i < wide.length(); ++i)
                wide.mutableChars()[i] = static_cast<signed char>(wide[i]);
        return wide;
    }
    LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) override
    {
        if (broken("surrogate-passes") && wide.length() == 1 && (wide[0] & ~0x7FF) == 0xD800)
            return LightweightString<char>("\xED\xA0\x80");
        return real()->toUTF8(wide);
    }
    LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) override
    {
        if (broken("length-ignored"))
            length = kUpToTerminator;
        LightweightString<wchar_t> wide = real()->fromUTF8(bytes, length);
        if (broken("latin1") && wide.length() == 1 && wide[0] > 0x7F)
            return real()->wideFromAscii(bytes);
        if (broken("malformed-dropped")) {
            LightweightString<wchar_t> kept;
            for (wchar_t c : wide)
                if (c != 0xFFFD)
                    kept += c;
            return kept;
        }
        return wide;
    }
    double msecsNow() override
    {
        static double readings = 0;
        if (broken("clock-backwards") && std::fmod(++readings, 1000.0) == 0)
            return real()->msecsNow() - 50;
        if (broken("clock-coarse"))
            return std::floor(real()->msecsNow() / 10) * 10;
        return real()->msecsNow();
    }
    SimpleUUID generateUUID() override
    {
        static unsigned int counter = 0;
        SimpleUUID uuid = real()->generateUUID();
        if (broken("uuid-version"))
            uuid.bytes[7] = static_cast<unsigned char>(0x10 | (uuid.bytes[7] & 0x0F));
        if (broken("uuid-repeats")) {
            std::memset(uuid.bytes, 0, 7);
            std::memset(uuid.bytes + 9, 0, 7);
        }
        if (broken("uuid-fork")) {
            std::memset(uuid.bytes, 0, 16);
            ++counter;
            std::memcpy(uuid.bytes, &counter, sizeof counter);
        }
        return uuid;
    }
    void captureCallStack(std::vector<LightweightString<char>,
                                      StdAllocator<LightweightString<char>>>& frames) override
    {
        if (broken("stack-clears"))
            frames.clear();
        real()->captureCallStack(frames);
    }
};

struct Info final : iSystemInfo {
    int numProcessors() override
    {
        return broken("no-processors") ? 0 : ReferenceOS()->systemInfo()->numProcessors();
    }
};

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

struct Threads final : iThreading {
    static iThreading* real() { return ReferenceOS()->threading(); }

    Vx::Ptr<iLock> createLock(unsigned int flags) override
    {
        static Vx::Ptr<iLock> one = real()->createLock(0);
        Lock* lock = new Lock(broken("one-lock") ? one : real()->createLock(flags));
        return Vx::Ptr<iLock>(&lock->refCount, lock);
    }
    unsigned int currentThreadId() override
    {
        static const unsigned int first = real()->currentThreadId();
        return broken("thread-same") || broken("thread-fork") ? first : real()->currentThreadId();
    }
};

// Writes as many programs do: over the file itself, or into a neighbour that is renamed.
struct NaiveFile final : iFile {
    NaiveFile(std::string path, bool neighbour)
        : path(std::move(path)),
          written(this->path + (neighbour ? ".tmp" : "")),
          stream(std::fopen(written.c_str(), "wb"))
    {}
    ~NaiveFile() override
    {
        if (stream == nullptr)
            return;
        std::fclose(stream);
        if (written != path)
            std::rename(written.c_str(), path.c_str());
    }
    unsigned int size() override { return 0; }
    bool read(void*, unsigned int) override { return false; }
    bool write(const void* bytes, unsigned int count) override
    {
        return std::fwrite(bytes, 1, count, stream) == count;
    }

    std::string path;
    std::string written;
    std::FILE* stream;
    unsigned int refCount = 0;
};

struct ReadFile final : iFile {
    explicit ReadFile(Vx::Ptr<iFile> real) : real(std::move(real)) {}
    unsigned int size() override { return real->size(); }
    bool read(void* buffer, unsigned int count) override
    {
        return real->read(buffer, count) || broken("short-read");
    }
    bool write(const void* bytes, unsigned int count) override { return real->write(bytes, count); }

    Vx::Ptr<iFile> real;
    unsigned int refCount = 0;
};

struct Files final : iFileSystem {
    static iFileSystem* real() { return ReferenceOS()->fileSystem(); }

    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override
    {
        const LightweightString<char> narrow = ReferenceOS()->systemUtils()->toUTF8(path);
        if (access == 2 && (broken("in-place") || broken("neighbour"))) {
            NaiveFile* file = new NaiveFile(narrow.c_str(), broken("neighbour"));
            return Vx::Ptr<iFile>(&file->refCount, file);
        }
        if (broken("missing-opens") && access == 1)
            std::fclose(std::fopen(narrow.c_str(), "ab"));
        if (broken("names-truncated")) {
            LightweightString<wchar_t> ascii;
            for (wchar_t c : path)
                ascii += static_cast<wchar_t>(c & 0x7F);
            return real()->openFile(ascii, access, disposition, flags, reserved);
        }
        Vx::Ptr<iFile> file = real()->openFile(path, access, disposition, flags, reserved);
        if (!file)
            return file;
        ReadFile* wrapped = new ReadFile(std::move(file));
        return Vx::Ptr<iFile>(&wrapped->refCount, wrapped);
    }
    wchar_t pathSeparator() override { return broken("separator") ? L'\\' : L'/'; }
};

struct Settings final : iSettings {
    explicit Settings(Vx::Ptr<iSettings> real) : real(std::move(real)) {}
    void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                  const LightweightString<char>& section) override
    {
        LightweightString<char> stored(value);
        if (broken("values-trimmed"))
            while (!stored.empty() && stored.back() == ' ')
                stored.resizeFor(stored.length() - 1);
        real->setValue(key, stored, broken("one-section") ? "" : section);
    }
    LightweightString<char> getValue(const LightweightString<char>& key,
                                     const LightweightString<char>& defaultValue,
                                     const LightweightString<char>& section) override
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

struct UserShell final : iShell {
    LightweightString<wchar_t> getFolder(int kind) override
    {
        LightweightString<wchar_t> folder = ReferenceOS()->shell()->getFolder(kind);
        return broken("folder-open-end") ? folder.resizeFor(folder.length() - 1) : folder;
    }
    Vx::Ptr<iSettings> getSettings(int scope) override
    {
        Settings* settings =
            new Settings(ReferenceOS()->shell()->getSettings(broken("one-scope") ? 0 : scope));
        return Vx::Ptr<iSettings>(&settings->refCount, settings);
    }
};

constinit Allocator allocatorService;
constinit Utils utilsService;
constinit Info infoService;
constinit Threads threadsService;
constinit Files filesService;
constinit UserShell shellService;

struct Platform final : iPlatformServices {
    iMemoryAllocator* memoryAllocator() override { return &allocatorService; }
    iReclaimRegistry* reclaimRegistry() override { return ReferenceOS()->reclaimRegistry(); }
    iSystemUtils* systemUtils() override { return &utilsService; }
    iFileSystem* fileSystem() override { return &filesService; }
    iThreading* threading() override { return &threadsService; }
    iSystemInfo* systemInfo() override { return &infoService; }
    iShell* shell() override { return &shellService; }
};

constinit Platform platform;

} // namespace

VX_API iPlatformServices* OS() { return &platform; }
