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

/// The page of this process; null when the kernel cannot give one, now or ever. Whoever
/// keeps something for later then keeps nothing and asks the kernel each time.
/// Threads: any; never blocks and allocates nothing.
ForkPage* forkPage() noexcept;

/// A number that differs between a process and the children forked from it, so that a
/// thread sees whether what it noted before is still true. 0 when nobody can know.
/// Threads: any.
std::uint32_t forkEpoch() noexcept;
