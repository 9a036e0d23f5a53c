// Strings.h - Conversions between the library's strings and the standard library's.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxStringUtils.h>
#include <string>
#include <string_view>

namespace tool {

inline std::string_view view(const LightweightString<char>& string) { return string; }
inline LightweightString<char> vxString(std::string_view bytes)
{
    return LightweightString<char>(bytes);
}

inline LightweightString<wchar_t> fromUtf8(std::string_view bytes)
{
    return ::fromUTF8(vxString(bytes));
}
inline LightweightString<char> toUtf8(const LightweightString<wchar_t>& wide)
{
    return ::toUTF8(wide);
}

} // namespace tool
