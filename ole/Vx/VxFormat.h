// VxFormat.h - Strings and identifiers as arguments of std::format and fmt. Optional: no other
// header includes it.
//
//     std::format("{:>12}|", LightweightString<char>("clip"));   // "        clip|"
//     fmt::print("{} {}\n", pair, Vx::UUID(text));               // "rate=25 0123abcd-..."
//
// A replacement field takes fill, width and precision, as for a std::string_view.
//
// Types: LightweightString of both widths, in format strings of the same width;
//   Vx::AttribValuePair as its asString('='), Vx::UUID as its 36 characters and
//   Vx::Image::FormatUID as its text, in narrow format strings. Embedded zeros are written.
// Libraries: std::format where the C++ library has it, and fmt 8 or newer if one of its headers
//   is included before this one. Vx itself needs neither.
#pragma once

#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/LightweightString.h>
#include <Vx/VxAttribValuePair.h>
#include <Vx/detail/FormatAsView.h>
#include <string_view>
#if defined(__has_include) && __cplusplus >= 202002L
#if __has_include(<format>)
#include <format>
#endif
#endif

#if defined(__cpp_lib_format)
template <class Ch>
struct std::formatter<LightweightString<Ch>, Ch>
    : Vx::detail::FormatAsView<std::formatter<std::basic_string_view<Ch>, Ch>, Ch> {};
template <>
struct std::formatter<Vx::AttribValuePair, char>
    : Vx::detail::FormatAsView<std::formatter<std::string_view, char>, char> {};
template <>
struct std::formatter<Vx::UUID, char>
    : Vx::detail::FormatAsView<std::formatter<std::string_view, char>, char> {};
template <>
struct std::formatter<Vx::Image::FormatUID, char>
    : Vx::detail::FormatAsView<std::formatter<std::string_view, char>, char> {};
#endif

#if defined(FMT_VERSION)
template <>
struct fmt::formatter<LightweightString<char>, char>
    : Vx::detail::FormatAsView<fmt::formatter<std::string_view, char>, char> {};
template <>
struct fmt::formatter<LightweightString<wchar_t>, wchar_t>
    : Vx::detail::FormatAsView<fmt::formatter<std::wstring_view, wchar_t>, wchar_t> {};
template <>
struct fmt::formatter<Vx::AttribValuePair, char>
    : Vx::detail::FormatAsView<fmt::formatter<std::string_view, char>, char> {};
template <>
struct fmt::formatter<Vx::UUID, char>
    : Vx::detail::FormatAsView<fmt::formatter<std::string_view, char>, char> {};
template <>
struct fmt::formatter<Vx::Image::FormatUID, char>
    : Vx::detail::FormatAsView<fmt::formatter<std::string_view, char>, char> {};
#endif
