// Text.h - between the library's texts and those of the C++ library.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxStringUtils.h>
#include <string>
#include <string_view>

namespace tool {

inline std::string_view view(const LightweightString<char>& text) { return text; }
inline LightweightString<char> text(std::string_view bytes)
{
    return LightweightString<char>(bytes);
}

inline LightweightString<wchar_t> fromUtf8(std::string_view bytes)
{
    return ::fromUTF8(text(bytes));
}
inline LightweightString<char> toUtf8(const LightweightString<wchar_t>& wide)
{
    return ::toUTF8(wide);
}

} // namespace tool
