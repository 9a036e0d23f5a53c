#include <Vx/VxTolerance.h>

#include <Testing.h>
#include <bit>
#include <cmath>

namespace {

float floatOf(std::uint32_t bits) { return std::bit_cast<float>(bits); }
double doubleOf(std::uint64_t bits) { return std::bit_cast<double>(bits); }

/// The number \p places further from zero.
float beyond(float value, int places)
{
    return floatOf(std::bit_cast<std::uint32_t>(value) + static_cast<std::uint32_t>(places));
}
double beyond(double value, int places)
{
    return doubleOf(std::bit_cast<std::uint64_t>(value) + static_cast<std::uint64_t>(places));
}

/// The rule, word for word.
template <class T> bool plainEq(T a, T b)
{
    using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
    using Signed = std::make_signed_t<Bits>;
    constexpr Bits kSign = Bits(1) << (8 * sizeof(T) - 1);
    Bits ia = std::bit_cast<Bits>(a), ib = std::bit_cast<Bits>(b);
    if ((ia & kSign) != 0)
        ia = kSign - ia;
    if ((ib & kSign) != 0)
        ib = kSign + 1 - ib;
    Bits distance = ia - ib;
    if (Signed(distance) < 0)
        distance = Bits(0) - distance;
    return Signed(distance) <= 99;
}

template <class T> struct Tolerance : testing::Test {};
using Types = testing::Types<float, double>;
TYPED_TEST_SUITE(Tolerance, Types);

} // namespace

TYPED_TEST(Tolerance, DeliberatelyPutsANegativeSecondArgumentOnePlaceFurther)
{
    using T = TypeParam;
    // Mapped to -bits for a and 1 - bits for b: at equal values they are 1 apart.
    const T value = T(-1);
    EXPECT_TRUE(TolerantEq<T>(value, value));
    EXPECT_TRUE(TolerantEq<T>(beyond(value, 98), value));
    EXPECT_FALSE(TolerantEq<T>(beyond(value, 99), value));
    EXPECT_TRUE(TolerantEq<T>(value, beyond(value, 100)));
    EXPECT_FALSE(TolerantEq<T>(value, beyond(value, 101)));
    EXPECT_TRUE(TolerantEq<T>(beyond(T(0), 98), T(-0.0)) &&
                TolerantEq<T>(beyond(T(0), 100), T(-0.0)));
    EXPECT_FALSE(TolerantEq<T>(beyond(T(0), 101), T(-0.0)));
}

TYPED_TEST(Tolerance, JudgesSpecialValuesByTheirBits)
{
    using T = TypeParam;
    const T infinity = std::numeric_limits<T>::infinity();
    const T nan = std::numeric_limits<T>::quiet_NaN();
    EXPECT_TRUE(TolerantEq<T>(infinity, std::numeric_limits<T>::max()));
    EXPECT_TRUE(TolerantEq<T>(nan, nan));
    EXPECT_FALSE(TolerantEq<T>(nan, T(1)));
    EXPECT_FALSE(TolerantEq<T>(infinity, -infinity));
}

TEST(TolerantEq, TheMostNegativeDistanceIsItsOwnAbsoluteValue)
{
    // Bits 0x40000000 against 0xC0000001, mapped to -0x40000000: 2^31 apart.
    EXPECT_TRUE(TolerantEq<float>(floatOf(0x40000000u), floatOf(0xC0000001u)));
    EXPECT_FALSE(TolerantEq<float>(floatOf(0x40000001u), floatOf(0xC0000001u)));
    EXPECT_FALSE(TolerantEq<float>(floatOf(0x3FFFFFFFu), floatOf(0xC0000001u)));
    EXPECT_TRUE(TolerantEq<double>(doubleOf(0x4000000000000000u), doubleOf(0xC000000000000001u)));
    EXPECT_FALSE(TolerantEq<double>(doubleOf(0x4000000000000001u), doubleOf(0xC000000000000001u)));
}

TYPED_TEST(Tolerance, FollowsTheRuleForRandomBits)
{
    using Bits = std::conditional_t<sizeof(TypeParam) == 4, std::uint32_t, std::uint64_t>;
    constexpr Bits kSign = Bits(1) << (8 * sizeof(TypeParam) - 1);
    Seeded seed;
    std::mt19937_64 random(seed());
    int equal = 0;
    for (int i = 0; i < 200000; ++i) {
        const Bits a = static_cast<Bits>(random()) >> random() % 30;
        // Near a, near its mirror image, or anywhere.
        Bits b = static_cast<Bits>(random());
        if (i % 3 != 0)
            b = (i % 3 == 1 ? a : kSign - a) + b % 256 - 128;
        const auto x = std::bit_cast<TypeParam>(a), y = std::bit_cast<TypeParam>(b);
        ASSERT_EQ(TolerantEq<TypeParam>(x, y), plainEq(x, y)) << a << " and " << b;
        equal += TolerantEq<TypeParam>(x, y);
    }
    EXPECT_GT(equal, 1000);
}

TEST(TolerantGt, IsGreaterBeyondTheTolerance)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(TolerantGt<double>(1.0, 1.0 + 1e-15));
    EXPECT_FALSE(TolerantGt<double>(1.0 + 1e-15, 1.0));
    EXPECT_TRUE(TolerantGt<double>(2.0, 1.0));
    EXPECT_FALSE(TolerantGt<double>(1.0, 2.0));
    EXPECT_FALSE(TolerantGt<double>(beyond(1.0, 99), 1.0));
    EXPECT_TRUE(TolerantGt<double>(beyond(1.0, 100), 1.0));
    EXPECT_TRUE(TolerantGt<double>(-1.0, -2.0));
    for (double other : {nan, -nan, 0.0, 1.0, -1.0}) {
        EXPECT_FALSE(TolerantGt<double>(nan, other));
        EXPECT_FALSE(TolerantGt<double>(other, nan));
    }
}
