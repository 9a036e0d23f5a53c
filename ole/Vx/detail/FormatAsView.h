// detail/FormatAsView.h - The formatters of VxFormat.h: what they write, as a string view.
#pragma once

#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/LightweightString.h>
#include <Vx/VxAttribValuePair.h>
#include <string_view>

namespace Vx {
namespace detail {

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

/// A formatter on top of \p Base, the same library's formatter for a string view.
template <class Base, class Ch> struct FormatAsView : Base {
    template <class T, class Context> auto format(const T& value, Context& context) const
    {
        char buffer[UUID::kTextLength + 1] = {}; // for a UUID only
        const auto& text = textOf(value, buffer);
        return Base::format(std::basic_string_view<Ch>(text), context);
    }
};

} // namespace detail
} // namespace Vx
