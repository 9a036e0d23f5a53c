#include "Commands.h"
#include "IniCompletion.h"
#include "IniNames.h"
#include "IniText.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string section;
    std::string key;
    bool all = false;
    bool caseSensitive = false;
    bool json = false;
};

Status get(const Options& options)
{
    const VxIniFile ini = loadIni(options.file, options.caseSensitive);
    const LightweightString<char> section = sectionArgument(options.section);
    Json values = Json::array(), last;
    for (const Vx::AttribValuePair& pair : ini.getSection(section)) {
        if (!isSplit(pair) || view(pair.name) != options.key)
            continue;
        last = view(pair.value);
        values.push_back(last);
        // Unescaped: scripts need the exact bytes.
        if (!options.json)
            fmt::print("{}\n", view(pair.value));
        if (!options.all)
            break;
    }
    if (options.json)
        printJson(options.all ? values : last);
    return values.empty() ? missingKey(options.file, ini.sections, section, options.key) : kYes;
}

} // namespace

void addIniGet(Command ini)
{
    Command command = ini.add("get", "Prints the value of a key");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.argument("SECTION", options->section, "'-': the lines before the first section");
    command.argument("KEY", options->key, "Case and blanks count");
    completeFromIni(command, /*key=*/true, /*value=*/false);
    command.flag("-a,--all", options->all,
                 "Print every value of a duplicate key, not only the first");
    command.caseFlag(options->caseSensitive);
    command.jsonFlag(options->json);
    command.footer("Exit status 1 if there is no such key.\n\nExamples:\n"
                   "  vx ini get editor.ini Video rate\n  vx ini get editor.ini - version");
    command.runs([options] { return get(*options); });
}

} // namespace tool
