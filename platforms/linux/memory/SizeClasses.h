// SizeClasses.h - The block sizes that small requests are rounded up to.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

/// Classes 1 to 66 are multiples of 16 bytes up to 1056, which is 32 bytes above a power of two, so
/// that a string header and a power of two of characters fit without waste. The others, up to 16416,
/// divide a span into a whole number of blocks, each as large as that number allows, so that little
/// of the span is left unused. Class 0 has no blocks.
namespace SizeClasses {

inline constexpr std::size_t kSpan = 1u << 16;
inline constexpr std::size_t kGranule = 16;
inline constexpr std::size_t kHeaderSlack = 32;
inline constexpr std::size_t kLargestFine = 1024 + kHeaderSlack;
inline constexpr std::size_t kFineClasses = kLargestFine / kGranule + 1;
inline constexpr std::size_t kLargest = 16384 + kHeaderSlack;

/// How many blocks of each coarse class a span has.
inline constexpr std::size_t kBlocksInSpan[] = {55, 49, 44, 39, 35, 31, 28, 25, 23,
                                                21, 19, 18, 17, 16, 15, 14, 13, 12,
                                                11, 10, 9,  8,  7,  6,  5,  4,  3};
inline constexpr std::size_t kClasses = kFineClasses + std::size(kBlocksInSpan);

constexpr std::size_t blockSize(std::size_t sizeClass) noexcept
{
    if (sizeClass < kFineClasses)
        return sizeClass * kGranule;
    const std::size_t share = kSpan / kBlocksInSpan[sizeClass - kFineClasses];
    return share < kLargest ? share / kGranule * kGranule : kLargest;
}

/// The class of each multiple of kGranule above kLargestFine.
inline constexpr auto kCoarseClasses = [] {
    std::array<std::uint8_t, (kLargest - kLargestFine) / kGranule> classes{};
    std::size_t sizeClass = kFineClasses;
    for (std::size_t i = 0; i < classes.size(); ++i) {
        if (kLargestFine + (i + 1) * kGranule > blockSize(sizeClass))
            ++sizeClass;
        classes[i] = static_cast<std::uint8_t>(sizeClass);
    }
    return classes;
}();

/// Returns the class of a size from kLargestFine + 1 to kLargest.
inline std::size_t coarseClassOf(std::size_t size) noexcept
{
    return kCoarseClasses[(size - kLargestFine - 1) / kGranule];
}

/// Returns the class of a size from 0 to kLargest. Size 0 is served like size 1.
inline std::size_t classOf(std::size_t size) noexcept
{
    if (size > kLargestFine)
        return coarseClassOf(size);
    return size != 0 ? (size + kGranule - 1) / kGranule : 1;
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
