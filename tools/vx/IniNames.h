// IniNames.h - Suggests the key or section that a mistyped one may have meant.
#pragma once

#include <Vx/VxIniFile.h>
#include <string>

namespace tool {

/// The message for a missing key or section. Suggests one that differs only in case or in
/// surrounding blanks.
std::string notFound(const VxIniFile::Sections& sections, const LightweightString<char>& section,
                     const std::string& key);

} // namespace tool
