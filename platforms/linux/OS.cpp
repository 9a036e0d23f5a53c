#include <Vx/platform/OS.h>

#include "Shell.h"
#include "SystemInfo.h"
#include "SystemUtils.h"
#include "files/FileSystem.h"
#include "memory/MemoryAllocator.h"
#include "memory/ReclaimRegistry.h"
#include "threads/Threading.h"

namespace {

// All services are constant-initialised and trivially destroyed, so that they work before the
// first constructor, after the last destructor and right after fork.
constinit MemoryAllocator memoryAllocatorService;
constinit ReclaimRegistry reclaimRegistryService;
constinit SystemUtils systemUtilsService;
constinit FileSystem fileSystemService;
constinit Threading threadingService;
constinit SystemInfo systemInfoService;
constinit Shell shellService;

class LinuxPlatform final : public iPlatformServices {
public:
    iMemoryAllocator* memoryAllocator() override { return &memoryAllocatorService; }
    iReclaimRegistry* reclaimRegistry() override { return &reclaimRegistryService; }
    iSystemUtils* systemUtils() override { return &systemUtilsService; }
    iFileSystem* fileSystem() override { return &fileSystemService; }
    iThreading* threading() override { return &threadingService; }
    iSystemInfo* systemInfo() override { return &systemInfoService; }
    iShell* shell() override { return &shellService; }
};

constinit LinuxPlatform platform;

} // namespace

iPlatformServices* OS() { return &platform; }
