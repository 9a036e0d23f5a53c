// detail/NumberReader.h - Reads ordinary decimal numbers as sscanf and strtod do, without them.
//
// The functions return nothing where libc has to answer: the plain build asks it every time.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/detail/NumericMode.h>
#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

namespace Vx::detail {

template <class Ch> constexpr bool isDigit(Ch c) { return c >= '0' && c <= '9'; }

/// Skips the white space that every locale knows. Some know more, none of it printable ASCII.
template <class Ch> const Ch* skipBlanks(const Ch* chars)
{
    while (*chars == ' ' || (*chars >= '\t' && *chars <= '\r'))
        ++chars;
    return chars;
}

/// Reads the number at the start of a NUL-terminated string, as "%d" and strtoll do.
template <class Ch> std::optional<long> readInteger([[maybe_unused]] const Ch* chars)
{
#ifndef VX_PLAIN
    chars = skipBlanks(chars);
    const bool negative = *chars == '-';
    if (negative || *chars == '+')
        ++chars;
    const Ch* const digits = chars;
    unsigned long value = 0;
    for (; isDigit(*chars); ++chars)
        value = 10 * value + static_cast<unsigned long>(*chars - '0');
    // 18 digits cannot overflow. For more, each libc function has a rule of its own.
    if (chars != digits && chars - digits <= 18)
        return negative ? -static_cast<long>(value) : static_cast<long>(value);
#endif
    return {};
}

/// Reads the number at the start of \p text, which a NUL follows, as "%lf" and strtod do. The
/// C++ library of g++ 10 has no std::from_chars for it; there libc answers.
inline std::optional<double> readDouble([[maybe_unused]] std::string_view text)
{
#if !defined(VX_PLAIN) && defined(__cpp_lib_to_chars)
    const char* first = skipBlanks(text.data());
    const char* const last = text.data() + text.size();
    const bool negative = *first == '-';
    if (negative || *first == '+')
        ++first;
    // Infinities and not-a-numbers are left to libc, and so are other points and roundings.
    if (!(isDigit(*first) || *first == '.') || !decimalPointIsDot() || !roundsToNearest())
        return {};
    double value = 0.0;
    const std::from_chars_result read = std::from_chars(first, last, value);
    const char* const end = read.ptr;
    // "0x10" and "1e+" are longer for libc, or not numbers at all.
    if (read.ec != std::errc() || *end == 'x' || *end == 'X' || *end == 'e' || *end == 'E')
        return {};
    // Near the ends of the range libc also sets errno.
    const auto isZero = [&] {
        return std::all_of(first, end, [](char c) { return c < '1' || c > '9'; });
    };
    if ((value > 1e-300 && value <= std::numeric_limits<double>::max()) ||
        (value == 0.0 && isZero()))
        return negative ? -value : value;
#endif
    return {};
}

/// The same for a wide string, by way of a copy. Numbers have only ASCII characters.
inline std::optional<double> readDouble(std::wstring_view text)
{
    char narrow[64];
    if (text.size() >= sizeof narrow)
        return {};
    char* end = narrow;
    for (const wchar_t c : text)
        *end++ = c > 0 && c < 0x80 ? static_cast<char>(c) : '\0';
    *end = 0;
    return readDouble(std::string_view(narrow, text.size()));
}

} // namespace Vx::detail
