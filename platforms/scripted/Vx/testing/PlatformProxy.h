// testing/PlatformProxy.h - Forwards every platform service; tests override one.
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

/// The platform of the program while the object lives. Every call is forwarded to the platform
/// that was current before, and finally to the reference platform. A derived class overrides one:
///
///     class OneProcessor : public PlatformProxy {
///         int numProcessors() override { return 1; }
///     };
///     OneProcessor platform; // from here on
///
/// Proxies stack: the newest is called first and must be destroyed first.
/// Requires linking with Vx::TestPlatform, which defines OS() in the program itself.
/// Thread safety: services may be called from any thread; construct and destroy proxies while no
///   other thread uses the library.
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
    /// Aborts if this is not the newest proxy.
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
    /// Makes the previous platform current again. The destructor does so too; a derived class whose
    /// overrides use its members calls it in its own destructor.
    void retire();

private:
    iPlatformServices* const before_;
    bool retired_ = false;
};
