#include "Commands.h"
#include "Files.h"
#include "IniEdit.h"
#include "IniMerge.h"
#include "Terminal.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct Options {
    std::string base, ours, theirs;
    bool dryRun = false;
    bool caseSensitive = false;
};

IniText readSide(const std::string& path, bool caseSensitive)
{
    IniText text = readTextIni(path, caseSensitive);
    for (std::size_t i = 0; i < text.lines().size(); ++i)
        if (isConflictMark(text.lines()[i]))
            throw Failure("unresolved", {inQuotes(path), fmt::format("{}", i + 1)});
    return text;
}

Status merge(const Options& options)
{
    const IniText base = readSide(options.base, options.caseSensitive);
    const IniText ours = readSide(options.ours, options.caseSensitive);
    const IniText theirs = readSide(options.theirs, options.caseSensitive);
    const IniMerged merged = mergedIni(base, ours, theirs, options.caseSensitive);
    replaceIni(options.ours, ours, merged.bytes, options.dryRun);
    if (merged.conflicts.empty())
        return kYes;
    const std::size_t count = merged.conflicts.size();
    return complain("conflicts",
                    {fmt::format("{} {}", count, count == 1 ? "conflict" : "conflicts"),
                     inQuotes(options.ours), fmt::format("{}", fmt::join(merged.conflicts, ", "))});
}

} // namespace

void addIniMerge(Command ini)
{
    Command command = ini.add("merge", "Merges the changes of two copies of a file");
    auto options = std::make_shared<Options>();
    command.argument("BASE", options->base, "The file before both changes");
    command.argument("OURS", options->ours, "One copy; receives the result");
    command.argument("THEIRS", options->theirs, "The other copy");
    for (const char* file : {"BASE", "OURS", "THEIRS"})
        command.completes(file, fileNames);
    command.flag("-n,--dry-run", options->dryRun, "Print the result instead of writing it");
    command.caseFlag(options->caseSensitive);
    command.footer(
        "Matches sections and keys by name and keeps comments. Where both copies changed a value\n"
        "differently, marks both lines and returns 1. As a merge driver of git:\n"
        "  git config merge.vx-ini.driver 'vx ini merge %O %A %B'\n"
        "  echo '*.ini merge=vx-ini' >>.gitattributes\n\nExample:\n"
        "  vx ini merge editor.ini.orig editor.ini editor.ini.new");
    command.runs([options] { return merge(*options); });
}

} // namespace tool
