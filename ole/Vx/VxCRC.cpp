#include <Vx/VxCRC.h>

#include <Vx/detail/CrcFold.h>

unsigned int Vx::CRC::IterateCRC32(char byte, unsigned int crc)
{
    return detail::crcOfByte(static_cast<unsigned char>(byte), crc);
}

unsigned int Vx::CRC::CalculateCRC32ForBlock(const void* data, unsigned long length)
{
    return detail::crcOfBlock(static_cast<const unsigned char*>(data), length);
}
