// detail/FixedDecimals.h - Writes a double as "%.Nf" does, by exact 128-bit arithmetic.
//
// For magnitudes below 2^64, up to nine decimals, a '.' as decimal point and rounding to nearest.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace Vx::detail {

inline constexpr unsigned int kFixedDecimalsSize = 32; // sign, 20 digits, point, 9 decimals, NUL

/// Writes \p value to \p buffer, of kFixedDecimalsSize characters. \returns how many it wrote
inline unsigned int writeFixedPlain(char* buffer, double value, int decimals)
{
    return static_cast<unsigned int>(
        std::snprintf(buffer, kFixedDecimalsSize, "%.*f", decimals, value));
}

#ifndef VX_PLAIN
struct FixedDecimals {
    std::uint64_t whole;
    std::uint64_t decimals; // in units of the last one
};

/// Rounds mantissa / 2^shift, for a shift of at least 1, to decimals of which \p scale make one.
inline FixedDecimals roundFixed(std::uint64_t mantissa, int shift, std::uint64_t scale)
{
    if (shift >= 98)
        return {0, 0}; // below 2^-45, too small for nine decimals
    __extension__ using Wide = unsigned __int128;
    const std::uint64_t whole = shift < 64 ? mantissa >> shift : 0;
    const std::uint64_t rest = shift < 64 ? mantissa - (whole << shift) : mantissa;
    const Wide scaled = Wide(rest) * scale;
    const Wide remainder = scaled & ((Wide(1) << shift) - 1);
    const Wide half = Wide(1) << (shift - 1);
    std::uint64_t decimals = static_cast<std::uint64_t>(scaled >> shift);
    // A tie goes to the even digit.
    const bool odd = ((scale != 1 ? decimals : whole) & 1) != 0;
    if (remainder > half || (remainder == half && odd))
        ++decimals;
    return decimals == scale ? FixedDecimals{whole + 1, 0} : FixedDecimals{whole, decimals};
}

inline unsigned int writeFixed(char* buffer, double value, int decimals)
{
    constexpr std::uint64_t kTenTo[] = {1,       10,        100,        1'000,       10'000,
                                        100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};
    const std::uint64_t scale = kTenTo[decimals];
    // value = mantissa / 2^shift
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int biased = static_cast<int>(bits >> 52 & 0x7FF);
    const std::uint64_t stored = bits & ((std::uint64_t(1) << 52) - 1);
    const std::uint64_t mantissa = biased != 0 ? stored | std::uint64_t(1) << 52 : stored;
    const int shift = biased != 0 ? 1075 - biased : 1074;
    const FixedDecimals number =
        shift <= 0 ? FixedDecimals{mantissa << -shift, 0} : roundFixed(mantissa, shift, scale);

    char* const end = buffer + kFixedDecimalsSize - 1;
    char* out = buffer;
    if (bits >> 63 != 0)
        *out++ = '-';
    out = std::to_chars(out, end, number.whole).ptr;
    if (decimals != 0) {
        // A leading 1 keeps the zeros after it, then makes room for the point.
        char* const point = out;
        out = std::to_chars(out, end, number.decimals + scale).ptr;
        *point = '.';
    }
    return static_cast<unsigned int>(out - buffer);
}
#else
inline unsigned int writeFixed(char* buffer, double value, int decimals)
{
    return writeFixedPlain(buffer, value, decimals);
}
#endif

} // namespace Vx::detail
