// IniFindings.h - Finds lines of an INI file that load differently than they look.
#pragma once

#include "IniText.h"
#include "Messages.h"

#include <string>
#include <vector>

namespace tool {

/// A warning or a note about one line.
struct IniFinding {
    std::size_t line;       ///< from 1
    std::size_t column;     ///< in bytes, from 1
    const Message* message; ///< the row of the table
    std::string text;       ///< of this finding

    bool isNote() const { return message->kind == MessageKind::note; }
};

/// Adds the findings about the bytes of one line; \p number counts from 1.
void addByteFindings(std::vector<IniFinding>& findings, const IniLine& line, std::size_t number);

/// Adds the finding about a value that other programs would read differently: quotes, a comment
/// or a backslash at its end. \p column is that of the value.
void addValueFindings(std::vector<IniFinding>& findings, std::string_view value, std::size_t number,
                      std::size_t column);

/// Returns all findings, ordered by line and column.
std::vector<IniFinding> findingsIn(const IniText& text, bool caseSensitive);

} // namespace tool
