#include <Vx/detail/ReverseSearch.h>

#include <cstddef>
#include <emmintrin.h>

namespace {

// For each number of characters matched at the end of the pattern: how many remain matched when
// the next one does not fit.
std::vector<unsigned int> bordersOf(std::wstring_view pattern)
{
    const auto fromRight = [&](std::size_t i) { return pattern[pattern.size() - 1 - i]; };
    std::vector<unsigned int> borders(pattern.size(), 0);
    unsigned int border = 0;
    for (std::size_t i = 1; i + 1 < pattern.size(); ++i) {
        while (border != 0 && fromRight(i) != fromRight(border))
            border = borders[border];
        if (fromRight(i) == fromRight(border))
            ++border;
        borders[i + 1] = border;
    }
    return borders;
}

// The algorithm of Knuth, Morris and Pratt, from right to left. \p skip(end) returns where the
// pattern may end, at most \p end.
template <class Skip>
std::vector<unsigned int> find(std::wstring_view text, std::wstring_view pattern, Skip skip)
{
    const std::vector<unsigned int> borders = bordersOf(pattern);
    const wchar_t* const chars = text.data();
    const wchar_t* const lastOfPattern = &pattern.back();
    std::vector<unsigned int> positions;
    std::ptrdiff_t matched = 0;
    for (std::size_t i = skip(text.size()); i != 0;) {
        const wchar_t c = chars[--i];
        while (matched != 0 && c != lastOfPattern[-matched])
            matched = borders[static_cast<std::size_t>(matched)];
        if (c == lastOfPattern[-matched])
            ++matched;
        if (matched == static_cast<std::ptrdiff_t>(pattern.size())) {
            positions.push_back(static_cast<unsigned int>(i));
            matched = 0;
        }
        if (matched == 0)
            i = skip(i);
    }
    return positions;
}

} // namespace

namespace Vx {

std::vector<unsigned int> detail::findFromRightPlain(std::wstring_view text,
                                                     std::wstring_view pattern)
{
    return find(text, pattern, [](std::size_t end) { return end; });
}

#ifndef VX_PLAIN

namespace {

// Four numbers of 32 bits: all bits are set where the character is the one in \p c.
__m128i areEqual(const wchar_t* four, __m128i c)
{
    return _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(four)), c);
}

} // namespace

std::vector<unsigned int> detail::findFromRight(std::wstring_view text, std::wstring_view pattern)
{
    // The last two characters of the pattern are rare together; of one, it is the same twice.
    const std::size_t before = pattern.size() > 1 ? 1 : 0;
    const wchar_t last = pattern.back();
    const wchar_t beforeLast = pattern[pattern.size() - 1 - before];
    const __m128i lasts = _mm_set1_epi32(last);
    const __m128i beforeLasts = _mm_set1_epi32(beforeLast);
    return find(text, pattern, [=](std::size_t end) {
        const wchar_t* const chars = text.data();
        constexpr std::size_t kStep = 16;
        for (; end >= kStep + before; end -= kStep) {
            const auto four = [=](std::size_t from) {
                const wchar_t* const at = chars + end - kStep + from;
                return _mm_and_si128(areEqual(at, lasts), areEqual(at - before, beforeLasts));
            };
            const __m128i bytes = _mm_packs_epi16(_mm_packs_epi32(four(0), four(4)),
                                                  _mm_packs_epi32(four(8), four(12)));
            // A bit for each character that may end the pattern, the last one highest.
            const auto found = static_cast<unsigned int>(_mm_movemask_epi8(bytes));
            if (found != 0)
                return end - static_cast<std::size_t>(__builtin_clz(found) - 16);
        }
        while (end > before && (chars[end - 1] != last || chars[end - 1 - before] != beforeLast))
            --end;
        return end > before ? end : 0;
    });
}

#endif

} // namespace Vx
