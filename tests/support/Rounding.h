// Rounding.h - Sets the rounding modes of the two floating-point units apart.
#pragma once

#include <cfenv>
#include <xmmintrin.h>

inline constexpr int kRoundingModes[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};

/// Sets the mode of compiled arithmetic (SSE) and that of libc's conversions (x87).
inline void setRounding(int sse, int x87)
{
    std::fesetround(x87); // of both
    // The SSE control register holds the same two bits, three places higher.
    _mm_setcsr((_mm_getcsr() & ~static_cast<unsigned int>(_MM_ROUND_MASK)) |
               static_cast<unsigned int>(sse) << 3);
}
