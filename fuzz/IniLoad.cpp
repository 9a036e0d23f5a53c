// Loading any bytes with any line separator agrees with the reference.
#include "Fuzz.h"

#include <Vx/VxIniFile.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <algorithm>
#include <cctype>
#include <strings.h>
#include <vector>

namespace {

struct IniSection {
    std::string name;
    std::vector<std::string> lines;
};
/// The sections in the order in which they appear.
using IniDocument = std::vector<IniSection>;

constexpr char kAnonymousIniSection[] = "@@@ANONYMOUS_SECTION_RESERVED_NAME@@@";

std::vector<std::string>& iniLines(IniDocument& document, const std::string& name,
                                   bool caseSensitive)
{
    const auto compare = caseSensitive ? std::strcmp : strcasecmp;
    for (IniSection& section : document)
        if (compare(section.name.c_str(), name.c_str()) == 0)
            return section.lines;
    document.push_back({name, {}});
    return document.back().lines;
}

/// What VxIniFile::load() adds to \p document, step by step.
void loadIni(IniDocument& document, const std::string& file, char separator, bool caseSensitive)
{
    const auto printable = [](char c) { return std::isprint(static_cast<signed char>(c)) != 0; };
    std::string section = kAnonymousIniSection;
    std::size_t start = 0;
    while (start < file.size()) {
        if (start != 0)
            while (start < file.size() && !printable(file[start]) && file[start] != separator)
                ++start;
        const std::size_t end = std::min(file.find(separator, start), file.size());
        std::string line = file.substr(start, end - start);
        start = end + 1;
        if (end != file.size() && printable(separator))
            line += separator;
        else
            while (!line.empty() && !printable(line.back()))
                line.pop_back();
        if (line.find_first_not_of(' ') == line.npos)
            continue;
        line.erase(0, line.find_first_not_of(' '));
        line.erase(line.find_last_not_of(' ') + 1);
        if (line.front() == '[' && line.back() == ']')
            section = line.substr(1, line.size() - 2);
        else
            iniLines(document, section, caseSensitive).push_back(line);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const char separator = input.take<char>();
    const bool caseSensitive = (input.take<char>() & 1) != 0;
    const std::string file = input.rest();

    ScriptedPlatform platform;
    platform.addFile(L"a", file);
    VxIniFile ini(caseSensitive);
    IniDocument expected;
    for (int round = 0; round < 2; ++round) { // the second one merges
        FUZZ_CLAIM(ini.load(L"a", separator) == !file.empty());
        loadIni(expected, file, separator, caseSensitive);
        FUZZ_CLAIM(ini.getNumSections() == expected.size());
        for (const IniSection& section : expected) {
            const auto found = ini.sections.find(ours(section.name));
            FUZZ_CLAIM(found != ini.sections.end() && plain(found->first) == section.name);
            const VxIniFile::Pairs& pairs = found->second;
            FUZZ_CLAIM(pairs.size() == section.lines.size());
            for (std::size_t i = 0; i < pairs.size(); ++i) {
                const std::string& text = section.lines[i];
                FUZZ_CLAIM(plain(pairs[i].text) == text);
                const std::size_t equals = std::string(text.c_str()).find('=');
                const bool split = equals != std::string::npos;
                FUZZ_CLAIM(plain(pairs[i].name) == (split ? text.substr(0, equals) : ""));
                FUZZ_CLAIM(plain(pairs[i].value) == (split ? text.substr(equals + 1) : ""));
            }
        }
    }
    return 0;
}
