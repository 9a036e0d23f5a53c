#include "threads/ForkPage.h"

#include <cerrno>
#include <sys/mman.h>

constinit std::atomic<ForkPage*> ForkPageDetail::page = nullptr;

namespace {

constinit std::atomic<bool> unsupported = false;

// Not in the page: a child goes on counting where its parent was, so that it takes a number
// which nothing it inherited can carry.
constinit std::atomic<std::uint32_t> lastEpoch = 0;

} // namespace

ForkPage* ForkPageDetail::makePage() noexcept
{
    if (unsupported.load(std::memory_order_relaxed))
        return nullptr;
    const int savedErrno = errno;
    void* fresh =
        mmap(nullptr, sizeof(ForkPage), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ForkPage* made = nullptr;
    if (fresh != MAP_FAILED) {
        if (madvise(fresh, sizeof(ForkPage), MADV_WIPEONFORK) == 0) {
            // Random bytes of identifiers to come have no business in a core file.
            madvise(fresh, sizeof(ForkPage), MADV_DONTDUMP);
            if (page.compare_exchange_strong(made, static_cast<ForkPage*>(fresh)))
                made = static_cast<ForkPage*>(fresh);
        } else {
            unsupported.store(true, std::memory_order_relaxed);
        }
        if (made != fresh)
            munmap(fresh, sizeof(ForkPage));
    }
    errno = savedErrno;
    return made;
}

std::uint32_t ForkPageDetail::beginEpoch(ForkPage& state) noexcept
{
    // 0 stands for a wiped page, so the count leaves it out.
    std::uint32_t next = ++lastEpoch;
    if (next == 0)
        next = ++lastEpoch;
    std::uint32_t begun = 0;
    return state.epoch.compare_exchange_strong(begun, next) ? next : begun;
}
