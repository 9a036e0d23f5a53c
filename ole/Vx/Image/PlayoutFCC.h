// Image/PlayoutFCC.h - The code under which a playout path expects a stored essence.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// Translates the code of a stored video essence into the four-character code under which a
/// playout path expects it. Returns any other code unchanged, the playout codes included.
///
///     Vx::lookupPlayoutFCC(0x61706A6D);   // "mjpa" gives 0x47504A4D, "MJPG"
///
/// The first character is the least significant byte, and case matters. VC-3 compression
/// identifiers, 1235 to 1274, are passed as plain numbers.
///
/// Thread safety: stateless; any thread.
VX_API unsigned int lookupPlayoutFCC(unsigned int fourcc) noexcept;

} // namespace Vx
