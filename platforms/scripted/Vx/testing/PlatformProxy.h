// testing/PlatformProxy.h - every platform service, handed on; override the one you mean.
#pragma once

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

/// The platform of the program for as long as it lives. Each service does what the platform
/// before it did, in the end the reference platform; a descendant overrides one call:
///
///     class OneProcessor : public PlatformProxy {
///         int numProcessors() override { return 1; }
///     };
///     OneProcessor platform; // from here on
///
/// Proxies stack: the last one made is asked first and must be the first to go.
/// Needs: linking with Vx::TestPlatform, which defines OS() in the program itself.
/// Threads: services are called from any thread; make and destroy proxies while no other
///   thread uses the library.
class PlatformProxy : public iPlatformServices,
                      public iMemoryAllocator,
                      public iReclaimRegistry,
                      public iSystemUtils,
                      public iFileSystem,
                      public iThreading,
                      public iSystemInfo,
                      public iShell {
public:
    PlatformProxy();
    /// Ends the process when it is not the last one made.
    virtual ~PlatformProxy();
    PlatformProxy(const PlatformProxy&) = delete;
    PlatformProxy& operator=(const PlatformProxy&) = delete;

    iMemoryAllocator* memoryAllocator() override { return this; }
    iReclaimRegistry* reclaimRegistry() override { return this; }
    iSystemUtils* systemUtils() override { return this; }
    iFileSystem* fileSystem() override { return this; }
    iThreading* threading() override { return this; }
    iSystemInfo* systemInfo() override { return this; }
    iShell* shell() override { return this; }

    void* allocate(unsigned long size) override;
    void deallocate(void* block) override;

    void add(Reclaimable* object) override;
    void remove(Reclaimable* object) override;

    LightweightString<wchar_t> wideFromAscii(const char* text) override;
    LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) override;
    LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) override;
    double msecsNow() override;
    SimpleUUID generateUUID() override;
    void captureCallStack(std::vector<LightweightString<char>,
                                      StdAllocator<LightweightString<char>>>& frames) override;

    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override;
    wchar_t pathSeparator() override;

    Vx::Ptr<iLock> createLock(unsigned int flags) override;
    unsigned int currentThreadId() override;

    int numProcessors() override;

    LightweightString<wchar_t> getFolder(int kind) override;
    void setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder) override;
    Vx::Ptr<iSettings> getSettings(int scope) override;

protected:
    /// Gives the place back to the platform before. The destructor does it too; a descendant
    /// whose overrides use members calls it in its own, while they still live.
    void retire();

private:
    iPlatformServices* const before_;
    bool retired_ = false;
};
