#include <Vx/testing/PlatformProxy.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace {

constinit std::atomic<iPlatformServices*> current = nullptr;

// libOS.so, which comes after this program in the order of symbol lookup.
iPlatformServices* reference()
{
    static iPlatformServices* const platform = [] {
        void* symbol = dlsym(RTLD_NEXT, "_Z2OSv");
        iPlatformServices* (*entry)() = nullptr;
        std::memcpy(&entry, &symbol, sizeof entry);
        return entry();
    }();
    return platform;
}

} // namespace

iPlatformServices* OS()
{
    iPlatformServices* const proxy = current;
    return proxy != nullptr ? proxy : reference();
}

PlatformProxy::PlatformProxy() : before_(OS()) { current = this; }

PlatformProxy::~PlatformProxy() { retire(); }

void PlatformProxy::retire()
{
    if (retired_)
        return;
    retired_ = true;
    iPlatformServices* self = this;
    if (!current.compare_exchange_strong(self, before_))
        std::abort(); // not the newest proxy
}

void* PlatformProxy::allocate(unsigned long size)
{
    return before_->memoryAllocator()->allocate(size);
}

void PlatformProxy::deallocate(void* block) { before_->memoryAllocator()->deallocate(block); }

void PlatformProxy::add(Reclaimable* object) { before_->reclaimRegistry()->add(object); }

void PlatformProxy::remove(Reclaimable* object) { before_->reclaimRegistry()->remove(object); }

LightweightString<wchar_t> PlatformProxy::wideFromAscii(const char* text)
{
    return before_->systemUtils()->wideFromAscii(text);
}

LightweightString<char> PlatformProxy::toUTF8(const LightweightString<wchar_t>& wide)
{
    return before_->systemUtils()->toUTF8(wide);
}

LightweightString<wchar_t> PlatformProxy::fromUTF8(const char* bytes, unsigned int length)
{
    return before_->systemUtils()->fromUTF8(bytes, length);
}

double PlatformProxy::msecsNow() { return before_->systemUtils()->msecsNow(); }

SimpleUUID PlatformProxy::generateUUID() { return before_->systemUtils()->generateUUID(); }

void PlatformProxy::captureCallStack(
    std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>& frames)
{
    before_->systemUtils()->captureCallStack(frames);
}

Vx::Ptr<iFile> PlatformProxy::openFile(const LightweightString<wchar_t>& path, int access,
                                       int disposition, int flags, int reserved)
{
    return before_->fileSystem()->openFile(path, access, disposition, flags, reserved);
}

wchar_t PlatformProxy::pathSeparator() { return before_->fileSystem()->pathSeparator(); }

Vx::Ptr<iLock> PlatformProxy::createLock(unsigned int flags)
{
    return before_->threading()->createLock(flags);
}

unsigned int PlatformProxy::currentThreadId() { return before_->threading()->currentThreadId(); }

int PlatformProxy::numProcessors() { return before_->systemInfo()->numProcessors(); }

LightweightString<wchar_t> PlatformProxy::getFolder(int kind)
{
    return before_->shell()->getFolder(kind);
}

void PlatformProxy::setOutputDiagnosticsFolder(const LightweightString<wchar_t>& folder)
{
    before_->shell()->setOutputDiagnosticsFolder(folder);
}

Vx::Ptr<iSettings> PlatformProxy::getSettings(int scope)
{
    return before_->shell()->getSettings(scope);
}
