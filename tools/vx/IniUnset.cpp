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

void addIniUnset(Command ini)
{
    Command command = ini.add("unset", "Takes a name away");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.argument("SECTION", options->section, "'-': above the first header");
    command.argument("NAME", options->name, "Case counts, and so do blanks");
    command.flag("-n,--dry-run", options->dryRun, "Print the new text and write nothing");
    command.caseFlag(options->caseSensitive);
    command.footer("Removes every line of that name in the section and touches no other."
                   "\nExit status 1 when there is no such name.\n\nExample:\n"
                   "  vx ini unset editor.ini Video rate");
    command.runs([options] { return unset(*options); });
}

} // namespace tool
