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
/// identifiers are passed as plain numbers. These codes are translated to the one that begins
/// their line:
///
///     MJPG: mjpa
///     MMES: mpeg
///     GIMX: mx3n mx3p mx4n mx4p mx5n mx5p
///     M701: hdv3 hdv5 hdv7 hdva xd5a xd5c xd5e xdv3 xdv5 xdva xdvc xdve
///     UYVY: 2vuy
///     YUY2: yuv2
///     avc1: es00 to es17
///     avc5: ai52 ai53 ai55 ai56 ai5p ai5q avca avcb
///     avc6: ai12 ai13 ai15 ai16 ai1p ai1q avcc avcd
///     dv25: dvpn dvpp
///     dv50: dv5n dv5p
///     dvh1: dvh5 dvh6 dvhp dvhq
///     dvsd: CDVC "dvc " dvcp
///     AVdr: AVdh, 1256 1270 to 1274
///     AVdx: 1235 1241 1250
///     AVdn: 1237 1238 1242 to 1244 1251 to 1253 1258 to 1260
///
/// Deliberate: no others, not even those in the gaps, such as "ai54", "hdv4" and 1236.
///
/// Thread safety: stateless; any thread.
VX_API unsigned int lookupPlayoutFCC(unsigned int fourcc) noexcept;

} // namespace Vx
