#include <Vx/VxMemset.h>

#include <Vx/platform/ipps.h>

namespace Vx {

void Memset(void* destination, unsigned char value, unsigned int count)
{
    ippsSet_8u(value, static_cast<unsigned char*>(destination), static_cast<int>(count));
}

void Memset16(void* destination, unsigned short value, unsigned int count)
{
    ippsSet_16s(static_cast<short>(value), static_cast<short*>(destination),
                static_cast<int>(count));
}

void Memset32(void* destination, unsigned int value, unsigned int count)
{
    ippsSet_32s(static_cast<int>(value), static_cast<int*>(destination), static_cast<int>(count));
}

void Memset64(void* destination, unsigned long value, unsigned int count)
{
    ippsSet_64s(static_cast<long>(value), static_cast<long*>(destination), static_cast<int>(count));
}

} // namespace Vx
