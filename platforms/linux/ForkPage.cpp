#include "ForkPage.h"

#include <cerrno>
#include <sys/mman.h>

namespace {

constinit std::atomic<ForkPage*> page = nullptr;
constinit std::atomic<bool> unsupported = false;

// Not in the page: a child goes on counting where its parent was, so that it takes a number
// which nothing it inherited can carry.
constinit std::atomic<std::uint32_t> lastEpoch = 0;

ForkPage* makePage() noexcept
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

} // namespace

ForkPage* forkPage() noexcept
{
    ForkPage* existing = page.load(std::memory_order_acquire);
    return existing != nullptr ? existing : makePage();
}

std::uint32_t forkEpoch() noexcept
{
    ForkPage* const state = forkPage();
    if (state == nullptr)
        return 0;
    std::uint32_t epoch = state->epoch.load(std::memory_order_relaxed);
    if (epoch == 0) {
        // 0 stands for a wiped page, so the count leaves it out.
        std::uint32_t next = ++lastEpoch;
        if (next == 0)
            next = ++lastEpoch;
        if (state->epoch.compare_exchange_strong(epoch, next))
            epoch = next;
    }
    return epoch;
}
