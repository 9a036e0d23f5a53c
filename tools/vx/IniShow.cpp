#include "Commands.h"
#include "IniCompletion.h"
#include "IniNames.h"
#include "IniText.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <fmt/format.h>
#include <optional>
#include <set>

namespace tool {
namespace {

struct Options {
    std::string file;
    std::optional<std::string> section;
    bool caseSensitive = false;
    bool json = false;
};

void printSection(const LightweightString<char>& name, const VxIniFile::Pairs& pairs)
{
    const bool anonymous = name == VxIniFile::kAnonymousSection();
    fmt::print("{}\n",
               paint(Colour::bold, anonymous ? "(before the first section)" : sectionTitle(name)));
    int widest = 0;
    for (const Vx::AttribValuePair& pair : pairs)
        if (isSplit(pair) && !looksLikeComment(pair))
            widest = std::max(widest, static_cast<int>(pair.name.length()));
    widest = std::min(widest, 30);
    std::set<LightweightString<char>> seen;
    for (const Vx::AttribValuePair& pair : pairs) {
        if (!isSplit(pair) || looksLikeComment(pair)) {
            fmt::print("  {}\n", paint(Colour::dim, shown(view(pair.text))));
            continue;
        }
        const bool duplicate = !seen.insert(pair.name).second;
        fmt::print("  {} = {}{}\n",
                   paint(Colour::blue, fmt::format("{:<{}}", shown(view(pair.name)), widest)),
                   shown(view(pair.value)),
                   duplicate ? paint(Colour::yellow, "   (duplicate: the first one wins)") : "");
    }
}

Json jsonOf(const VxIniFile::Pairs& pairs)
{
    Json items = Json::array();
    for (const Vx::AttribValuePair& pair : pairs) {
        if (isSplit(pair))
            items.push_back({{"name", view(pair.name)}, {"value", view(pair.value)}});
        else
            items.push_back({{"text", view(pair.text)}});
    }
    return items;
}

Status show(const Options& options)
{
    const VxIniFile ini = loadIni(options.file, options.caseSensitive);
    const LightweightString<char> wanted = sectionArgument(options.section.value_or(std::string()));
    if (options.section && !ini.sectionExists(wanted))
        return missingSection(options.file, ini.sections, wanted);
    Json sections = Json::array();
    bool first = true;
    const auto one = [&](const LightweightString<char>& name, const VxIniFile::Pairs& pairs) {
        if (options.json) {
            Json title;
            if (name != VxIniFile::kAnonymousSection())
                title = view(name);
            sections.push_back({{"section", title}, {"items", jsonOf(pairs)}});
            return;
        }
        if (!first)
            fmt::print("\n");
        first = false;
        printSection(name, pairs);
    };
    // The lines before the first section come first, wherever the map sorts them.
    const LightweightString<char>& anonymous = VxIniFile::kAnonymousSection();
    if (options.section) {
        const auto found = ini.sections.find(wanted);
        one(found->first, found->second);
    } else {
        const VxIniFile::Pairs& top = ini.getSection(anonymous);
        if (ini.sectionExists(anonymous))
            one(anonymous, top);
        for (auto it = ini.getSectionIterator(); it.valid(); ++it)
            if (&*it != &top)
                one(it.name(), *it);
    }
    if (options.json)
        printJson({{"file", options.file}, {"sections", sections}});
    return kYes;
}

} // namespace

void addIniShow(Command ini)
{
    Command command = ini.add("show", "Shows a file as the library loads it");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.argument("SECTION", options->section, "Show only this section");
    completeFromIni(command, /*key=*/false, /*value=*/false);
    command.caseFlag(options->caseSensitive);
    command.jsonFlag(options->json);
    command.footer("Examples:\n  vx ini show editor.ini\n  vx ini show editor.ini Video --json");
    command.runs([options] { return show(*options); });
}

} // namespace tool
