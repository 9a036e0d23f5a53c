#include "Commands.h"
#include "IniEdit.h"
#include "IniNames.h"
#include "Text.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string section;
    std::string name;
    bool dryRun = false;
    bool caseSensitive = false;
};

Status unset(const Options& options)
{
    const IniText before = readIni(options.file, options.caseSensitive);
    const IniPlace place{sectionArgument(options.section), text(options.name),
                         options.caseSensitive};
    std::string after;
    if (removeName(before, place, after) == 0) {
        complain(notFound(before.sections(options.caseSensitive), place.section, options.name));
        return kNegative;
    }
    if (options.dryRun)
        fmt::print("{}", after);
    else
        replaceIni(options.file, before, after);
    return kYes;
}

} // namespace

void addIniUnset(CLI::App& ini, Action& chosen)
{
    CLI::App* command = ini.add_subcommand("unset", "Takes a name away");
    auto options = std::make_shared<Options>();
    command->add_option("FILE", options->file, "An INI file")->required();
    command->add_option("SECTION", options->section, "'-': above the first header")->required();
    command->add_option("NAME", options->name, "Case counts, and so do blanks")->required();
    command->add_flag("-n,--dry-run", options->dryRun, "Print the new text and write nothing");
    command->add_flag("-c,--case-sensitive", options->caseSensitive,
                      "Section names that differ in case are two sections");
    command->footer("Removes every line of that name in the section and touches no other."
                    "\nExit status 1 when there is no such name.\n\nExample:\n"
                    "  vx ini unset editor.ini Video rate");
    command->callback([&chosen, options] { chosen = [options] { return unset(*options); }; });
}

} // namespace tool
