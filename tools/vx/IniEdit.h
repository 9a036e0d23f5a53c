// IniEdit.h - changes of single lines. Everything else in the file stays byte by byte.
#pragma once

#include "IniText.h"

#include <string>

namespace tool {

/// Which name in which section.
struct IniPlace {
    LightweightString<char> section;
    LightweightString<char> name;
    bool caseSensitive; ///< section names that differ in case are two
};

/// The text in which \p place has \p value. The line that getValue() finds is changed: the
/// value and nothing before it. Without one, a line is added behind the last pair of the
/// section, or a section at the end.
/// \throws Failure when the value would not read back as it is
std::string withValue(const IniText& before, const IniPlace& place, const std::string& value);

/// The text without the lines of that name, all of them.
/// \returns how many lines went
std::size_t removeName(const IniText& before, const IniPlace& place, std::string& after);

/// Replaces the file, unless it has changed since \p before was read.
/// \throws Failure
void replaceIni(const std::string& path, const IniText& before, const std::string& after);

} // namespace tool
