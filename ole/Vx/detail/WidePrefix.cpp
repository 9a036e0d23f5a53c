#include <Vx/detail/WidePrefix.h>

#ifndef VX_PLAIN
#include <Vx/detail/WidePrefixAvx.h>
#endif

std::size_t Vx::detail::commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
#ifndef VX_PLAIN
    // Asked in each call: choosing once would take an indirect function, which the loader resolves
    // before a sanitizer has started, or a jump through a pointer in writable memory. Processors
    // with VBMI2 hardly slow their clock for 512 bits. Each jump on the way shows in comparisons of
    // paths, hence the hint.
    if (count >= 64 && __builtin_cpu_supports("avx512vbmi2"))
        return commonPrefixAvx512(a, b, count);
    if (__builtin_expect(count >= 8 && __builtin_cpu_supports("avx2"), true))
        return commonPrefixAvx2(a, b, count);
#endif
    // Other processors use the plain loop.
    return commonPrefixPlain(a, b, count);
}
