// Reference.h - Slow, obvious models of what the library computes, for tests and fuzz targets.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <type_traits>

namespace reference {

/// What appending \p text to a string adds: only NULs from the first NUL on.
template <class Ch> std::basic_string<Ch> appended(std::basic_string<Ch> text)
{
    const std::size_t zero = std::min(text.find(Ch(0)), text.size());
    return text.replace(zero, text.npos, text.size() - zero, Ch(0));
}

inline int scan(const char* text, const char* format, void* to)
{
    return std::sscanf(text, format, to);
}
inline int scan(const wchar_t* text, const wchar_t* format, void* to)
{
    return std::swscanf(text, format, to);
}

/// What IntFromString() and its siblings return for int, unsigned int, long and double.
template <class Number, class Ch> Number number(const std::basic_string<Ch>& text, Number otherwise)
{
    if (text.empty())
        return otherwise;
    if constexpr (std::is_same_v<Number, long>) {
        if constexpr (std::is_same_v<Ch, char>)
            return std::strtol(text.c_str(), nullptr, 10);
        else
            return std::wcstol(text.c_str(), nullptr, 10);
    } else {
        const std::string format = std::is_same_v<Number, int>      ? "%d"
                                   : std::is_same_v<Number, double> ? "%lf"
                                                                    : "%u";
        const std::basic_string<Ch> inWidth(format.begin(), format.end());
        Number read = otherwise;
        return scan(text.c_str(), inWidth.c_str(), &read) == 1 ? read : otherwise;
    }
}

/// What StringFromFloat() returns: at most 126 characters.
inline std::string fromFloat(double value)
{
    char buffer[127];
    std::snprintf(buffer, sizeof buffer, "%f", value);
    return buffer;
}

/// What WStringFromFloat() returns.
inline std::wstring wideFromFloat(double value, int precision, bool trimZeros)
{
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, "%.*lf", std::clamp(precision, 0, 9), value);
    std::string text = buffer;
    if (trimZeros && text.find_last_not_of('0') != text.npos)
        text.erase(text.find_last_not_of('0') + 1);
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    return std::wstring(bytes, bytes + text.size());
}

} // namespace reference
