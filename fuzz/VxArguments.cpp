// Any arguments of vx, with two files in memory: the exit status is one that the man page lists,
// only commands that write change a file, and running a command twice changes nothing more.
#include "Fuzz.h"

#include <Commands.h>
#include <Vx/VxIniFile.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <algorithm>
#include <iostream>
#include <iterator>
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

// Lines up to an empty one.
std::vector<std::string> argumentsIn(Input& input)
{
    std::vector<std::string> arguments;
    while (!input.empty()) {
        arguments.push_back(input.line());
        if (arguments.back().empty()) {
            arguments.pop_back();
            break;
        }
    }
    return arguments;
}

bool mayWrite(const std::string& word)
{
    return word == "set" || word == "unset" || word == "fmt" || word == "merge" ||
           word.rfind("-o", 0) == 0 || word.rfind("--output", 0) == 0;
}

constexpr const char* kSet[] = {"ini", "set", "f"};
bool isSame(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

// `vx ini set f SECTION KEY VALUE` reads back and changes the inside of one line only.
void checkSet(const std::string& before, const std::string& after,
              const std::vector<const char*>& words)
{
    const std::string section = words[4];
    VxIniFile ini(L"f", true, false);
    bool found = false;
    for (const Vx::AttribValuePair& pair :
         ini.getSection(section == "-" ? VxIniFile::kAnonymousSection() : ours(section))) {
        if (found || pair.name != words[5] || std::strchr(pair.text.c_str(), '=') == nullptr)
            continue;
        found = true;
        FUZZ_CLAIM(pair.value == words[6]);
    }
    FUZZ_CLAIM(found);
    const auto start = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
    const auto end = std::mismatch(before.rbegin(), std::make_reverse_iterator(start.first),
                                   after.rbegin(), std::make_reverse_iterator(start.second));
    FUZZ_CLAIM(std::count(start.first, end.first.base(), '\n') == 0);
}

} // namespace

// The input: arguments, one per line, up to an empty line; then file f, a NUL and file g.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::vector<std::string> arguments = argumentsIn(input);
    std::vector<const char*> words{"vx"};
    for (const std::string& argument : arguments)
        words.push_back(argument.c_str());
    const auto has = [&](auto&& matches) {
        return std::any_of(arguments.begin(), arguments.end(), matches);
    };
    if (has([](const std::string& word) { return word == "settings"; }))
        return 0; // reads the user's own files
    const bool writes = has(mayWrite);
    const std::string bytes = input.rest();
    const std::size_t separator = std::min(bytes.find('\0'), bytes.size());

    ScriptedPlatform platform;
    platform.addFile(L"f", bytes.substr(0, separator));
    platform.addFile(L"g", bytes.substr(std::min(separator + 1, bytes.size())));
    const Files before = filesOf(platform);
    const tool::Status status = run(words);
    const Files after = filesOf(platform);
    FUZZ_CLAIM(status >= tool::kYes && status <= tool::kFailed);
    FUZZ_CLAIM(after == before || (writes && status == tool::kYes) ||
               (has([](const std::string& word) { return word == "merge"; }) &&
                status == tool::kNo)); // with conflicts
    run(words);
    FUZZ_CLAIM(filesOf(platform) == after);
    if (words.size() == 7 && status == tool::kYes &&
        std::equal(words.begin() + 1, words.begin() + 4, std::begin(kSet), isSame))
        checkSet(before.first, after.first, words);
    return 0;
}
