#include "Commands.h"
#include "Files.h"
#include "IniCompletion.h"
#include "IniEdit.h"
#include "IniNames.h"
#include "Strings.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string section;
    std::string key;
    bool dryRun = false;
    bool caseSensitive = false;
};

Status unset(const Options& options)
{
    const IniText before = readIni(options.file, options.caseSensitive);
    const IniPlace place{sectionArgument(options.section), vxString(options.key),
                         options.caseSensitive};
    std::string after;
    if (removeKey(before, place, after) == 0)
        return missingKey(options.file, before.sections(options.caseSensitive), place.section,
                          options.key);
    replaceIni(options.file, before, after, options.dryRun);
    return kYes;
}

} // namespace

void addIniUnset(Command ini)
{
    Command command = ini.add("unset", "Removes a key");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.argument("SECTION", options->section, "'-': the lines before the first section");
    command.argument("KEY", options->key, "Case and blanks count");
    completeFromIni(command, /*key=*/true, /*value=*/false);
    command.flag("-n,--dry-run", options->dryRun, "Print the result instead of writing it");
    command.caseFlag(options->caseSensitive);
    command.footer("Removes every line for the key in the section and keeps every other byte."
                   "\nExit status 1 if there is no such key.\n\nExample:\n"
                   "  vx ini unset editor.ini Video rate");
    command.runs([options] { return unset(*options); });
}

} // namespace tool
