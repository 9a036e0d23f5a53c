// detail/ReverseSearch.h - Finds the occurrences of a pattern that do not overlap, from the right.
#pragma once

#include <string_view>
#include <vector>

namespace Vx {
namespace detail {

/// Returns the positions in decreasing order; where occurrences overlap, the rightmost is
/// found. \p pattern must not be empty. Takes time linear in both lengths, for any input.
std::vector<unsigned int> findFromRightPlain(std::wstring_view text, std::wstring_view pattern);

#ifdef VX_PLAIN
inline std::vector<unsigned int> findFromRight(std::wstring_view text, std::wstring_view pattern)
{
    return findFromRightPlain(text, pattern);
}
#else
/// Skips sixteen characters at a time where the pattern cannot end.
std::vector<unsigned int> findFromRight(std::wstring_view text, std::wstring_view pattern);
#endif

} // namespace detail
} // namespace Vx
