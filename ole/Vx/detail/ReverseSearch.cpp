#include <Vx/detail/ReverseSearch.h>

#include <cstddef>

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

std::vector<unsigned int> detail::findFromRight(std::wstring_view text, std::wstring_view pattern)
{
    // The last two characters of the pattern are rare together; of one, it is the same twice.
    const std::size_t before = pattern.size() > 1 ? 1 : 0;
    const wchar_t last = pattern.back();
    const wchar_t beforeLast = pattern[pattern.size() - 1 - before];
    return find(text, pattern, [=](std::size_t end) {
        const wchar_t* const chars = text.data();
        // The compiler makes vector instructions of the inner loop.
        constexpr std::size_t kStep = 8;
        for (; end >= kStep + before; end -= kStep) {
            const wchar_t* const ends = chars + end - kStep;
            const wchar_t* const others = ends - before;
            int found = 0;
            for (std::size_t i = 0; i < kStep; ++i)
                found |= ((ends[i] ^ last) | (others[i] ^ beforeLast)) == 0;
            if (found != 0)
                break;
        }
        while (end > before && (chars[end - 1] != last || chars[end - 1 - before] != beforeLast))
            --end;
        return end > before ? end : 0;
    });
}

#endif

} // namespace Vx
