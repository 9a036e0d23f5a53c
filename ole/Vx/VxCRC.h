// VxCRC.h - a 32-bit shift-register checksum.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// The checksum by x^32 + x^5 + x^3 + x^2 + 1, least significant bit of each byte first.
///
/// Deliberate: not the common CRC-32. The message bits enter the low end of the register, so
/// the last 32 of them are never fed back, and nothing is inverted. "123456789" gives
/// 0xECF6681E.
///
/// Threads: any.
namespace CRC {

/// Feeds the 8 bits of \p byte into \p crc.
/// \returns the new register
VX_API unsigned int IterateCRC32(char byte, unsigned int crc);

/// The register after \p length bytes, from 0 on; 0 when there are none.
VX_API unsigned int CalculateCRC32ForBlock(const void* data, unsigned long length);

} // namespace CRC
} // namespace Vx
