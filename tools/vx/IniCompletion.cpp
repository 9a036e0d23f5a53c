#include "IniCompletion.h"

#include "IniText.h"
#include "Strings.h"

#include <set>

namespace tool {
namespace {

VxIniFile documentOf(const Given& given)
{
    return loadIni(smallFile(valueOf(given, "FILE")), given.count("--case-sensitive") != 0);
}

Offer sections(const Given& given)
{
    const VxIniFile ini = documentOf(given);
    Offer offer;
    for (auto it = ini.getSectionIterator(); it.valid(); ++it) {
        if (it.name() == VxIniFile::kAnonymousSection())
            offer.candidates.push_back({"-", "the lines before the first section"});
        else
            offer.candidates.push_back(
                {std::string(view(it.name())), "section", !ini.getSectionNameCaseSensitivity()});
    }
    return offer;
}

Offer keys(const Given& given)
{
    const VxIniFile ini = documentOf(given);
    Offer offer;
    std::set<LightweightString<char>> seen;
    for (const auto& pair : ini.getSection(sectionArgument(valueOf(given, "SECTION"))))
        if (isSplit(pair) && !looksLikeComment(pair) && seen.insert(pair.name).second)
            offer.candidates.push_back(
                {std::string(view(pair.name)), "now " + std::string(view(pair.value))});
    return offer;
}

/// The present value, to be edited.
Offer values(const Given& given)
{
    const VxIniFile ini = documentOf(given);
    for (const auto& pair : ini.getSection(sectionArgument(valueOf(given, "SECTION"))))
        if (isSplit(pair) && view(pair.name) == valueOf(given, "KEY"))
            return {Offer::words, {{std::string(view(pair.value)), "as it is"}}};
    return {};
}

} // namespace

void completeFromIni(Command& command, bool key, bool value)
{
    command.completes("SECTION", sections);
    if (key)
        command.completes("KEY", keys);
    if (value)
        command.completes("VALUE", values);
}

} // namespace tool
