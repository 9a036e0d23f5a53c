// main.cpp - A complete host that can be read in one sitting.
//
//     host [--crash] [FILE]     the default file is examples/data/editor.ini
//
// Run it twice, then once with --crash, then once more, and watch what it prints about the
// previous run. Read on in EditorHost.cpp.

#include "Document.h"
#include "EditorHost.h"

#include <Vx/VxStringUtils.h>
#include <iostream>
#include <string_view>
#include <utility>

int main(int argc, char** argv)
{
    bool crash = false;
    const char* file = "examples/data/editor.ini";
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--crash")
            crash = true;
        else
            file = argv[i];
    }

    // Load before the application object exists: a run that fails here then does not count as a
    // run, and leaves the marker of a clean exit alone. The library's paths are wide strings; the
    // command line is UTF-8.
    const LightweightString<wchar_t> path = fromUTF8(LightweightString<char>(file));
    VxIniFile ini(/*sectionNameCaseSensitive=*/false);
    if (!ini.load(path, '\n')) {
        std::cerr << "host: cannot load " << file << ": " << whyNotLoaded(path) << '\n';
        return 1;
    }
    std::cout << "start: loaded " << file << '\n';

    // The application object is never deleted: the library keeps its address.
    EditorHost* const host = new EditorHost(std::move(ini), crash);
    host->start();

    std::cout << "end: the settings are saved; the next run will find a clean end\n"
              << "     data  " << toUTF8(host->getUserDataPath()) << '\n'
              << "     logs  " << toUTF8(host->getLogsPath()) << "PooledObjects.log\n";
    return host->succeeded() ? 0 : 1;
}
