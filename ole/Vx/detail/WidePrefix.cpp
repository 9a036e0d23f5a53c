#include <Vx/detail/WidePrefix.h>

#include <bit>
#include <emmintrin.h>

#if VX_PLAIN

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    return commonPrefixPlain(a, b, count);
}

#else

namespace {

// All bits set in each of four elements whose characters are equal.
__m128i equal4(const wchar_t* a, const wchar_t* b)
{
    const auto load = [](const wchar_t* chars) {
        return _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(chars)));
    };
    return _mm_cmpeq_epi32(load(a), load(b));
}

bool areEqual16(const wchar_t* a, const wchar_t* b)
{
    const __m128i first = _mm_and_si128(equal4(a, b), equal4(a + 4, b + 4));
    const __m128i second = _mm_and_si128(equal4(a + 8, b + 8), equal4(a + 12, b + 12));
    return _mm_movemask_epi8(_mm_and_si128(first, second)) == 0xFFFF;
}

} // namespace

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    std::size_t i = 0;
    while (count - i >= 16 && areEqual16(a + i, b + i))
        i += 16;
    for (; count - i >= 4; i += 4) {
        const int equal = _mm_movemask_ps(_mm_castsi128_ps(equal4(a + i, b + i)));
        if (equal != 0xF)
            return i + static_cast<std::size_t>(std::countr_one(static_cast<unsigned int>(equal)));
    }
    return i + commonPrefixPlain(a + i, b + i, count - i);
}

#endif
