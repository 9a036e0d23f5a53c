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

// A range of more than 2 GiB in 4 MiB of memory: one file mapped again and again, and another one
// at the end.
class LongRange {
public:
    static constexpr std::size_t kPiece = std::size_t(2) << 20;

    explicit LongRange(std::size_t pieces) : size_((pieces + 1) * kPiece)
    {
        start_ = static_cast<unsigned char*>(
            mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        for (const std::size_t end : {pieces, pieces + 1}) {
            const int file = memfd_create("fill", 0);
            EXPECT_EQ(ftruncate(file, kPiece), 0);
            for (; mapped_ < end; ++mapped_)
                EXPECT_NE(mmap(start_ + mapped_ * kPiece, kPiece, PROT_READ | PROT_WRITE,
                               MAP_SHARED | MAP_FIXED | MAP_POPULATE, file, 0),
                          MAP_FAILED);
            close(file);
        }
    }
    ~LongRange() { munmap(start_, size_); }
    LongRange(const LongRange&) = delete;
    LongRange& operator=(const LongRange&) = delete;

    void* start() const { return start_; }
    const unsigned char* last() const { return start_ + size_ - kPiece; }

private:
    std::size_t size_;
    unsigned char* start_;
    std::size_t mapped_ = 0;
};

TYPED_TEST(IppFill, WritesExactlyItsElementsAtAnyAddress)
{
    for (std::size_t offset = 0; offset < 32 && !this->HasFatalFailure(); ++offset) {
        for (int count = 0; count < 70; ++count)
            expectFills<TypeParam>(offset, count);
        for (int count : {511, 512, 513, 4096, 4100, 65535, -1, INT_MIN})
            expectFills<TypeParam>(offset, count);
    }
}

TYPED_TEST(IppFill, CountsBytesBeyondTwoAndFourGiB)
{
    using Element = typename TypeParam::Element;
    const std::size_t pieces = sizeof(Element) == 8 ? 2048 : sizeof(Element) == 1 ? 1023 : 1024;
    const LongRange range(pieces);
    const std::size_t tail = 4096 / sizeof(Element);
    TypeParam::fill(TypeParam::kValue, static_cast<Element*>(range.start()),
                    static_cast<int>(pieces * (range.kPiece / sizeof(Element)) + tail));
    std::vector<Element> expected(tail, TypeParam::kValue);
    expected.push_back(0);
    EXPECT_EQ(std::memcmp(range.last(), expected.data(), expected.size() * sizeof(Element)), 0);
    EXPECT_EQ(std::memcmp(range.start(), expected.data(), tail * sizeof(Element)), 0);
}

} // namespace
