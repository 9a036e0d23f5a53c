#include "threads/ForkEpoch.h"

#include <cerrno>
#include <new>
#include <sys/mman.h>

constinit std::atomic<std::atomic<std::uint64_t>*> ForkEpochDetail::word = nullptr;

namespace {

constinit std::atomic<bool> unsupported = false;

// Inherited by children, which count on from here. Were it zeroed too, a child would get the
// number of its parent.
constinit std::atomic<std::uint64_t> lastEpoch = 0;

// Returns a zero word that is zero again in every child, or null.
std::atomic<std::uint64_t>* makeWord() noexcept
{
    if (unsupported.load(std::memory_order_relaxed))
        return nullptr;
    constexpr std::size_t kSize = sizeof(std::atomic<std::uint64_t>);
    void* const page =
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return nullptr;
    if (madvise(page, kSize, MADV_WIPEONFORK) != 0) {
        unsupported.store(true, std::memory_order_relaxed);
        munmap(page, kSize);
        return nullptr;
    }
    auto* const made = new (page) std::atomic<std::uint64_t>(0);
    std::atomic<std::uint64_t>* installed = nullptr;
    if (ForkEpochDetail::word.compare_exchange_strong(installed, made))
        return made;
    munmap(page, kSize); // another thread was first
    return installed;
}

} // namespace

std::uint64_t ForkEpochDetail::begin() noexcept
{
    const int savedErrno = errno;
    auto* state = word.load(std::memory_order_acquire);
    if (state == nullptr)
        state = makeWord();
    errno = savedErrno;
    if (state == nullptr)
        return 0;
    const std::uint64_t next = ++lastEpoch;
    std::uint64_t begun = 0;
    return state->compare_exchange_strong(begun, next) ? next : begun;
}
