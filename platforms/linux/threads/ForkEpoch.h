// ForkEpoch.h - Tells a process apart from the children forked from it.
#pragma once

#include <atomic>
#include <cstdint>

namespace ForkEpochDetail {
extern constinit std::atomic<std::atomic<std::uint64_t>*> word;
std::uint64_t begin() noexcept;
} // namespace ForkEpochDetail

/// Returns a number that no ancestor of this process has had, or 0 if the kernel cannot tell
/// processes apart. A thread notes it beside what it caches, and discards the cache when the
/// number has changed; with 0 it must not cache anything.
///
/// The number is in memory that the kernel zeroes in every child, so it does not depend on
/// fork handlers being run, or on their order.
///
/// Errors: none. Keeps errno and allocates nothing from the heap.
/// Thread safety: any thread; never blocks.
inline std::uint64_t forkEpoch() noexcept
{
    const auto* const word = ForkEpochDetail::word.load(std::memory_order_acquire);
    const std::uint64_t epoch = word != nullptr ? word->load(std::memory_order_relaxed) : 0;
    return epoch != 0 ? epoch : ForkEpochDetail::begin();
}
