#include "Commands.h"
#include "Files.h"
#include "IniEdit.h"
#include "Terminal.h"
#include "Text.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string section;
    std::string name;
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
    const IniPlace place{sectionArgument(options.section), text(options.name),
                         options.caseSensitive};
    const std::string after = withValue(before, place, options.value);
    if (options.dryRun)
        fmt::print("{}", after);
    else if (isNew || after != before.bytes())
        replaceIni(options.file, before, after);
    return kYes;
}

} // namespace

void addIniSet(Command ini)
{
    Command command = ini.add("set", "Gives a name a value");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.argument("SECTION", options->section, "'-': above the first header");
    command.argument("NAME", options->name, "Taken as it is");
    command.argument("VALUE", options->value, "Taken as it is");
    command.flag("--create", options->create, "Make the file when there is none");
    command.flag("-n,--dry-run", options->dryRun, "Print the new text and write nothing");
    command.caseFlag(options->caseSensitive);
    command.footer(
        "Changes the line that the library finds, or adds one; every other line stays byte by"
        " byte.\nA value that would not read back is refused.\n\nExamples:\n"
        "  vx ini set editor.ini Video rate 50\n  vx ini set editor.ini Audio gain -- -3.5");
    command.runs([options] { return set(*options); });
}

} // namespace tool
