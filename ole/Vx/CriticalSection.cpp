#include <Vx/CriticalSection.h>

#include <Vx/platform/OS.h>
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

CriticalSection::~CriticalSection() {}

void CriticalSection::init(unsigned int flags)
{
    std::unique_ptr<Rep> fresh(new Rep);
    fresh->lock = OS()->threading()->createLock(flags);
    rep_ = decltype(rep_)(fresh.release());
}

// Called with the platform lock held, which from here to its unlock() makes the
// bookkeeping ours alone.
inline void CriticalSection::noteEntry(Rep& rep)
{
    if (rep.entryCount++ != 0)
        return;
    try {
        // The owner is a snapshot for other threads: an atomic access, no ordering.
        __atomic_store_n(&rep.ownerThread, OS()->threading()->currentThreadId(), __ATOMIC_RELAXED);
    } catch (...) {
        rep.entryCount = 0;
        rep.lock->unlock();
        throw;
    }
}

void CriticalSection::enter()
{
    Rep& rep = *rep_;
    rep.lock->lock();
    noteEntry(rep);
}

void CriticalSection::leave()
{
    Rep& rep = *rep_;
    if (--rep.entryCount == 0)
        __atomic_store_n(&rep.ownerThread, 0u, __ATOMIC_RELAXED);
    // From here on the lock is another thread's to take.
    rep.lock->unlock();
}

int CriticalSection::attemptEntry()
{
    Rep& rep = *rep_;
    if (!rep.lock->tryLock())
        return -1;
    noteEntry(rep);
    return 0;
}

unsigned int CriticalSection::owner() const
{
    return __atomic_load_n(&rep_->ownerThread, __ATOMIC_RELAXED);
}

void CriticalSection::setName(const char* name)
{
    const unsigned int length = name != nullptr ? static_cast<unsigned int>(std::strlen(name)) : 0;
    LightweightString<char>& stored = rep_->name;
    stored.resizeFor(length);
    // After resizeFor() the block is ours alone, or there is none.
    if (length != 0)
        std::memmove(stored.mutableChars(), name, length);
}

// Deliberate: empty. Hosts call it from their own diagnostics and expect silence.
void CriticalSection::debugPrint() {}
