#include <Testing.h>
#include <Vx/VxMemset.h>

namespace {

// Fills the middle of a buffer, whose ends must not change.
template <class T, class Fill> void expectFilled(Fill fill, T value)
{
    constexpr T kGuard = static_cast<T>(0x5A5A5A5A5A5A5A5A);
    for (unsigned int count : {0u, 1u, 2u, 3u, 7u, 64u, 1000u}) {
        SCOPED_TRACE(count);
        std::vector<T> buffer(count + 2, kGuard);
        fill(buffer.data() + 1, value, count);
        std::vector<T> expected(count + 2, value);
        expected.front() = expected.back() = kGuard;
        EXPECT_EQ(buffer, expected);
    }
}

} // namespace

TEST(VxMemset, FillsElementsNotBytes)
{
    expectFilled<std::uint8_t>(Vx::Memset, 0xFE);
    expectFilled<std::uint16_t>(Vx::Memset16, 0xFEDC);
    expectFilled<std::uint32_t>(Vx::Memset32, 0xFEDCBA98);
    expectFilled<std::uint64_t>(Vx::Memset64, 0xFEDCBA9876543210);
}
