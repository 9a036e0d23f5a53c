// detail/RefCount.h - Reads and drops a reference count that threads share.
#pragma once

// ThreadSanitizer sees the atomic operations of code that was compiled for it. The released
// libraries are not, so they report theirs, if it is in the process.
#ifdef VX_REPORT_TO_TSAN
extern "C" [[gnu::weak]] void __tsan_acquire(void* address);
extern "C" [[gnu::weak]] void __tsan_release(void* address);
#endif

namespace Vx {
namespace detail {

/// Returns \p count. If it is 1, the caller sees what the holders before it have written.
inline unsigned int readCount(unsigned int* count) noexcept
{
    const unsigned int value = __atomic_load_n(count, __ATOMIC_ACQUIRE);
#ifdef VX_REPORT_TO_TSAN
    if (__builtin_expect(__tsan_acquire != nullptr, false))
        __tsan_acquire(count);
#endif
    return value;
}

/// Decrements \p count. \returns true if it is 0 now
inline bool dropCount(unsigned int* count) noexcept
{
#ifdef VX_REPORT_TO_TSAN
    if (__builtin_expect(__tsan_release != nullptr, false))
        __tsan_release(count);
#endif
    if (__atomic_sub_fetch(count, 1u, __ATOMIC_SEQ_CST) != 0)
        return false;
#ifdef VX_REPORT_TO_TSAN
    if (__builtin_expect(__tsan_acquire != nullptr, false))
        __tsan_acquire(count);
#endif
    return true;
}

} // namespace detail
} // namespace Vx
