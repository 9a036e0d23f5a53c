// detail/IniReader.h - Turns the bytes of an INI file into sections of pairs.
#pragma once

#include <Vx/detail/IniSections.h>
#include <cstddef>

namespace Vx::detail {

/// Reads \p size bytes of lines into \p sections, which is empty. Lines before the first header
/// go to the section \p firstName. data[size] must be 0 and readable. Overwrites the closing
/// brackets of headers.
/// \returns false if a line is too long for a string; \p sections is then unspecified
bool readIniSections(char* data, std::size_t size, char separator,
                     const LightweightString<char>& firstName,
                     VxIniFile_Private::Sections& sections);

/// Appends the pairs of \p loaded to those of \p into. Either all of them or, if memory runs
/// out, none. Leaves \p loaded unspecified.
void mergeIniSections(VxIniFile_Private::Sections& loaded, VxIniFile_Private::Sections& into);

} // namespace Vx::detail
