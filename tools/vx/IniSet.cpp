#include "Commands.h"
#include "Files.h"
#include "IniCompletion.h"
#include "IniEdit.h"
#include "Strings.h"
#include "Terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string section;
    std::string key;
    std::string value;
    bool create = false;
    bool dryRun = false;
    bool caseSensitive = false;
};

Status set(const Options& options)
{
    const bool isNew = options.create && !fileExists(options.file);
    const IniText before =
        isNew ? IniText(std::string()) : readIni(options.file, options.caseSensitive);
    const IniPlace place{sectionArgument(options.section), vxString(options.key),
                         options.caseSensitive};
    const std::string after = withValue(before, place, options.value);
    replaceIni(options.file, before, after, options.dryRun);
    return kYes;
}

} // namespace

void addIniSet(Command ini)
{
    Command command = ini.add("set", "Sets a key to a value");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.argument("SECTION", options->section, "'-': the lines before the first section");
    command.argument("KEY", options->key, "Used unchanged");
    command.argument("VALUE", options->value, "Used unchanged");
    completeFromIni(command, /*key=*/true, /*value=*/true);
    command.flag("--create", options->create, "Create the file if it does not exist");
    command.flag("-n,--dry-run", options->dryRun, "Print the result instead of writing it");
    command.caseFlag(options->caseSensitive);
    command.footer(
        "Changes the line that the library finds, or adds one, and keeps every other byte.\n"
        "Refuses a value that would not read back unchanged.\n\nExamples:\n"
        "  vx ini set editor.ini Video rate 50\n  vx ini set editor.ini Audio gain -- -3.5");
    command.runs([options] { return set(*options); });
}

} // namespace tool
