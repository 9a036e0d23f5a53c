#include <Vx/VxCRC.h>

#include <Testing.h>
#include <Vx/detail/CrcFold.h>

namespace {

unsigned int bitByBit(const unsigned char* bytes, std::size_t length, unsigned int crc = 0)
{
    for (; length != 0; ++bytes, --length)
        for (int bit = 0; bit < 8; ++bit) {
            const bool top = (crc & 0x80000000u) != 0;
            crc = crc << 1 | (*bytes >> bit & 1u);
            if (top)
                crc ^= 0x2Du;
        }
    return crc;
}

} // namespace

TEST(CRC, KnownValues)
{
    using Vx::CRC::CalculateCRC32ForBlock;
    EXPECT_EQ(CalculateCRC32ForBlock("A", 1), 0x00000082u);
    EXPECT_EQ(CalculateCRC32ForBlock("123456789", 9), 0xECF6681Eu);
    EXPECT_EQ(CalculateCRC32ForBlock("\xFF\xFF\xFF\xFF\xFF", 5), 0xFFFFE4E4u);
    EXPECT_EQ(CalculateCRC32ForBlock(nullptr, 0), 0u);
}

TEST(CRC, OneByteIsEightStepsOfTheRegister)
{
    // The top byte of the register is fed back, the rest only moves.
    for (unsigned int byte = 0; byte < 256; ++byte)
        for (unsigned int high = 0; high < 256; ++high)
            for (unsigned int low : {0u, 0x00ABCDEFu, 0x00FFFFFFu}) {
                const unsigned char input = static_cast<unsigned char>(byte);
                const unsigned int crc = high << 24 | low;
                ASSERT_EQ(Vx::CRC::IterateCRC32(static_cast<char>(byte), crc),
                          bitByBit(&input, 1, crc))
                    << byte << " into " << crc;
            }
}

TEST(CRC, FoldedAndPlainBlocksOfEveryLengthAndAlignmentFollowTheRule)
{
    Seeded random;
    std::vector<unsigned char> bytes(5000);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    const auto check = [&](std::size_t start, std::size_t length) {
        const unsigned char* const block = bytes.data() + start;
        const unsigned int expected = bitByBit(block, length);
        ASSERT_EQ(Vx::CRC::CalculateCRC32ForBlock(block, length), expected) << length;
        ASSERT_EQ(Vx::detail::crcOfBlockPlain(block, length), expected) << length;
    };
    for (std::size_t start = 0; start < 8; ++start)
        for (std::size_t length = 0; length < 300; ++length)
            check(start, length);
    for (std::size_t length = 300; length <= bytes.size(); length += 47)
        check(0, length);
}
