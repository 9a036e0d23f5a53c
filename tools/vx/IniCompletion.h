// IniCompletion.h - Offers the sections, keys and values of the INI file on the command line.
#pragma once

#include "CommandLine.h"

namespace tool {

/// Completes the arguments SECTION, KEY and VALUE of \p command, as far as it has them, from its
/// argument FILE.
void completeFromIni(Command& command, bool key, bool value);

} // namespace tool
