#include <Vx/detail/WidePrefix.h>

#include <immintrin.h>

#ifdef VX_PLAIN

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    return commonPrefixPlain(a, b, count);
}

#else

namespace {

[[gnu::target("avx2")]] __m256i equal8(const wchar_t* a, const wchar_t* b)
{
    return _mm256_cmpeq_epi32(
        _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(a))),
        _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(b))));
}

// A bit for each of eight characters that are equal, the first one lowest.
[[gnu::target("avx2")]] unsigned int bitsOf(__m256i equal)
{
    return static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(equal)));
}

std::size_t firstUnset(unsigned int bits) { return static_cast<std::size_t>(__builtin_ctz(~bits)); }

// For at least eight characters.
[[gnu::target("avx2")]] std::size_t prefixByAvx2(const wchar_t* a, const wchar_t* b,
                                                 std::size_t count)
{
    std::size_t i = 0;
    for (; count - i >= 32; i += 32) {
        const __m256i equal[] = {equal8(a + i, b + i), equal8(a + i + 8, b + i + 8),
                                 equal8(a + i + 16, b + i + 16), equal8(a + i + 24, b + i + 24)};
        if (bitsOf(_mm256_and_si256(_mm256_and_si256(equal[0], equal[1]),
                                    _mm256_and_si256(equal[2], equal[3]))) != 0xFF)
            return i + firstUnset(bitsOf(equal[0]) | bitsOf(equal[1]) << 8 |
                                  bitsOf(equal[2]) << 16 | bitsOf(equal[3]) << 24);
    }
    for (; count - i >= 8; i += 8) {
        const unsigned int equal = bitsOf(equal8(a + i, b + i));
        if (equal != 0xFF)
            return i + firstUnset(equal);
    }
    // The last eight characters overlap those before them.
    const unsigned int equal = bitsOf(equal8(a + count - 8, b + count - 8));
    return equal != 0xFF ? count - 8 + firstUnset(equal) : count;
}

} // namespace

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    // Other processors use the plain loop, which the tests cover everywhere.
    if (count >= 8 && __builtin_cpu_supports("avx2"))
        return prefixByAvx2(a, b, count);
    return commonPrefixPlain(a, b, count);
}

#endif
