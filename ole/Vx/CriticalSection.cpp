#include <Vx/CriticalSection.h>

#include <Vx/detail/Inspect.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iThreading.h>
#include <atomic>
#include <cstring>
#include <memory>

template struct Vx::TypeManip::TemplatedNew<CriticalSection>;

CriticalSection::CriticalSection() { init(0); }

CriticalSection::CriticalSection(unsigned int flags) { init(flags); }

CriticalSection::CriticalSection(const char* name)
{
    init(0);
    setName(name);
}

CriticalSection::~CriticalSection() = default;

void CriticalSection::init(unsigned int flags)
{
    auto fresh = std::make_unique<Rep>();
    fresh->lock = OS()->threading()->createLock(flags);
    rep_ = decltype(rep_)(fresh.release());
}

void CriticalSection::enter()
{
    rep_->lock->lock();
    noteEntry();
}

int CriticalSection::attemptEntry()
{
    if (!rep_->lock->tryLock())
        return -1;
    noteEntry();
    return 0;
}

// The platform lock is held, so the bookkeeping is the caller's until unlock().
void CriticalSection::noteEntry()
{
    Rep& rep = *rep_;
    if (rep.entryCount != 0) {
        ++rep.entryCount;
        return;
    }
    unsigned int self = 0;
    try {
        self = OS()->threading()->currentThreadId();
    } catch (...) {
        rep.lock->unlock();
        throw;
    }
    rep.entryCount = 1;
    // owner() reads without the lock, hence the atomic access.
    std::atomic_ref(rep.ownerThread).store(self, std::memory_order_relaxed);
}

void CriticalSection::leave()
{
    Rep& rep = *rep_;
    if (--rep.entryCount == 0)
        std::atomic_ref(rep.ownerThread).store(0, std::memory_order_relaxed);
    rep.lock->unlock();
}

unsigned int CriticalSection::owner() const
{
    return std::atomic_ref(rep_->ownerThread).load(std::memory_order_relaxed);
}

void CriticalSection::setName(const char* name)
{
    const auto length = name != nullptr ? static_cast<unsigned int>(std::strlen(name)) : 0;
    LightweightString<char>& stored = rep_->name;
    stored.resizeFor(length);
    // Now the block is not shared, or there is none.
    if (length != 0)
        std::memcpy(stored.mutableChars(), name, length);
}

// Deliberate: empty. Hosts call it from their own diagnostics and expect silence.
void CriticalSection::debugPrint() {}

using StringBlock = LightweightString<char>::Impl;
static_assert(offsetof(StringBlock, length) == offsetof(LightweightString<wchar_t>::Impl, length),
              "wide strings have the same layout");

constinit const Vx::detail::InspectLocks Vx::detail::Inspect::locks = {
    .size = sizeof(InspectLocks),
    .repInSection = kObjectInPtr,
    .self = &Inspect::locks,
    .platformLock = offsetof(CriticalSection::Rep, lock) + kObjectInPtr,
    .entryCount = offsetof(CriticalSection::Rep, entryCount),
    .ownerThread = offsetof(CriticalSection::Rep, ownerThread),
    .name = offsetof(CriticalSection::Rep, name),
    .blockInString = kObjectInPtr,
    .dataInBlock = offsetof(StringBlock, data),
    .lengthInBlock = offsetof(StringBlock, length),
    .capacityInBlock = offsetof(StringBlock, capacity),
#if defined(_GLIBCXX_USE_CXX11_ABI) && _GLIBCXX_USE_CXX11_ABI
    .standardLibrary = 1,
#else
    .standardLibrary = 0,
#endif
};
