// VxMemset.h - Memory fills by the signal-processing primitives of libVxIPP.so.
//
//     Vx::Memset32(pixels, 0xFF000000u, width * height);   // elements, not bytes
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// Fill \p count elements at \p destination, which is aligned for them, with \p value. They call
/// ippsSet_8u, _16s, _32s and _64s without checking an argument.
///
/// The primitives count in an int, so a count of 2^31 or more reaches them as a negative one and
/// writes nothing. Fill larger memory in parts.
///
/// Thread safety: any thread; two threads must not fill the same memory.
VX_API void Memset(void* destination, unsigned char value, unsigned int count);
VX_API void Memset16(void* destination, unsigned short value, unsigned int count);
VX_API void Memset32(void* destination, unsigned int value, unsigned int count);
VX_API void Memset64(void* destination, unsigned long value, unsigned int count);

} // namespace Vx
