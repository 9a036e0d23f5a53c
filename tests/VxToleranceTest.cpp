#include <Vx/VxTolerance.h>

#include <Testing.h>
#include <cmath>

namespace {

float floatOf(std::uint32_t bits) { return bitCast<float>(bits); }
double doubleOf(std::uint64_t bits) { return bitCast<double>(bits); }

/// The number \p places away from zero.
float beyond(float value, int places)
{
    return floatOf(bitCast<std::uint32_t>(value) + static_cast<std::uint32_t>(places));
}
double beyond(double value, int places)
{
    return doubleOf(bitCast<std::uint64_t>(value) + static_cast<std::uint64_t>(places));
}

template <class T> struct Tolerance : testing::Test {};
using Types = testing::Types<float, double>;
TYPED_TEST_SUITE(Tolerance, Types);

} // namespace

TYPED_TEST(Tolerance, Is99UnitsInBothDirectionsAndAcrossZero)
{
    using T = TypeParam;
    const struct {
        T a, b;
        bool equal;
    } rows[] = {
        {T(1), beyond(T(1), 99), true},
        {T(1), beyond(T(1), 100), false},
        {beyond(T(1), 99), T(1), true},
        {beyond(T(1), 100), T(1), false},
        {T(-0.0), beyond(T(0), 99), true},
        {T(-0.0), beyond(T(0), 100), false},
        {beyond(T(-0.0), 50), beyond(T(0), 49), true},
        {beyond(T(-0.0), 50), beyond(T(0), 50), false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(TolerantEq<T>(row.a, row.b), row.equal) << row.a << " and " << row.b;
}

TYPED_TEST(Tolerance, DeliberatelyPutsANegativeSecondArgumentOneUnitFurtherDown)
{
    using T = TypeParam;
    // Equal negative values are 1 apart.
    const T value = T(-1);
    EXPECT_TRUE(TolerantEq<T>(beyond(value, 98), value));
    EXPECT_FALSE(TolerantEq<T>(beyond(value, 99), value));
    EXPECT_TRUE(TolerantEq<T>(value, beyond(value, 100)));
    EXPECT_FALSE(TolerantEq<T>(value, beyond(value, 101)));
    EXPECT_TRUE(TolerantEq<T>(beyond(T(0), 100), T(-0.0)));
    EXPECT_FALSE(TolerantEq<T>(beyond(T(0), 101), T(-0.0)));
}

TYPED_TEST(Tolerance, ComparesSpecialValuesByTheirBits)
{
    using T = TypeParam;
    const T infinity = std::numeric_limits<T>::infinity();
    const T nan = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(TolerantEq<T>(infinity, std::numeric_limits<T>::max()));
    EXPECT_TRUE(TolerantEq<T>(nan, nan));
    EXPECT_FALSE(TolerantEq<T>(nan, T(1)));
    EXPECT_FALSE(TolerantEq<T>(infinity, -infinity));
}

TEST(TolerantEq, DeliberatelyTakesTheMostNegativeDistanceForSmall)
{
    EXPECT_TRUE(TolerantEq<float>(-1.0f, 4.0f) && TolerantEq<double>(-2.0, 2.0));
    EXPECT_FALSE(TolerantEq<float>(4.0f, -1.0f) || TolerantEq<double>(2.0, -2.0));
    // Bits 0x40000000 against 0xC0000001, mapped to -0x40000000: 2^31 apart.
    EXPECT_TRUE(TolerantEq<float>(floatOf(0x40000000u), floatOf(0xC0000001u)));
    EXPECT_FALSE(TolerantEq<float>(floatOf(0x40000001u), floatOf(0xC0000001u)));
    EXPECT_FALSE(TolerantEq<float>(floatOf(0x3FFFFFFFu), floatOf(0xC0000001u)));
    EXPECT_TRUE(TolerantEq<double>(doubleOf(0x4000000000000000u), doubleOf(0xC000000000000001u)));
    EXPECT_FALSE(TolerantEq<double>(doubleOf(0x4000000000000001u), doubleOf(0xC000000000000001u)));
}

TEST(TolerantGt, IsGreaterBeyondTheTolerance)
{
    EXPECT_TRUE(TolerantGt<double>(2.0, 1.0));
    EXPECT_TRUE(TolerantGt<double>(-1.0, -2.0));
    EXPECT_FALSE(TolerantGt<double>(1.0, 2.0));
    EXPECT_FALSE(TolerantGt<double>(beyond(1.0, 99), 1.0));
    EXPECT_TRUE(TolerantGt<double>(beyond(1.0, 100), 1.0));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (double other : {nan, -nan, 0.0, 1.0, -1.0})
        EXPECT_FALSE(TolerantGt<double>(nan, other) || TolerantGt<double>(other, nan));
}
