// IniFindings.h - Finds lines of an INI file that load differently than they look.
#pragma once

#include "IniText.h"

#include <string>
#include <vector>

namespace tool {

/// A warning or a note about one line.
struct IniFinding {
    std::size_t line;    ///< from 1
    std::size_t column;  ///< in bytes, from 1
    bool warning;        ///< otherwise a note, which does not affect the exit status
    std::string code;    ///< stable, for scripts; listed in the man page
    std::string message; ///< for people
};

/// Adds the findings about the bytes of one line; \p number counts from 1.
void addByteFindings(std::vector<IniFinding>& findings, const IniLine& line, std::size_t number);

/// Returns all findings, ordered by line and column.
std::vector<IniFinding> findingsIn(const IniText& text, bool caseSensitive);

} // namespace tool
