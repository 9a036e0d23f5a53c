// The inline operations of the header are exported functions as well: emit them here.
#define VX_LOCK_API __attribute__((used, visibility("default")))
#include <Vx/CriticalSection.h>

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
