// platform/ipps.h - The vendor's memory fills, supplied by libVxIPP.so.
#pragma once

#include <Vx/VxExport.h>

extern "C" {

/// Fills \p count elements at \p destination with \p value. A count below 1 writes nothing; no
/// other argument is checked.
/// Thread safety: concurrent calls may fill different memory.
/// \returns 0
VX_API int ippsSet_8u(unsigned char value, unsigned char* destination, int count);
VX_API int ippsSet_16s(short value, short* destination, int count);
VX_API int ippsSet_32s(int value, int* destination, int count);
VX_API int ippsSet_64s(long value, long* destination, int count);
}
