// Loading any bytes with any line separator agrees with the reference.
#include "Fuzz.h"

#include <Reference.h>
#include <Vx/VxIniFile.h>
#include <Vx/testing/ScriptedPlatform.h>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const char separator = input.take<char>();
    const bool caseSensitive = (input.take<char>() & 1) != 0;
    const std::string file = input.rest();

    ScriptedPlatform platform;
    platform.addFile(L"a", file);
    VxIniFile ini(caseSensitive);
    reference::IniDocument expected;
    for (int round = 0; round < 2; ++round) { // the second one merges
        FUZZ_CLAIM(ini.load(L"a", separator) == !file.empty());
        reference::loadIni(expected, file, separator, caseSensitive);
        FUZZ_CLAIM(ini.getNumSections() == expected.size());
        for (const reference::IniSection& section : expected) {
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
