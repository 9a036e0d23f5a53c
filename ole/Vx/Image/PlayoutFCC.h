// Image/PlayoutFCC.h - the code under which a playout path expects a stored essence.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// Translates the code of a stored video essence into the four-character code under which a
/// playout path expects it. A code that is not in the table is returned unchanged, the
/// playout codes themselves among them.
///
///     Vx::lookupPlayoutFCC(0x61706A6D);   // "mjpa" gives 0x47504A4D, "MJPG"
///
/// Codes: the first character is the least significant byte; letter case counts. The
///   compression identifiers 1235 to 1274 are given as plain numbers.
/// Threads: any; there is no state.
VX_API unsigned int lookupPlayoutFCC(unsigned int fourcc) noexcept;

} // namespace Vx
