// detail/FindMatches.h - Appends the indices of the matching characters of a string to a vector.
#pragma once

#include <Vx/VxFwd.h>
#include <string>
#include <vector>

namespace Vx {

template <class Ch> class IsMatchingChar;

namespace detail {

/// Tests one character after the other.
template <class Ch, class Matcher>
void findMatches(const Ch* chars, unsigned int length, Matcher matches,
                 std::vector<unsigned int>& positions)
{
    for (unsigned int i = 0; i < length; ++i)
        if (matches(chars[i]))
            positions.push_back(i);
}

#ifndef VX_PLAIN
/// The same for a single character, by memchr or wmemchr.
template <class Ch>
void findMatches(const Ch* chars, unsigned int length, IsMatchingChar<Ch> matches,
                 std::vector<unsigned int>& positions)
{
    using Traits = std::char_traits<Ch>;
    const Ch* const end = chars + length;
    for (const Ch* at = chars; at != end; ++at) {
        at = Traits::find(at, static_cast<std::size_t>(end - at), matches.character());
        if (at == nullptr)
            return;
        positions.push_back(static_cast<unsigned int>(at - chars));
    }
}
#endif

} // namespace detail
} // namespace Vx
