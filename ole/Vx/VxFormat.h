// VxFormat.h - texts and identifiers in std::format and in fmt. Optional: nothing includes it.
//
// Texts take what a string_view takes in a replacement field: fill, width, precision.
//
//     std::format("{:>12}|", LightweightString<char>("clip"));   // "        clip|"
//     fmt::print("{} {}\n", pair, Vx::UUID(text));               // "rate=25 0123abcd-..."
//
// Formats: LightweightString of both widths, each in format strings of its own width;
//   Vx::AttribValuePair as its asString('='), Vx::UUID as its 36 characters and
//   Vx::Image::FormatUID as its text, in narrow format strings.
// Embedded zeros: written like every other character.
// Which library: std::format wherever the C++ library has it. For fmt, include one of its
//   headers before this one; Vx itself needs neither.
#pragma once

#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/LightweightString.h>
#include <Vx/VxAttribValuePair.h>
#include <string_view>
#if defined(__has_include) && __cplusplus >= 202002L
#if __has_include(<format>)
#include <format>
#endif
#endif

namespace Vx {
namespace FormatDetail {

template <class Ch>
std::basic_string_view<Ch> textOf(const LightweightString<Ch>& text, const char*) noexcept
{
    return text;
}
inline LightweightString<char> textOf(const AttribValuePair& pair, const char*)
{
    return pair.asString('=');
}
inline std::string_view textOf(const Image::FormatUID& id, const char*) noexcept
{
    return id.text();
}
inline std::string_view textOf(const UUID& id, char* buffer) noexcept
{
    id.asString(buffer);
    return std::string_view(buffer, UUID::kTextLength);
}

/// A formatter on top of \p Base, the one of the same library for a string view.
template <class Base, class Ch> struct AsText : Base {
    template <class T, class Context> auto format(const T& value, Context& context) const
    {
        char buffer[UUID::kTextLength + 1] = {}; // not every text is written there
        const auto& text = textOf(value, buffer);
        return Base::format(std::basic_string_view<Ch>(text), context);
    }
};

} // namespace FormatDetail
} // namespace Vx

#if defined(__cpp_lib_format)
template <class Ch>
struct std::formatter<LightweightString<Ch>, Ch>
    : Vx::FormatDetail::AsText<std::formatter<std::basic_string_view<Ch>, Ch>, Ch> {};
template <>
struct std::formatter<Vx::AttribValuePair, char>
    : Vx::FormatDetail::AsText<std::formatter<std::string_view, char>, char> {};
template <>
struct std::formatter<Vx::UUID, char>
    : Vx::FormatDetail::AsText<std::formatter<std::string_view, char>, char> {};
template <>
struct std::formatter<Vx::Image::FormatUID, char>
    : Vx::FormatDetail::AsText<std::formatter<std::string_view, char>, char> {};
#endif

#if defined(FMT_VERSION)
template <>
struct fmt::formatter<LightweightString<char>, char>
    : Vx::FormatDetail::AsText<fmt::formatter<std::string_view, char>, char> {};
template <>
struct fmt::formatter<LightweightString<wchar_t>, wchar_t>
    : Vx::FormatDetail::AsText<fmt::formatter<std::wstring_view, wchar_t>, wchar_t> {};
template <>
struct fmt::formatter<Vx::AttribValuePair, char>
    : Vx::FormatDetail::AsText<fmt::formatter<std::string_view, char>, char> {};
template <>
struct fmt::formatter<Vx::UUID, char>
    : Vx::FormatDetail::AsText<fmt::formatter<std::string_view, char>, char> {};
template <>
struct fmt::formatter<Vx::Image::FormatUID, char>
    : Vx::FormatDetail::AsText<fmt::formatter<std::string_view, char>, char> {};
#endif
