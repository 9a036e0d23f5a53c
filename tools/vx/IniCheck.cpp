#include "Commands.h"
#include "IniFindings.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct Options {
    std::string file;
    bool caseSensitive = false;
    bool json = false;
};

Status check(const Options& options)
{
    const IniText text = readIni(options.file, options.caseSensitive);
    const std::vector<IniFinding> findings = findingsIn(text, options.caseSensitive);
    std::size_t warnings = 0;
    Json list = Json::array();
    for (const IniFinding& finding : findings) {
        warnings += finding.warning;
        const char* kind = finding.warning ? "warning" : "note";
        if (options.json)
            list.push_back({{"line", finding.line},
                            {"column", finding.column},
                            {"kind", kind},
                            {"code", finding.code},
                            {"message", finding.message}});
        else
            fmt::print(
                "{} {} {} {}\n",
                paint(Colour::bold,
                      fmt::format("{}:{}:{}:", shown(options.file), finding.line, finding.column)),
                paint(finding.warning ? Colour::yellow : Colour::dim, fmt::format("{}:", kind)),
                finding.message, paint(Colour::dim, "[" + finding.code + "]"));
    }
    if (options.json)
        printJson({{"file", options.file}, {"warnings", warnings}, {"findings", list}});
    return warnings == 0 ? kYes : kNo;
}

} // namespace

void addIniCheck(Command ini)
{
    Command command = ini.add("check", "Finds lines that load differently than they look");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "An INI file");
    command.caseFlag(options->caseSensitive);
    command.jsonFlag(options->json);
    command.footer("Prints FILE:LINE:COLUMN like a compiler. Exit status 1 if there are warnings;"
                   "\nnotes do not count.\n\nExample:\n  vx ini check editor.ini");
    command.runs([options] { return check(*options); });
}

} // namespace tool
