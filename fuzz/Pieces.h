// Pieces.h - Slow, obvious models of finding separators and splitting.
#pragma once

#include <Vx/VxStringSplit.h>
#include <string>
#include <vector>

namespace reference {

/// The positions at which findSeparators() cuts.
template <class Ch>
std::vector<unsigned int> separators(const std::basic_string<Ch>& text, Ch separator,
                                     unsigned int flags)
{
    std::vector<unsigned int> positions;
    bool inQuotes = false;
    for (unsigned int i = 0; i < text.size(); ++i) {
        if (text[i] == separator) {
            if (!inQuotes || separator == Ch('"') || (flags & Vx::RespectQuotes) == 0)
                positions.push_back(i);
        } else if (text[i] == Ch('"') && (i == 0 || text[i - 1] != Ch('\\'))) {
            inQuotes = !inQuotes;
        }
    }
    return positions;
}

/// What splitIf() returns: all pieces first, then the rules about which of them count.
template <class Ch>
std::vector<std::basic_string<Ch>> pieces(const std::basic_string<Ch>& text, Ch separator,
                                          unsigned int flags)
{
    const std::vector<unsigned int> positions = separators(text, separator, flags);
    std::vector<std::basic_string<Ch>> all;
    std::size_t start = 0;
    for (const unsigned int position : positions) {
        all.push_back(text.substr(start, position - start));
        start = position + 1;
    }
    all.push_back(text.substr(start));
    if (positions.empty())
        return all;

    std::vector<std::basic_string<Ch>> counting;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const bool last = i + 1 == all.size();
        const bool dropped = i == 0 ? text.size() != 1 : last || (flags & Vx::SkipEmpty) != 0;
        if (all[i].empty() && dropped)
            continue;
        if (!last && (flags & Vx::KeepSeparator) != 0)
            all[i] += separator;
        counting.push_back(all[i]);
    }
    return counting;
}

} // namespace reference
