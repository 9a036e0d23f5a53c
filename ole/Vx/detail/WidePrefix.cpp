#include <Vx/detail/WidePrefix.h>

#include <emmintrin.h>

#ifdef VX_PLAIN

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    return commonPrefixPlain(a, b, count);
}

#else

namespace {

__m128i equal4(const wchar_t* a, const wchar_t* b)
{
    const auto load = [](const wchar_t* chars) {
        return _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(chars)));
    };
    return _mm_cmpeq_epi32(load(a), load(b));
}

// A bit for each of sixteen characters that are equal, the first one lowest.
unsigned int equal16(const wchar_t* a, const wchar_t* b)
{
    const __m128i first = _mm_packs_epi32(equal4(a, b), equal4(a + 4, b + 4));
    const __m128i second = _mm_packs_epi32(equal4(a + 8, b + 8), equal4(a + 12, b + 12));
    return static_cast<unsigned int>(_mm_movemask_epi8(_mm_packs_epi16(first, second)));
}

std::size_t firstUnset(unsigned int bits) { return static_cast<std::size_t>(__builtin_ctz(~bits)); }

} // namespace

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    std::size_t i = 0;
    for (; count - i >= 16; i += 16) {
        const unsigned int equal = equal16(a + i, b + i);
        if (equal != 0xFFFF)
            return i + firstUnset(equal);
    }
    for (; count - i >= 4; i += 4) {
        const int equal = _mm_movemask_ps(_mm_castsi128_ps(equal4(a + i, b + i)));
        if (equal != 0xF)
            return i + firstUnset(static_cast<unsigned int>(equal));
    }
    return i + commonPrefixPlain(a + i, b + i, count - i);
}

#endif
