// IniFindings.h - where an INI file loads differently from what it looks like.
#pragma once

#include "IniText.h"

#include <string>
#include <vector>

namespace tool {

/// One thing that a person should know about a line.
struct IniFinding {
    std::size_t line;    ///< from 1
    std::size_t column;  ///< in bytes, from 1
    bool warning;        ///< false: worth knowing, and as it should be
    std::string code;    ///< a word for scripts; the man page lists them
    std::string message; ///< for people
};

/// Everything there is to say, line by line.
std::vector<IniFinding> findingsIn(const IniText& text, bool caseSensitive);

} // namespace tool
