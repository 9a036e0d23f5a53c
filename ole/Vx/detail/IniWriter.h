// detail/IniWriter.h - Turns sections of pairs into the bytes of an INI file.
#pragma once

#include <Vx/detail/IniSections.h>
#include <cstddef>
#include <string>
#include <vector>

namespace Vx::detail {

/// Text that is written piece by piece: piece n ends at byte ends[n].
struct IniPieces {
    std::string bytes;
    std::vector<std::size_t> ends;
};

/// Returns what VxIniFile::save() writes before it returns or, with a section \p anonymousName,
/// stalls.
IniPieces iniPiecesOfSave(const VxIniFile_Private::Sections& sections,
                          const LightweightString<char>& anonymousName);

/// Returns what VxIniFile::saveAll() writes.
std::string iniTextOfSaveAll(const VxIniFile_Private::Sections& sections,
                             const LightweightString<char>& anonymousName);

} // namespace Vx::detail
