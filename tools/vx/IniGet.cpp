#include "Commands.h"
#include "IniNames.h"
#include "IniText.h"
#include "Terminal.h"
#include "Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string section;
    std::string name;
    bool all = false;
    bool caseSensitive = false;
    bool json = false;
};

Status get(const Options& options)
{
    const VxIniFile ini = loadIni(options.file, options.caseSensitive);
    const LightweightString<char> section = sectionArgument(options.section);
    nlohmann::ordered_json values = nlohmann::ordered_json::array();
    for (const Vx::AttribValuePair& pair : ini.getSection(section)) {
        if (!isSplit(pair) || view(pair.name) != options.name)
            continue;
        values.push_back(view(pair.value));
        // As it is: this is for scripts, which want the bytes.
        if (!options.json)
            fmt::print("{}\n", view(pair.value));
        if (!options.all)
            break;
    }
    if (values.empty()) {
        complain(notFound(ini.sections, section, options.name));
        return kNegative;
    }
    if (options.json)
        printJson(options.all ? values : values[0]);
    return kYes;
}

} // namespace

void addIniGet(CLI::App& ini, Action& chosen)
{
    CLI::App* command = ini.add_subcommand("get", "Prints the value of a name");
    auto options = std::make_shared<Options>();
    command->add_option("FILE", options->file, "An INI file")->required();
    command->add_option("SECTION", options->section, "'-': above the first header")->required();
    command->add_option("NAME", options->name, "Case counts, and so do blanks")->required();
    command->add_flag("-a,--all", options->all, "All values of the name, not only the first");
    command->add_flag("-c,--case-sensitive", options->caseSensitive,
                      "Section names that differ in case are two sections");
    command->add_flag("--json", options->json, "Print JSON");
    command->footer("Exit status 1 when there is no such name.\n\nExamples:\n"
                    "  vx ini get editor.ini Video rate\n  vx ini get editor.ini - version");
    command->callback([&chosen, options] { chosen = [options] { return get(*options); }; });
}

} // namespace tool
