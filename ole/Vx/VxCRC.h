// VxCRC.h - A 32-bit shift-register checksum.
//
//     unsigned int sum = Vx::CRC::CalculateCRC32ForBlock("123456789", 9);   // 0xECF6681E
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// The checksum by x^32 + x^5 + x^3 + x^2 + 1, least significant bit of each byte first.
///
/// Deliberate: not the common CRC-32. The message bits enter at the low end of the register, so
/// the last 32 of them are never fed back, and nothing is inverted.
///
/// Thread safety: stateless; any thread.
namespace CRC {

/// Feeds the 8 bits of \p byte into the register \p crc.
/// \returns the new register
VX_API unsigned int IterateCRC32(char byte, unsigned int crc);

/// Returns the register after \p length bytes, starting from 0. \p data may be null if
/// \p length is 0.
VX_API unsigned int CalculateCRC32ForBlock(const void* data, unsigned long length);

} // namespace CRC
} // namespace Vx
