// The fills of libVxIPP.so against the loop that they stand for.

#include <Testing.h>
#include <Vx/platform/ipps.h>
#include <climits>

namespace {

template <auto Fill, class T, T Value> struct Kind {
    using Element = T;
    static constexpr auto fill = Fill;
    static constexpr T kValue = Value;
};
using Kinds = testing::Types<Kind<ippsSet_8u, unsigned char, 0xC3>,
                             Kind<ippsSet_16s, short, -0x1235>, Kind<ippsSet_32s, int, -0x12345679>,
                             Kind<ippsSet_64s, long, -0x123456789ABCDEF1>>;
template <class Kind> class IppFill : public testing::Test {};
TYPED_TEST_SUITE(IppFill, Kinds);

// Fills count elements \p offset bytes into a block and compares all of the block.
template <class Kind> void expectFills(std::size_t offset, int count)
{
    using Element = typename Kind::Element;
    constexpr std::size_t kAround = 64;
    const std::size_t filled = count > 0 ? sizeof(Element) * static_cast<std::size_t>(count) : 0;
    std::vector<unsigned char> block(kAround + offset + filled + kAround, 0x5A);
    std::vector<unsigned char> expected = block;
    for (std::size_t at = 0; at < filled; at += sizeof(Element))
        std::memcpy(&expected[kAround + offset + at], &Kind::kValue, sizeof(Element));

    // By bytes, since the pointer need not be aligned for its type.
    unsigned char* const to = &block[kAround + offset];
    EXPECT_EQ(Kind::fill(Kind::kValue, static_cast<Element*>(static_cast<void*>(to)), count), 0);
    ASSERT_TRUE(block == expected) << count << " elements " << offset << " bytes further";
}

TYPED_TEST(IppFill, WritesExactlyItsElementsAtAnyAddress)
{
    for (std::size_t offset = 0; offset < 32 && !this->HasFatalFailure(); ++offset) {
        for (int count = 0; count < 200; ++count)
            expectFills<TypeParam>(offset, count);
        for (int count : {511, 512, 513, 4096, 4100, 65535, 300001, -1, -1000, INT_MIN})
            expectFills<TypeParam>(offset, count);
    }
}

} // namespace
