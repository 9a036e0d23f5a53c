#include "IniNames.h"

#include "IniText.h"
#include "Strings.h"
#include "Terminal.h"

#include <strings.h>

namespace tool {
namespace {

std::string trimmed(std::string_view name)
{
    const std::size_t begin = name.find_first_not_of(" \t");
    if (begin == std::string_view::npos)
        return {};
    return std::string(name.substr(begin, name.find_last_not_of(" \t") - begin + 1));
}

bool isClose(std::string_view a, std::string_view b)
{
    return strcasecmp(trimmed(a).c_str(), trimmed(b).c_str()) == 0;
}

} // namespace

std::string notFound(const VxIniFile::Sections& sections, const LightweightString<char>& section,
                     const std::string& key)
{
    const auto found = sections.find(section);
    if (found == sections.end()) {
        if (section == VxIniFile::kAnonymousSection())
            return "no lines before the first section";
        const std::string message = "no section " + sectionTitle(section);
        for (const auto& [other, pairs] : sections)
            if (isClose(view(other), view(section)))
                return message + "; did you mean " + sectionTitle(other) + "?";
        return message;
    }
    const bool top = section == VxIniFile::kAnonymousSection();
    const std::string message =
        "no key " + inQuotes(key) + (top ? " " : " in ") + sectionTitle(section);
    for (const Vx::AttribValuePair& pair : found->second)
        if (isSplit(pair) && isClose(view(pair.name), key))
            return message + "; did you mean " + inQuotes(view(pair.name)) + "?";
    return message;
}

} // namespace tool
