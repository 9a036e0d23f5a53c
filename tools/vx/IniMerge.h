// IniMerge.h - Merges two changed copies of an INI file.
#pragma once

#include "IniText.h"

#include <string>
#include <vector>

namespace tool {

struct IniMerged {
    std::string bytes;
    std::vector<std::string> conflicts; ///< for people: "rate in [Video]"
};

/// Applies to \p ours what \p theirs changed since \p base.
///
/// Sections and keys are matched by name, wherever they are; a key that occurs twice in a section
/// is matched by its position among those. The result has the order, the line endings and the
/// unchanged lines of \p ours. Comments and blank lines belong to the key or header below them
/// and never conflict: if both sides changed them, the lines of both are kept.
/// Where both sides changed a value differently, or one changed what the other removed, the
/// lines of both appear between conflict marks.
IniMerged mergedIni(const IniText& base, const IniText& ours, const IniText& theirs,
                    bool caseSensitive);

} // namespace tool
