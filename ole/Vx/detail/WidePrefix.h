// detail/WidePrefix.h - Counts the equal characters at the start of two wide strings.
#pragma once

#include <Vx/VxExport.h>
#include <cstddef>

namespace Vx {
namespace detail {

/// Returns the first index below \p count at which \p a and \p b differ, or \p count.
inline std::size_t commonPrefixPlain(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept
{
    std::size_t i = 0;
    while (i < count && a[i] == b[i])
        ++i;
    return i;
}

/// The same, up to 32 characters at a time on processors with AVX2. wmemcmp() is faster still, but
/// orders characters as signed numbers and does not tell where they differ.
VX_API std::size_t commonPrefix(const wchar_t* a, const wchar_t* b, std::size_t count) noexcept;

} // namespace detail
} // namespace Vx
