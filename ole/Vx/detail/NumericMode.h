// detail/NumericMode.h - Whether libc's number functions agree with std::from_chars and to_chars.
#pragma once

#include <langinfo.h>
#ifdef __x86_64__
#include <emmintrin.h>
#include <fpu_control.h>
#else
#include <cfenv>
#endif

namespace Vx::detail {

/// Whether the decimal point of this thread's numeric locale is '.'. The locale may change at any
/// time and a thread may have its own, so the answer must not be cached.
inline bool decimalPointIsDot() noexcept
{
    const char* const point = nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == 0;
}

/// Whether this thread rounds to nearest. On x86-64, libc follows the x87 control word and
/// compiled arithmetic the SSE one, and either can be changed alone: both have to.
inline bool roundsToNearest() noexcept
{
#ifdef __x86_64__
    fpu_control_t x87;
    _FPU_GETCW(x87);
    return (x87 & _FPU_RC_ZERO) == _FPU_RC_NEAREST &&
           (_mm_getcsr() & _MM_ROUND_MASK) == _MM_ROUND_NEAREST;
#else
    return std::fegetround() == FE_TONEAREST;
#endif
}

} // namespace Vx::detail
