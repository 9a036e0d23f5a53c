// detail/StringBlock.h - What the templates of LightweightString.h share: sizes and operands.
#pragma once

#include <Vx/VxFwd.h>
#include <Vx/detail/WidePrefix.h>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#ifdef __cpp_impl_three_way_comparison
#include <compare>
#endif

namespace Vx {
namespace detail {

[[noreturn]] inline void throwTooLong()
{
    throw std::length_error("LightweightString: too many characters");
}

/// Returns \p length as a string stores it.
/// \throws std::length_error if it does not fit in 32 bits
inline unsigned int checkedLength(std::size_t length)
{
    if (length > 0xFFFFFFFFu)
        throwTooLong();
    return static_cast<unsigned int>(length);
}

/// Returns the slots of a block for \p length characters: the smallest power of two greater than
/// \p length, or length + 1.
/// \throws std::length_error if that does not fit in 32 bits
inline unsigned int capacityFor(unsigned int length, bool powerOfTwo)
{
    if (length >= (powerOfTwo ? 0x80000000u : 0xFFFFFFFFu))
        throwTooLong();
    if (!powerOfTwo || length == 0)
        return length + 1;
    return 1u << (32 - __builtin_clz(length));
}

// The other operand of an operator of a string of Ch: a `const Ch*`, a string, or a type that
// converts to a view, such as std::basic_string. A literal 0 is none of these.
template <class Ch, class T>
inline constexpr bool kIsPointer = std::is_convertible_v<const T&, const Ch*>;
template <class Ch, class T>
inline constexpr bool kIsString = std::is_convertible_v<const T*, const LightweightString<Ch>*>;
template <class Ch, class T>
inline constexpr bool kIsView = std::is_convertible_v<const T&, std::basic_string_view<Ch>> &&
                                !kIsPointer<Ch, T> && !kIsString<Ch, T>;

template <class Ch, class T>
using IfText = std::enable_if_t<kIsPointer<Ch, T> || kIsString<Ch, T> || kIsView<Ch, T>, int>;
template <class Ch, class T>
using IfPointerOrView = std::enable_if_t<kIsPointer<Ch, T> || kIsView<Ch, T>, int>;
template <class Ch, class T> using IfView = std::enable_if_t<kIsView<Ch, T>, int>;

/// The type that a T that is not a string is converted to.
template <class Ch, class T>
using Operand = std::conditional_t<kIsPointer<Ch, T>, const Ch*, std::basic_string_view<Ch>>;

/// Returns the characters up to the NUL, none if \p chars is null.
template <class Ch> std::basic_string_view<Ch> viewOfPointer(const Ch* chars) noexcept
{
    return chars != nullptr ? std::basic_string_view<Ch>(chars) : std::basic_string_view<Ch>();
}

/// Returns the characters of \p text, none if it is a null pointer.
template <class Ch, class T> std::basic_string_view<Ch> viewOf(const T& text) noexcept
{
    if constexpr (kIsPointer<Ch, T>)
        return viewOfPointer<Ch>(text);
    else
        return text;
}

template <class Ch>
inline bool equal(std::basic_string_view<Ch> a, std::basic_string_view<Ch> b) noexcept
{
    if (a.size() != b.size())
        return false;
    // Copies of a string are compared often, and share their characters.
    if (a.data() == b.data())
        return true;
    return std::char_traits<Ch>::compare(a.data(), b.data(), a.size()) == 0;
}

/// Compares characters as unsigned numbers, then lengths. \returns a negative number, 0 or a
/// positive number
inline int compare(std::string_view a, std::string_view b) noexcept { return a.compare(b); }
inline int compare(std::wstring_view a, std::wstring_view b) noexcept
{
    const std::size_t common = a.size() < b.size() ? a.size() : b.size();
    const std::size_t i = commonPrefix(a.data(), b.data(), common);
    if (i != common)
        return static_cast<unsigned int>(a[i]) < static_cast<unsigned int>(b[i]) ? -1 : 1;
    return (a.size() > b.size()) - (a.size() < b.size());
}

} // namespace detail
} // namespace Vx
