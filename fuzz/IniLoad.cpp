// Any bytes as an INI file, its lines ended by any byte, against the rules of loading put
// plainly.
#include "Fuzz.h"

#include <Vx/VxIniFile.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <cctype>
#include <vector>

namespace {

struct PlainSection {
    LightweightString<char> name;
    std::vector<std::string> texts;
};
using PlainDocument = std::vector<PlainSection>;

bool printable(char c) { return std::isprint(static_cast<signed char>(c)) != 0; }

PlainSection& sectionOf(PlainDocument& document, const LightweightString<char>& name,
                        const VxIniFile_Private::StringLT_Fancy& less)
{
    for (PlainSection& section : document)
        if (!less(section.name, name) && !less(name, section.name))
            return section;
    document.push_back({name, {}});
    return document.back();
}

void plainLoad(PlainDocument& document, const std::string& file, char separator,
               const VxIniFile_Private::StringLT_Fancy& less)
{
    LightweightString<char> name = VxIniFile::kAnonymousSection();
    std::size_t start = 0;
    while (start <= file.size()) {
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
        while (!line.empty() && line.front() == ' ')
            line.erase(0, 1);
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        if (line.empty())
            continue;
        if (line.front() == '[' && line.back() == ']')
            name = ours(line.substr(1, line.size() - 2));
        else
            sectionOf(document, name, less).texts.push_back(line);
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
    PlainDocument expected;
    const VxIniFile_Private::StringLT_Fancy less{caseSensitive};
    for (int round = 0; round < 2; ++round) { // the second one merges
        FUZZ_CLAIM(ini.load(L"a", separator) == !file.empty());
        plainLoad(expected, file, separator, less);
        FUZZ_CLAIM(ini.getNumSections() == expected.size());
        for (const PlainSection& section : expected) {
            const auto found = ini.sections.find(section.name);
            FUZZ_CLAIM(found != ini.sections.end() && found->first == section.name);
            const VxIniFile::Pairs& pairs = found->second;
            FUZZ_CLAIM(pairs.size() == section.texts.size());
            for (std::size_t i = 0; i < pairs.size(); ++i) {
                const std::string& text = section.texts[i];
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
