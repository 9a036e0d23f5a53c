// detail/WidePrefixAvx.h - Counts the equal characters at the start of two wide strings, by AVX2
// and by AVX-512.
#pragma once

#include <cstddef>
#include <immintrin.h>

namespace Vx {
namespace detail {

/// Compares eight characters. All bits of a lane are set where they are equal.
[[gnu::target("avx2")]] inline __m256i equal8(const wchar_t* a, const wchar_t* b) noexcept
{
    return _mm256_cmpeq_epi32(
        _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(a))),
        _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(b))));
}

/// Returns a bit for each of eight characters that are equal, the first one lowest.
[[gnu::target("avx2")]] inline unsigned int bitsOf(__m256i equal) noexcept
{
    return static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(equal)));
}

inline std::size_t firstSet(unsigned int bits) noexcept
{
    return static_cast<std::size_t>(__builtin_ctz(bits));
}

/// commonPrefix() for at least eight characters, up to 32 at a time.
[[gnu::target("avx2")]] inline std::size_t commonPrefixAvx2(const wchar_t* a, const wchar_t* b,
                                                            std::size_t count) noexcept
{
    std::size_t i = 0;
    for (; count - i >= 32; i += 32) {
        const __m256i equal[] = {equal8(a + i, b + i), equal8(a + i + 8, b + i + 8),
                                 equal8(a + i + 16, b + i + 16), equal8(a + i + 24, b + i + 24)};
        if (bitsOf(_mm256_and_si256(_mm256_and_si256(equal[0], equal[1]),
                                    _mm256_and_si256(equal[2], equal[3]))) != 0xFF)
            return i + firstSet(~(bitsOf(equal[0]) | bitsOf(equal[1]) << 8 |
                                  bitsOf(equal[2]) << 16 | bitsOf(equal[3]) << 24));
    }
    for (; count - i >= 8; i += 8) {
        const unsigned int equal = bitsOf(equal8(a + i, b + i));
        if (equal != 0xFF)
            return i + firstSet(~equal);
    }
    // The last eight characters overlap those before them.
    const unsigned int equal = bitsOf(equal8(a + count - 8, b + count - 8));
    return equal != 0xFF ? count - 8 + firstSet(~equal) : count;
}

/// Compares sixteen characters. Returns a bit for each that differs, the first one lowest.
[[gnu::target("avx512f")]] inline __mmask16 differ16(const wchar_t* a, const wchar_t* b) noexcept
{
    return _mm512_cmpneq_epi32_mask(_mm512_loadu_si512(a), _mm512_loadu_si512(b));
}

/// Compares 32 characters. Returns a bit for each that differs, the first one lowest.
[[gnu::target("avx512f,avx512bw")]] inline unsigned int differ32(const wchar_t* a,
                                                                 const wchar_t* b) noexcept
{
    return _mm512_kunpackw(differ16(a + 16, b + 16), differ16(a, b));
}

/// commonPrefix() for at least 32 characters, 32 at a time. Faster than commonPrefixAvx2() from 64
/// on; for fewer, its results come later after the last load.
[[gnu::target("avx512f,avx512bw")]] inline std::size_t
commonPrefixAvx512(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    std::size_t i = 0;
    do {
        const unsigned int differ = differ32(a + i, b + i);
        if (differ != 0)
            return i + firstSet(differ);
        i += 32;
    } while (count - i >= 32);
    // The last 32 characters overlap those before them.
    const unsigned int differ = differ32(a + count - 32, b + count - 32);
    return differ != 0 ? count - 32 + firstSet(differ) : count;
}

} // namespace detail
} // namespace Vx
