// IniNames.h - Reports a key or section that does not exist.
#pragma once

#include "Tool.h"

#include <Vx/VxIniFile.h>
#include <string>

namespace tool {

/// Complains about a section that \p file lacks. Suggests one that differs only in case or in
/// surrounding blanks.
Status missingSection(const std::string& file, const VxIniFile::Sections& sections,
                      const LightweightString<char>& section);

/// Complains about a missing key in the same way, or about its section if that is missing.
Status missingKey(const std::string& file, const VxIniFile::Sections& sections,
                  const LightweightString<char>& section, const std::string& key);

} // namespace tool
