// VxMemset.h - memory fills by the vendor's primitives.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// Fill \p count elements (not bytes) at \p destination, which is aligned for them, with
/// \p value. Plain forwards to ippsSet_8u, _16s, _32s and _64s: no argument is checked here.
/// The primitives count in an int, so a count of 2^31 or more arrives as a negative one, which
/// writes nothing: fill larger memory in parts.
///
/// Threads: any, on memory of their own.
VX_API void Memset(void* destination, unsigned char value, unsigned int count);
VX_API void Memset16(void* destination, unsigned short value, unsigned int count);
VX_API void Memset32(void* destination, unsigned int value, unsigned int count);
VX_API void Memset64(void* destination, unsigned long value, unsigned int count);

} // namespace Vx
