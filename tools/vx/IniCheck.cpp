#include "Commands.h"
#include "IniFindings.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <fmt/format.h>
#include <map>
#include <optional>

namespace tool {
namespace {

struct Options {
    std::optional<std::string> file;
    std::string code;
    bool caseSensitive = false;
    bool forProgrammers = false;
    bool json = false;
};

const char* kindOf(const Message& message)
{
    return message.kind == MessageKind::note ? "note" : "warning";
}

Status explain(const std::string& code)
{
    for (const Message& row : kMessages) {
        if (row.code != code || row.kind < MessageKind::warning)
            continue;
        fmt::print("{} ({})\n  {}\n  {}\n", paint(Colour::bold, row.code), kindOf(row),
                   filled(row.text, {"...", "...", "..."}), row.remedy);
        if (!row.programmers.empty())
            fmt::print("  For programmers: {}\n", row.programmers);
        return kYes;
    }
    return complain("no-such-code", {inQuotes(code)});
}

Offer codes(const Given&)
{
    Offer offer;
    for (const Message& row : kMessages)
        if (row.kind >= MessageKind::warning)
            offer.candidates.push_back({std::string(row.code), kindOf(row)});
    return offer;
}

/// Prints findings like a compiler. The remedy follows the first of each kind, and no more than
/// a few of a kind are printed: a damaged file can have millions.
class Printer {
public:
    explicit Printer(const Options& options) : options_(options) {}

    void print(const IniFinding& finding)
    {
        const std::size_t count = ++counts_[finding.message];
        if (count > kMost)
            return;
        const Message& message = *finding.message;
        fmt::print("{} {} {} {}\n",
                   paint(Colour::bold, fmt::format("{}:{}:{}:", shown(*options_.file), finding.line,
                                                   finding.column)),
                   paint(finding.isNote() ? Colour::dim : Colour::yellow,
                         fmt::format("{}:", kindOf(message))),
                   finding.text, paint(Colour::dim, fmt::format("[{}]", message.code)));
        if (count == 1)
            fmt::print("    {}\n", message.remedy);
        if (count == 1 && options_.forProgrammers && !message.programmers.empty())
            fmt::print("    For programmers: {}\n", message.programmers);
    }

    void printRest() const
    {
        for (const auto& [message, count] : counts_)
            if (count > kMost)
                fmt::print("{}: {} more of [{}]\n", shown(*options_.file), count - kMost,
                           message->code);
    }

private:
    static constexpr std::size_t kMost = 20;
    const Options& options_;
    std::map<const Message*, std::size_t> counts_;
};

Json jsonOf(const IniFinding& finding)
{
    return {{"line", finding.line},
            {"column", finding.column},
            {"kind", kindOf(*finding.message)},
            {"code", finding.message->code},
            {"message", finding.text},
            {"remedy", finding.message->remedy}};
}

Status check(const Options& options)
{
    if (options.file.has_value() != options.code.empty())
        return complain("command-line", {"name either FILE or --explain", "vx ini check"});
    if (!options.code.empty())
        return explain(options.code);
    const IniText text = readAnyIni(*options.file, options.caseSensitive);
    std::size_t warnings = 0;
    Json list = Json::array();
    Printer printer(options);
    for (const IniFinding& finding : findingsIn(text, options.caseSensitive)) {
        warnings += !finding.isNote();
        if (finding.isNote() && !options.forProgrammers)
            continue;
        if (options.json)
            list.push_back(jsonOf(finding));
        else
            printer.print(finding);
    }
    printer.printRest();
    if (options.json)
        printJson({{"file", *options.file}, {"warnings", warnings}, {"findings", list}});
    return warnings == 0 ? kYes : kNo;
}

} // namespace

void addIniCheck(Command ini)
{
    Command command = ini.add("check", "Finds lines that load differently than they look");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file; '-': standard input");
    command.option("--explain", options->code, "CODE", "Explain a finding instead");
    command.completes("--explain", codes);
    command.flag("--for-programmers", options->forProgrammers,
                 "Add what concerns the application's programmers");
    command.caseFlag(options->caseSensitive);
    command.jsonFlag(options->json);
    command.footer("Prints FILE:LINE:COLUMN like a compiler. Exit status 1 if there are warnings;"
                   "\nnotes for programmers do not count.\n\nExamples:\n"
                   "  vx ini check editor.ini\n  vx ini check --explain lost-end");
    command.runs([options] { return check(*options); });
}

} // namespace tool
