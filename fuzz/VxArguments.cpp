// Any arguments of vx, with two files in memory: the exit status is one that the man page lists,
// only commands that write change a file, and running a command twice changes nothing more.
#include "Fuzz.h"

#include <Commands.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <iostream>
#include <utility>
#include <vector>

namespace {

/// Discards standard output and standard error during its lifetime.
class Silence {
public:
    Silence()
    {
        static std::FILE* const nowhere = std::fopen("/dev/null", "w");
        std::cout.rdbuf(nullptr);
        std::cerr.rdbuf(nullptr);
        stdout = stderr = nowhere;
    }
    ~Silence() { stdout = kept_.first, stderr = kept_.second; }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    const std::pair<std::FILE*, std::FILE*> kept_{stdout, stderr};
};

using Files = std::pair<std::string, std::string>;
Files filesOf(const ScriptedPlatform& platform)
{
    return {platform.file(L"f"), platform.file(L"g")};
}

tool::Status run(const std::vector<const char*>& words)
{
    const Silence silence;
    return tool::runVx(static_cast<int>(words.size()), words.data());
}

} // namespace

// The input: arguments, one per line, up to an empty line; then file f, a NUL and file g.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    std::vector<std::string> lines;
    while (!input.empty() && (lines.empty() || !lines.back().empty()))
        lines.push_back(input.line());
    std::vector<const char*> words{"vx"};
    bool writes = false;
    for (const std::string& line : lines) {
        if (line.empty())
            break;
        if (line == "settings") // reads the user's own files
            return 0;
        words.push_back(line.c_str());
        writes = writes || line == "set" || line == "unset" || line.rfind("-o", 0) == 0 ||
                 line.rfind("--output", 0) == 0;
    }
    const std::string bytes = input.rest();
    const std::size_t separator = std::min(bytes.find('\0'), bytes.size());

    ScriptedPlatform platform;
    platform.addFile(L"f", bytes.substr(0, separator));
    platform.addFile(L"g", bytes.substr(std::min(separator + 1, bytes.size())));
    const Files before = filesOf(platform);
    const tool::Status status = run(words);
    const Files after = filesOf(platform);
    FUZZ_CLAIM(status >= tool::kYes && status <= tool::kFailed);
    FUZZ_CLAIM(after == before || (writes && status == tool::kYes));
    run(words);
    FUZZ_CLAIM(filesOf(platform) == after);
    return 0;
}
