// IniNames.h - what a person may have meant by a name that is not there.
#pragma once

#include <Vx/VxIniFile.h>
#include <string>

namespace tool {

/// Says that \p section has no \p name, and names what is close: another case, blanks
/// around it.
std::string notFound(const VxIniFile::Sections& sections, const LightweightString<char>& section,
                     const std::string& name);

} // namespace tool
