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

Status missingSection(const std::string& file, const VxIniFile::Sections& sections,
                      const LightweightString<char>& section)
{
    if (section == VxIniFile::kAnonymousSection())
        return complain("missing-top-lines", {inQuotes(file)});
    for (const auto& [other, pairs] : sections)
        if (isClose(view(other), view(section)))
            return complain("near-section",
                            {inQuotes(file), sectionTitle(section), sectionTitle(other)});
    return complain("missing-section", {inQuotes(file), sectionTitle(section)});
}

Status missingKey(const std::string& file, const VxIniFile::Sections& sections,
                  const LightweightString<char>& section, const std::string& key)
{
    const auto found = sections.find(section);
    if (found == sections.end())
        return missingSection(file, sections, section);
    const std::string place = sectionPlace(section);
    for (const Vx::AttribValuePair& pair : found->second)
        if (isSplit(pair) && isClose(view(pair.name), key))
            return complain("near-key",
                            {inQuotes(file), inQuotes(key), place, inQuotes(view(pair.name))});
    return complain("missing-key", {inQuotes(file), inQuotes(key), place});
}

} // namespace tool
