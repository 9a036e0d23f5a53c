// IniEdit.h - Edits of single lines. Every other byte of the file is kept.
#pragma once

#include "IniText.h"

#include <string>

namespace tool {

/// A key in a section.
struct IniPlace {
    LightweightString<char> section;
    LightweightString<char> key;
    bool caseSensitive; ///< whether the case of the section name counts
};

/// Returns the file with \p place set to \p value. Changes the value on the line that getValue()
/// finds; if there is none, adds a line after the section's last pair, or a section at the end.
/// \throws Failure if the value would not read back unchanged
std::string withValue(const IniText& before, const IniPlace& place, const std::string& value);

/// Sets \p after to the file without any line for that key.
/// \returns the number of lines removed
std::size_t removeKey(const IniText& before, const IniPlace& place, std::string& after);

/// Replaces the file by \p after, or prints that in a dry run or for standard input. A file that
/// would not change is left alone.
/// \throws Failure if it has changed since \p before was read, or cannot be replaced
void replaceIni(const std::string& path, const IniText& before, const std::string& after,
                bool dryRun);

} // namespace tool
