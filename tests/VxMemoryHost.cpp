// A host with its own platform that uses memory before the first static constructor of any
// library and after the last static destructor. Exits with status 0 if its platform was called
// each time.

#include <Vx/platform/OS.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <string>
#include <unistd.h>

namespace {

int failures = 0;

void expect(bool holds, const char* what)
{
    if (!holds) {
        ++failures;
        std::fprintf(stderr, "FAILED: %s\n", what);
    }
}

struct HostPlatform final : iPlatformServices, iMemoryAllocator {
    void* allocate(unsigned long size) override
    {
        ++allocations;
        return throwing ? throw 42 : std::malloc(size);
    }
    void deallocate(void* block) override
    {
        (block != nullptr ? releases : nullReleases)++;
        std::free(block);
    }

    // The other services are those of the reference platform, the next definition of OS().
    static iPlatformServices* reference()
    {
        void* const symbol = dlsym(RTLD_NEXT, "_Z2OSv");
        iPlatformServices* (*entry)() = nullptr;
        std::memcpy(&entry, &symbol, sizeof entry);
        return entry();
    }
    iMemoryAllocator* memoryAllocator() override { return this; }
    iReclaimRegistry* reclaimRegistry() override { return reference()->reclaimRegistry(); }
    iSystemUtils* systemUtils() override { return reference()->systemUtils(); }
    iFileSystem* fileSystem() override { return reference()->fileSystem(); }
    iThreading* threading() override { return reference()->threading(); }
    iSystemInfo* systemInfo() override { return reference()->systemInfo(); }
    iShell* shell() override { return reference()->shell(); }

    bool throwing = false;
    int allocations = 0, releases = 0, nullReleases = 0;
};

constinit HostPlatform platform;

// The functions are called directly, since a compiler may omit new-expressions.
void* early = nullptr;
int beforeConstructors = 0;

void afterDestructors()
{
    const int releases = platform.releases;
    operator delete[](early);
    operator delete(operator new(1));
    expect(platform.releases == releases + 2, "memory is freed after the last destructor");
    _exit(failures == 0 ? 0 : 1);
}

// Runs before the constructors of the libraries, so its atexit() handler runs last.
void beforeAll(int, char**, char**)
{
    expect(platform.allocations == 0, "no constructor has run yet");
    early = operator new[](100);
    beforeConstructors = platform.allocations;
    std::atexit(afterDestructors);
}
__attribute__((section(".preinit_array"), used)) void (*const beforeAllEntry)(int, char**,
                                                                              char**) = beforeAll;

// Allocates in a static constructor and frees in a static destructor.
struct Static {
    std::string text = std::string(100, 'x');
    ~Static()
    {
        const int releases = platform.releases;
        text = std::string(200, 'y');
        expect(platform.releases == releases + 1, "memory is freed in a static destructor");
    }
} object;

} // namespace

VX_API iPlatformServices* OS() { return &platform; }

int main()
{
    expect(beforeConstructors == 1, "memory can be allocated before the first constructor");
    expect(platform.allocations > beforeConstructors && object.text.size() == 100,
           "static constructors allocate");

    operator delete(nullptr);
    operator delete[](nullptr);
    operator delete(nullptr, std::nothrow);
    operator delete[](nullptr, std::nothrow);
    expect(platform.nullReleases == 4, "null reaches the platform");

    platform.throwing = true;
    void *plain = &platform, *array = &platform;
    plain = operator new(1, std::nothrow);
    array = operator new[](1, std::nothrow);
    bool passed = false;
    try {
        plain = operator new(1);
    } catch (int number) {
        passed = number == 42;
    }
    platform.throwing = false;
    expect(plain == nullptr && array == nullptr, "the nothrow forms return null for any exception");
    expect(passed, "the plain form passes any exception on");

    return failures == 0 ? 0 : 1;
}
