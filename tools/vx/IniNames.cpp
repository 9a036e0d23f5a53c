#include "IniNames.h"

#include "IniText.h"
#include "Terminal.h"
#include "Text.h"

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
                     const std::string& name)
{
    const auto found = sections.find(section);
    if (found == sections.end()) {
        std::string message = "there is no section " + sectionTitle(section);
        if (section == VxIniFile::kAnonymousSection())
            message = "nothing stands above the first header";
        for (const auto& [other, pairs] : sections)
            if (isClose(view(other), view(section)))
                message += ", but there is " + sectionTitle(other);
        return message;
    }
    std::string message = "there is no " + inQuotes(name) + " in " + sectionTitle(section);
    if (section == VxIniFile::kAnonymousSection())
        message = "there is no " + inQuotes(name) + " above the first header";
    for (const Vx::AttribValuePair& pair : found->second)
        if (isSplit(pair) && isClose(view(pair.name), name))
            return message + ", but there is " + inQuotes(view(pair.name));
    return message;
}

} // namespace tool
