// Reference.h - Slow, obvious models of what the library computes, for tests and fuzz targets.
#pragma once

#include <Vx/VxStringSplit.h>
#include <Vx/platform/iSystemUtils.h>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <strings.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace reference {

/// The positions at which findSeparators() cuts.
template <class Ch>
std::vector<unsigned int> separators(const std::basic_string<Ch>& text, Ch separator,
                                     unsigned int flags)
{
    std::vector<unsigned int> positions;
    bool inQuotes = false;
    for (unsigned int i = 0; i < text.size(); ++i) {
        if (text[i] == separator) {
            if (!inQuotes || separator == Ch('"') || (flags & Vx::RespectQuotes) == 0)
                positions.push_back(i);
        } else if (text[i] == Ch('"') && (i == 0 || text[i - 1] != Ch('\\'))) {
            inQuotes = !inQuotes;
        }
    }
    return positions;
}

/// What splitIf() returns: all pieces first, then the rules about which of them count.
template <class Ch>
std::vector<std::basic_string<Ch>> pieces(const std::basic_string<Ch>& text, Ch separator,
                                          unsigned int flags)
{
    const std::vector<unsigned int> positions = separators(text, separator, flags);
    std::vector<std::basic_string<Ch>> all;
    std::size_t start = 0;
    for (const unsigned int position : positions) {
        all.push_back(text.substr(start, position - start));
        start = position + 1;
    }
    all.push_back(text.substr(start));
    if (positions.empty())
        return all;

    std::vector<std::basic_string<Ch>> counting;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const bool last = i + 1 == all.size();
        const bool dropped = i == 0 ? text.size() != 1 : last || (flags & Vx::SkipEmpty) != 0;
        if (all[i].empty() && dropped)
            continue;
        if (!last && (flags & Vx::KeepSeparator) != 0)
            all[i] += separator;
        counting.push_back(all[i]);
    }
    return counting;
}

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

/// Where the printed bytes of a UUID are stored.
inline constexpr std::size_t kUuidPlaces[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
#define VX_UUID_FORMAT "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x"

/// What initFromString() stores, by the scanning functions alone: they accept blanks and signs
/// before a digit, and anything after the last byte.
template <class Ch> SimpleUUID uuid(const Ch* text, unsigned int length)
{
    const bool braces = length == 38 && text[0] == Ch('{') && text[37] == Ch('}');
    if (!braces && length != 36)
        return {};
    unsigned int v[16];
    const int found = [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        if constexpr (std::is_same_v<Ch, char>)
            return std::sscanf(text + braces, VX_UUID_FORMAT, &v[I]...);
        else
            return std::swscanf(text + braces, L"" VX_UUID_FORMAT, &v[I]...);
    }
    (std::make_index_sequence<16>());
    SimpleUUID id = {};
    for (std::size_t i = 0; found == 16 && i < 16; ++i)
        id.bytes[kUuidPlaces[i]] = static_cast<unsigned char>(v[i]);
    return id;
}

inline std::string printedUuid(const SimpleUUID& id)
{
    char text[37];
    [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        std::snprintf(text, sizeof text, VX_UUID_FORMAT, id.bytes[kUuidPlaces[I]]...);
    }
    (std::make_index_sequence<16>());
    return text;
}
#undef VX_UUID_FORMAT

struct IniSection {
    std::string name;
    std::vector<std::string> lines;
};
/// The sections in the order in which they appear.
using IniDocument = std::vector<IniSection>;

inline constexpr char kAnonymousIniSection[] = "@@@ANONYMOUS_SECTION_RESERVED_NAME@@@";

inline std::vector<std::string>& iniLines(IniDocument& document, const std::string& name,
                                          bool caseSensitive)
{
    const auto compare = caseSensitive ? std::strcmp : strcasecmp;
    for (IniSection& section : document)
        if (compare(section.name.c_str(), name.c_str()) == 0)
            return section.lines;
    document.push_back({name, {}});
    return document.back().lines;
}

/// What VxIniFile::load() adds to \p document, step by step.
inline void loadIni(IniDocument& document, const std::string& file, char separator,
                    bool caseSensitive)
{
    const auto printable = [](char c) { return std::isprint(static_cast<signed char>(c)) != 0; };
    std::string section = kAnonymousIniSection;
    std::size_t start = 0;
    while (start < file.size()) {
        if (start != 0)
            while (start < file.size() && !printable(file[start]) && file[start] != separator)
                ++start;
        const std::size_t end = std::min(file.find(separator, start), file.size());
        std::string line = file.substr(start, end - start);
        start = end + 1;
        if (end != file.size() && printable(separator))
            line += separator;
        else
            while (!line.empty() && !printable(line.back()))
                line.pop_back();
        if (line.find_first_not_of(' ') == line.npos)
            continue;
        line.erase(0, line.find_first_not_of(' '));
        line.erase(line.find_last_not_of(' ') + 1);
        if (line.front() == '[' && line.back() == ']')
            section = line.substr(1, line.size() - 2);
        else
            iniLines(document, section, caseSensitive).push_back(line);
    }
}

} // namespace reference
