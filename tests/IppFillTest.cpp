// The fills of libVxIPP.so against the loop that they stand for.

#include <Testing.h>
#include <Vx/platform/ipps.h>
#include <climits>

namespace {

struct Fill8 {
    using Element = unsigned char;
    static constexpr auto fill = ippsSet_8u;
    static constexpr Element kValue = 0xC3;
};
struct Fill16 {
    using Element = short;
    static constexpr auto fill = ippsSet_16s;
    static constexpr Element kValue = -0x1235;
};
struct Fill32 {
    using Element = int;
    static constexpr auto fill = ippsSet_32s;
    static constexpr Element kValue = -0x12345679;
};
struct Fill64 {
    using Element = long;
    static constexpr auto fill = ippsSet_64s;
    static constexpr Element kValue = -0x123456789ABCDEF1;
};

template <class Kind> class IppFill : public testing::Test {};
using Kinds = testing::Types<Fill8, Fill16, Fill32, Fill64>;
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
