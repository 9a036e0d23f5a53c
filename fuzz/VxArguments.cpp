// Any words behind `vx`, on two files in memory: an answer that the man page knows, changes only
// by the commands that make them, and none by the same command again.
#include "Fuzz.h"

#include <CommandLine.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <iostream>
#include <utility>
#include <vector>

namespace {

/// Makes no folders.
struct WithoutFolders : PlatformProxy {
    LightweightString<wchar_t> getFolder(int) override { return L"/nowhere/"; }
    void setOutputDiagnosticsFolder(const LightweightString<wchar_t>&) override {}
};

/// Nothing reaches the terminal while it lives.
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

tool::Status answerTo(std::vector<char*> words)
{
    const Silence silence;
    tool::Status status = tool::kFailed;
    const tool::Action action =
        tool::readCommandLine(static_cast<int>(words.size()), words.data(), status);
    return action ? tool::answerOf(action) : status;
}

} // namespace

// Words, a line each, up to an empty line; then the bytes of the file f, a zero, those of g.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // For good: the host that the library asks, and what it asked when it was made.
    static const auto* const platformOfHost = new WithoutFolders;
    static const auto* const host = new tool::Tool({});
    FUZZ_CLAIM(platformOfHost != nullptr && Vx::Application::instance() == host);
    Input input(data, size);
    std::vector<std::string> lines;
    while (!input.empty() && (lines.empty() || !lines.back().empty()))
        lines.push_back(input.line());
    std::string program = "vx";
    std::vector<char*> words{program.data()};
    bool changes = false;
    for (std::string& line : lines) {
        if (line.empty())
            break;
        if (line == "fcc") // asks for more than a million codes, which sanitizers make long
            return 0;
        words.push_back(line.data());
        changes = changes || line == "set" || line == "unset" || line.rfind("-o", 0) == 0 ||
                  line.rfind("--output", 0) == 0;
    }
    const std::string bytes = input.rest();
    const std::size_t zero = std::min(bytes.find('\0'), bytes.size());

    ScriptedPlatform platform;
    platform.addFile(L"f", bytes.substr(0, zero));
    platform.addFile(L"g", bytes.substr(std::min(zero + 1, bytes.size())));
    const Files before = filesOf(platform);
    const tool::Status status = answerTo(words);
    const Files after = filesOf(platform);
    FUZZ_CLAIM(status >= tool::kYes && status <= tool::kFailed);
    FUZZ_CLAIM(after == before || (changes && status == tool::kYes));
    answerTo(words);
    FUZZ_CLAIM(filesOf(platform) == after);
    return 0;
}
