// ShellWords.h - The words of a command line that is being typed in bash.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

/// The words without their quotes. The last is the one being typed; it may be empty.
struct ShellWords {
    std::vector<std::string> words;
    char quote = 0;       ///< the quote that the last word begins with and has not closed, or 0
    std::size_t kept = 0; ///< characters of the last word that bash keeps: up to '=' or ':'

    /// The part of \p word that replaces what bash does not keep, quoted as the last word is.
    std::string quoted(const std::string& word) const;
};

/// \param line begins with the name of the command, which is dropped.
ShellWords splitAsBash(const std::string& line);

} // namespace tool
