// ForkPage.h - memory that a child process finds zeroed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// State that must not pass from a parent to its child. The kernel zeroes it on every fork,
/// however the process was forked, so nothing here depends on handlers being run.
///
/// Shape: everything starts as zeros, and zeros mean "nothing yet" to every user.
struct ForkPage {
    /// Random bytes that no identifier has used yet, for UuidSource. A block is taken by
    /// one thread at a time.
    struct RandomBlock {
        static constexpr std::size_t kBytes = 16 * 248;

        std::atomic<std::uint32_t> taken; ///< 1 while a thread works on the block
        std::atomic<std::uint32_t> left;  ///< unused bytes, the ones at the end of the array
        std::atomic<std::uint32_t> epoch; ///< of the process that fetched them
        alignas(64) unsigned char bytes[kBytes];
    };
    static constexpr std::size_t kRandomBlocks = 16;

    /// What forkEpoch() returns.
    std::atomic<std::uint32_t> epoch;
    alignas(64) RandomBlock randomBlocks[kRandomBlocks];
};

namespace ForkPageDetail {
extern constinit std::atomic<ForkPage*> page;
ForkPage* makePage() noexcept;
std::uint32_t beginEpoch(ForkPage& state) noexcept;
} // namespace ForkPageDetail

/// The page of this process; null when the kernel cannot give one, now or ever. Whoever
/// keeps something for later then keeps nothing and asks the kernel each time.
/// Threads: any; never blocks and allocates nothing.
inline ForkPage* forkPage() noexcept
{
    ForkPage* const page = ForkPageDetail::page.load(std::memory_order_acquire);
    return page != nullptr ? page : ForkPageDetail::makePage();
}

/// A number that differs between a process and the children forked from it, so that a
/// thread sees whether what it noted before is still true.
/// Threads: any.
inline std::uint32_t forkEpoch(ForkPage& page) noexcept
{
    const std::uint32_t epoch = page.epoch.load(std::memory_order_relaxed);
    return epoch != 0 ? epoch : ForkPageDetail::beginEpoch(page);
}

/// The same; 0 when nobody can know.
inline std::uint32_t forkEpoch() noexcept
{
    ForkPage* const page = forkPage();
    return page != nullptr ? forkEpoch(*page) : 0;
}

/// The same, for who has another way then: 0 also when nobody has asked yet in this process.
inline std::uint32_t begunForkEpoch() noexcept
{
    const ForkPage* const page = ForkPageDetail::page.load(std::memory_order_acquire);
    return page != nullptr ? page->epoch.load(std::memory_order_relaxed) : 0;
}
