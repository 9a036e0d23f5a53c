// detail/IniSections.h - The sections of a VxIniFile and their order.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxAttribValuePair.h>
#include <cstring>
#include <map>
#include <strings.h>
#include <vector>

namespace VxIniFile_Private {

/// Orders section names by strcmp, or by strcasecmp when case is ignored. Digits are ordinary
/// characters, so "Section10" comes before "Section2".
///
/// strcasecmp depends on the process's character-type locale. Changing it while a
/// case-insensitive document has non-ASCII section names breaks the order of the map.
struct StringLT_Fancy {
    bool caseSensitive; ///< strcmp, or else strcasecmp

    /// Returns whether \p a comes before \p b.
    bool operator()(const LightweightString<char>& a, const LightweightString<char>& b) const
    {
        return before(a.c_str(), b.c_str());
    }

    /// The same for C strings.
    bool before(const char* a, const char* b) const
    {
        return (caseSensitive ? std::strcmp(a, b) : strcasecmp(a, b)) < 0;
    }
};

using Pairs = std::vector<Vx::AttribValuePair>;
using Sections = std::map<LightweightString<char>, Pairs, StringLT_Fancy>;

} // namespace VxIniFile_Private
