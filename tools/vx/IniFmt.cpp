#include "Commands.h"
#include "Files.h"
#include "IniEdit.h"
#include "Terminal.h"

#include <algorithm>

namespace tool {
namespace {

struct Options {
    std::vector<std::string> files;
    bool check = false;
    bool dryRun = false;
};

/// The line without the blanks around it, which the library drops when it loads the line. A line
/// that loses anything else keeps it in the file.
std::string_view trimmed(const IniLine& line)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    const std::string_view head = line.head(), tail = line.tail();
    if (std::all_of(head.begin(), head.end(), isBlank) &&
        std::all_of(tail.begin(), tail.end(), isBlank))
        return line.kept;
    std::string_view raw = line.raw;
    if (raw.back() == '\r')
        raw.remove_suffix(1);
    return raw;
}

bool isComment(const IniLine& line) { return line.kind == IniLine::Kind::pair && line.isComment(); }

std::string formatted(const IniText& text)
{
    const std::vector<IniLine>& lines = text.lines();
    const std::string end = lineEnd(text);
    std::string result;
    std::size_t commentLines = 0; // at the end of the result
    std::size_t commentsFrom = 0; // where they begin
    bool blank = false;           // blank lines have been left out
    for (const IniLine& line : lines) {
        const std::string_view content = trimmed(line);
        if (content.empty()) {
            blank = true;
            continue;
        }
        if (blank && !result.empty()) {
            result += end;
            commentLines = 0;
        }
        // A header has a blank line before it, and before the comments directly above it.
        const bool header = line.kind == IniLine::Kind::header;
        const std::size_t at = commentLines != 0 ? commentsFrom : result.size();
        if (header && at != 0 && !(blank && commentLines == 0) &&
            result.substr(0, at).rfind(end + end) != at - 2 * end.size())
            result.insert(at, end);
        if (isComment(line) && commentLines++ == 0)
            commentsFrom = result.size();
        if (!isComment(line))
            commentLines = 0;
        blank = false;
        result += content;
        result += end;
    }
    return result;
}

Status format(const std::string& file, const Options& options)
{
    const IniText before = readTextIni(file, true);
    std::string after = formatted(before);
    if (after.empty() && !before.lines().empty())
        after = lineEnd(before); // the library does not load an empty file
    if (!before.loadsAs(IniText(after).sections(true)))
        throw std::logic_error("formatting would change what the file means");
    if (options.check)
        return after == before.bytes() ? kYes : complain("not-formatted", {inQuotes(file)});
    replaceIni(file, before, after, options.dryRun);
    return kYes;
}

/// Goes on after a file that fails. \returns the worst status
Status formatAll(const Options& options)
{
    Status worst = kYes;
    for (const std::string& file : options.files)
        worst = std::max(worst, run([&] { return format(file, options); }));
    return worst;
}

} // namespace

void addIniFmt(Command ini)
{
    Command command = ini.add("fmt", "Lays out files without changing what they mean");
    auto options = std::make_shared<Options>();
    command.arguments("FILE", options->files, "INI files; '-': from standard input to output");
    command.flag("--check", options->check, "Only say which files are not formatted");
    command.flag("-n,--dry-run", options->dryRun, "Print the result instead of writing it");
    command.footer(
        "Removes the blanks around lines, gives all lines the line ending of the first, and\n"
        "separates sections by one blank line. Blanks around '=' stay, since they count.\n"
        "With --check, exit status 1 if a file would change.\n\nExamples:\n"
        "  vx ini fmt editor.ini\n"
        "  git diff --cached --name-only -z '*.ini' | xargs -0r vx ini fmt --check");
    command.runs([options] { return formatAll(*options); });
}

} // namespace tool
