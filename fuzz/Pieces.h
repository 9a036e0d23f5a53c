// Pieces.h - cutting a text at separators, put plainly: all pieces first, then the rules about
// which of them count.
#pragma once

#include <Vx/VxStringSplit.h>
#include <string>
#include <vector>

template <class Ch>
std::vector<unsigned int> plainSeparators(const std::basic_string<Ch>& text, Ch separator,
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

template <class Ch>
std::vector<std::basic_string<Ch>> plainPieces(const std::basic_string<Ch>& text, Ch separator,
                                               unsigned int flags)
{
    const std::vector<unsigned int> positions = plainSeparators(text, separator, flags);
    std::vector<std::basic_string<Ch>> pieces;
    std::size_t start = 0;
    for (const unsigned int position : positions) {
        pieces.push_back(text.substr(start, position - start));
        start = position + 1;
    }
    pieces.push_back(text.substr(start));
    if (positions.empty())
        return pieces;

    std::vector<std::basic_string<Ch>> counting;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const bool first = i == 0;
        const bool last = i + 1 == pieces.size();
        const bool dropped =
            pieces[i].empty() && (first ? text.size() != 1 : last || (flags & Vx::SkipEmpty) != 0);
        if (dropped)
            continue;
        if (!last && (flags & Vx::KeepSeparator) != 0)
            pieces[i] += separator;
        counting.push_back(pieces[i]);
    }
    return counting;
}
