// SizeClasses.h - The block sizes that small requests are rounded up to.
#pragma once

#include <cstddef>
#include <cstdint>

/// Classes 1 to 66 are multiples of 16 bytes up to 1056. After that each doubling has four
/// classes, up to 16416. Both ranges end 32 bytes above a power of two, so that a string header
/// and a power of two of characters fit without waste. Class 0 has no blocks.
namespace SizeClasses {

inline constexpr std::size_t kGranule = 16;
inline constexpr std::size_t kHeaderSlack = 32;
inline constexpr std::size_t kLargestFine = 1024 + kHeaderSlack;
inline constexpr std::size_t kFineClasses = kLargestFine / kGranule + 1;
inline constexpr std::size_t kClasses = kFineClasses + 16;
inline constexpr std::size_t kLargest = 16384 + kHeaderSlack;

/// Returns the class of a size from kLargestFine + 1 to kLargest.
inline std::size_t coarseClassOf(std::size_t size) noexcept
{
    const std::size_t last = size - kHeaderSlack - 1;
    const int step = 61 - __builtin_clzl(last); // 2^step bytes are a quarter of the doubling
    return kFineClasses + static_cast<std::size_t>(step - 8) * 4 + (last >> step) - 4;
}

/// Returns the class of a size from 0 to kLargest. Size 0 is served like size 1.
inline std::size_t classOf(std::size_t size) noexcept
{
    if (size > kLargestFine)
        return coarseClassOf(size);
    return size != 0 ? (size + kGranule - 1) / kGranule : 1;
}

constexpr std::size_t blockSize(std::size_t sizeClass) noexcept
{
    if (sizeClass < kFineClasses)
        return sizeClass * kGranule;
    const std::size_t coarse = sizeClass - kFineClasses;
    return ((coarse % 4 + 5) << (coarse / 4 + 8)) + kHeaderSlack;
}

/// Returns how many blocks move between a thread and a span at once: enough to make that rare,
/// and few enough that a thread keeps only some kilobytes of each size.
constexpr std::uint32_t batchSize(std::size_t sizeClass) noexcept
{
    const std::size_t size = blockSize(sizeClass);
    return size == 0      ? 0
           : size <= 128  ? 64
           : size <= 512  ? 32
           : size <= 1056 ? 16
           : size <= 8192 ? static_cast<std::uint32_t>(16384 / size)
                          : 1;
}

} // namespace SizeClasses
