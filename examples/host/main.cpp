// main.cpp - a host in one sitting: reads a configuration file, shows it, changes a value and
// saves a copy.
//
//     host [FILE]     the default file is examples/data/editor.ini

#include "Document.h"

#include <Vx/LightweightString.h>
#include <Vx/VxIniFile.h>
#include <Vx/VxStringUtils.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iShell.h>
#include <iostream>

int main(int argc, char** argv)
{
    // Paths are wide text everywhere in the library; the command line is UTF-8.
    const char* const file = argc > 1 ? argv[1] : "examples/data/editor.ini";
    const LightweightString<wchar_t> path = fromUTF8(LightweightString<char>(file));

    VxIniFile ini(/*sectionNameCaseSensitive=*/false);
    if (!ini.load(path, '\n')) {
        std::cerr << "host: cannot load " << file << ": " << whyNotLoaded(path) << '\n';
        return 1;
    }
    std::cout << "Loaded " << file << ", " << ini.getNumSections() << " sections:\n";
    print(ini);

    // The document is case-blind, as it was made: "playback" finds the section "Playback".
    std::cout << "The volume is " << valueOf(ini, "playback", "volume") << ".\n";
    setValue(ini, "Playback", "volume", "0.60");

    // saveAll() and not save(): this document has an anonymous section, at which save() stands
    // still for ever.
    LightweightString<wchar_t> copy = OS()->shell()->getFolder(4);
    copy += L"editor.ini";
    if (!ini.saveAll(copy)) {
        std::cerr << "host: cannot save " << toUTF8(copy) << '\n';
        return 1;
    }
    std::cout << "Set it to " << valueOf(ini, "Playback", "volume") << " and saved a copy as "
              << toUTF8(copy) << ".\n";

    const VxIniFile again(copy, /*loadNow=*/true, /*sectionNameCaseSensitive=*/false);
    std::cout << "The copy has the volume " << valueOf(again, "Playback", "volume") << " and "
              << countComments(again) << " of " << countComments(ini) << " comments.\n";
    return 0;
}
