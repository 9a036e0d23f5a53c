// A platform of the host's own: it counts blocks and hands everything else on.
#include <Vx/platform/OS.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>

unsigned long blocksOfOurOwn = 0;

namespace {

class CountingAllocator final : public iMemoryAllocator {
public:
    void* allocate(unsigned long size) override
    {
        ++blocksOfOurOwn;
        void* block = std::malloc(size);
        return block != nullptr ? block : throw std::bad_alloc();
    }
    void deallocate(void* block) override { std::free(block); }
};

// libOS.so stands behind the program in the order of symbol lookup.
iPlatformServices* reference()
{
    void* symbol = dlsym(RTLD_NEXT, "_Z2OSv");
    iPlatformServices* (*entry)() = nullptr;
    std::memcpy(&entry, &symbol, sizeof entry);
    return entry();
}

CountingAllocator counting;

class HostPlatform final : public iPlatformServices {
public:
    iMemoryAllocator* memoryAllocator() override { return &counting; }
    iReclaimRegistry* reclaimRegistry() override { return reference()->reclaimRegistry(); }
    iSystemUtils* systemUtils() override { return reference()->systemUtils(); }
    iFileSystem* fileSystem() override { return reference()->fileSystem(); }
    iThreading* threading() override { return reference()->threading(); }
    iSystemInfo* systemInfo() override { return reference()->systemInfo(); }
    iShell* shell() override { return reference()->shell(); }
};

// Constant-initialised: the first allocation comes before any constructor has run.
HostPlatform platform;

} // namespace

iPlatformServices* OS() { return &platform; }
