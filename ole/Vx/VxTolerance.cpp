#include <Vx/VxTolerance.h>

#include <cstdint>
#include <cstring>

namespace {

// std::bit_cast, which g++ 10 lacks.
template <class Bits, class Number> Bits bitsOf(Number number)
{
    static_assert(sizeof(Bits) == sizeof(Number));
    Bits bits;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

// Bit patterns as unsigned numbers, so that all arithmetic wraps.
template <class Bits> bool within99(Bits a, Bits b)
{
    constexpr Bits kSign = Bits(1) << (8 * sizeof(Bits) - 1);
    if ((a & kSign) != 0)
        a = kSign - a;
    // Deliberate: one more than for the first argument, so a negative second argument is one unit
    // further down. Stored results depend on it.
    if ((b & kSign) != 0)
        b = kSign + 1 - b;
    Bits distance = a - b;
    if ((distance & kSign) != 0)
        distance = Bits(0) - distance;
    // Deliberate: the most negative number is its own absolute value, still negative, and so below
    // the limit. Stored results depend on this, too.
    return distance <= 99 || distance == kSign;
}

} // namespace

template <> bool TolerantEq<float>(float a, float b)
{
    return within99(bitsOf<std::uint32_t>(a), bitsOf<std::uint32_t>(b));
}

template <> bool TolerantEq<double>(double a, double b)
{
    return within99(bitsOf<std::uint64_t>(a), bitsOf<std::uint64_t>(b));
}

template <> bool TolerantGt<double>(double a, double b) { return !TolerantEq(a, b) && a > b; }
