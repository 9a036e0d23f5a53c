// The fills of libVxIPP.so, compared with a loop.

#include <Testing.h>
#include <Vx/platform/ipps.h>
#include <climits>
#include <sys/mman.h>

namespace {

template <auto Fill, class T, T Value> struct Kind {
    using Element = T;
    static constexpr auto fill = Fill;
    static constexpr T kValue = Value;
};
using Kinds = testing::Types<Kind<ippsSet_8u, unsigned char, 0xC3>,
                             Kind<ippsSet_16s, short, -0x1235>, Kind<ippsSet_32s, int, -0x12345679>,
                             Kind<ippsSet_64s, long, -0x123456789ABCDEF1>,
                             Kind<ippsSet_64s, long, 0x1234567812345678>>;
template <class Kind> class IppFill : public testing::Test {};
TYPED_TEST_SUITE(IppFill, Kinds);

// Fills count elements \p offset bytes into a block and compares the whole block.
template <class Kind> void expectFills(std::size_t offset, int count)
{
    using Element = typename Kind::Element;
    constexpr std::size_t kAround = 64;
    const std::size_t filled = count > 0 ? sizeof(Element) * static_cast<std::size_t>(count) : 0;
    std::vector<unsigned char> block(kAround + offset + filled + kAround, 0x5A);
    std::vector<unsigned char> expected = block;
    for (std::size_t at = 0; at < filled; at += sizeof(Element))
        std::memcpy(&expected[kAround + offset + at], &Kind::kValue, sizeof(Element));

    void* const to = &block[kAround + offset]; // perhaps not aligned for its type
    EXPECT_EQ(Kind::fill(Kind::kValue, static_cast<Element*>(to), count), 0);
    ASSERT_TRUE(block == expected) << count << " elements at offset " << offset;
}

constexpr std::size_t kPiece = std::size_t(2) << 20;

// Maps a file of one piece \p times over, one after another.
void mapAgainAndAgain(unsigned char* to, std::size_t times)
{
    const int file = memfd_create("fill", 0);
    ASSERT_EQ(ftruncate(file, kPiece), 0);
    for (; times != 0; --times, to += kPiece)
        ASSERT_NE(mmap(to, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED | MAP_POPULATE,
                       file, 0),
                  MAP_FAILED);
    close(file);
}

TYPED_TEST(IppFill, WritesExactlyItsElementsAtAnyAddress)
{
    for (std::size_t offset = 0; offset < 32 && !this->HasFatalFailure(); ++offset) {
        for (int count = 0; count < 70; ++count)
            expectFills<TypeParam>(offset, count);
        for (int count : {127, 128, 129, 511, 512, 513, 4096, 4100, 65535, -1, INT_MIN})
            expectFills<TypeParam>(offset, count);
    }
}

TYPED_TEST(IppFill, CountsBytesBeyondTwoAndFourGiB)
{
    using Element = typename TypeParam::Element;
    // So many pieces in 2 MiB of memory, and another one that the fill ends in.
    const std::size_t pieces = sizeof(Element) == 8 ? 2048 : sizeof(Element) == 1 ? 1023 : 1024;
    const std::size_t size = (pieces + 1) * kPiece;
    void* const start =
        mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    unsigned char* const last = static_cast<unsigned char*>(start) + pieces * kPiece;
    mapAgainAndAgain(static_cast<unsigned char*>(start), pieces);
    mapAgainAndAgain(last, 1);
    const std::size_t tail = 4096 / sizeof(Element);
    TypeParam::fill(TypeParam::kValue, static_cast<Element*>(start),
                    static_cast<int>(pieces * (kPiece / sizeof(Element)) + tail));
    std::vector<Element> expected(tail, TypeParam::kValue);
    EXPECT_EQ(std::memcmp(start, expected.data(), tail * sizeof(Element)), 0);
    expected.push_back(0);
    EXPECT_EQ(std::memcmp(last, expected.data(), expected.size() * sizeof(Element)), 0);
    munmap(start, size);
}

} // namespace
