#include "Commands.h"
#include "IniText.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>

namespace tool {
namespace {

struct Options {
    std::string left;
    std::string right;
    bool caseSensitive = false;
    bool json = false;
};

/// The values of each key, in order and with duplicates.
using Values = std::map<LightweightString<char>, std::vector<LightweightString<char>>>;

Values valuesOf(const VxIniFile::Pairs& pairs)
{
    Values values;
    for (const Vx::AttribValuePair& pair : pairs)
        if (isSplit(pair) && !looksLikeComment(pair))
            values[pair.name].push_back(pair.value);
    return values;
}

/// Prints or collects the differences.
class Report {
public:
    explicit Report(bool json) : json_(json) {}

    void values(const LightweightString<char>& section, const LightweightString<char>& name,
                const std::vector<LightweightString<char>>& left,
                const std::vector<LightweightString<char>>& right)
    {
        if (left == right)
            return;
        different_ = true;
        if (json_) {
            Json title;
            if (section != VxIniFile::kAnonymousSection())
                title = view(section);
            list_.push_back({{"section", title},
                             {"name", view(name)},
                             {"left", texts(left)},
                             {"right", texts(right)}});
            return;
        }
        if (!headed_)
            fmt::print("{}\n", paint(Colour::bold, sectionTitle(section)));
        headed_ = true;
        for (const auto& value : left)
            fmt::print("{}\n", paint(Colour::red, fmt::format("- {}={}", shown(view(name)),
                                                              shown(view(value)))));
        for (const auto& value : right)
            fmt::print("{}\n", paint(Colour::green, fmt::format("+ {}={}", shown(view(name)),
                                                                shown(view(value)))));
    }
    void nextSection() { headed_ = false; }

    Status finish(const Options& options)
    {
        if (json_)
            printJson({{"left", options.left}, {"right", options.right}, {"differences", list_}});
        return different_ ? kNo : kYes;
    }

private:
    static Json texts(const std::vector<LightweightString<char>>& values)
    {
        Json list = Json::array();
        for (const auto& value : values)
            list.push_back(view(value));
        return list;
    }

    const bool json_;
    bool headed_ = false;
    bool different_ = false;
    Json list_ = Json::array();
};

void compareSection(Report& report, const LightweightString<char>& section, const Values& left,
                    const Values& right)
{
    std::set<LightweightString<char>> names;
    for (const auto& entry : left)
        names.insert(entry.first);
    for (const auto& entry : right)
        names.insert(entry.first);
    const std::vector<LightweightString<char>> none;
    for (const auto& name : names) {
        const auto l = left.find(name);
        const auto r = right.find(name);
        report.values(section, name, l != left.end() ? l->second : none,
                      r != right.end() ? r->second : none);
    }
}

Status diff(const Options& options)
{
    const VxIniFile left = loadIni(options.left, options.caseSensitive);
    const VxIniFile right = loadIni(options.right, options.caseSensitive);
    std::set<LightweightString<char>, VxIniFile_Private::StringLT_Fancy> sections(
        VxIniFile_Private::StringLT_Fancy{options.caseSensitive});
    for (const VxIniFile* ini : {&left, &right})
        for (auto it = ini->getSectionIterator(); it.valid(); ++it)
            sections.insert(it.name());
    Report report(options.json);
    for (const auto& section : sections) {
        report.nextSection();
        compareSection(report, section, valuesOf(left.getSection(section)),
                       valuesOf(right.getSection(section)));
    }
    return report.finish(options);
}

} // namespace

void addIniDiff(Command ini)
{
    Command command = ini.add("diff", "Compares the contents of two files");
    auto options = std::make_shared<Options>();
    command.argument("FILE1", options->left, "An INI file");
    command.argument("FILE2", options->right, "An INI file");
    command.caseFlag(options->caseSensitive);
    command.jsonFlag(options->json);
    command.footer("Ignores the order of sections and keys, comments, blank lines and line endings,"
                   "\nbut not duplicate keys. Exit status 1 if the files differ.\n\nExample:\n  vx "
                   "ini diff editor.ini editor.ini.bak");
    command.runs([options] { return diff(*options); });
}

} // namespace tool
