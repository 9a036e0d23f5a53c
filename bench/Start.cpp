// The cost of loading the library, and modules that use it.
#include "Documents.h"
#include "Table.h"

#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

bool runsWell(std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
        return false;
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Wall-clock time, since the child's processor time is not ours.
void startProcess(bench::State& state, const std::vector<std::string>& words)
{
    bench::run(state, runsWell(words), [&] { runsWell(words); });
}

// The same module under many names, as a host has many modules.
void loadModules(bench::State& state, const std::string& program, const std::string& module)
{
    constexpr int kModules = 200;
    const bench::Folder folder;
    for (int i = 0; i < kModules; ++i)
        std::filesystem::copy_file(module, folder.file(std::to_string(i) + ".so"));
    startProcess(state, {program, folder.file(""), std::to_string(kModules)});
}

} // namespace

void bench::addStart()
{
    const std::filesystem::path folder = std::filesystem::canonical("/proc/self/exe").parent_path();
    const auto add = [](const Row& row, const std::string& who, auto body) {
        benchmark::RegisterBenchmark((row.prefix() + who).c_str(), body)->UseRealTime();
    };
    const auto program = [&](const char* suffix) -> std::string {
        return folder / (std::string("bench-start-") + suffix);
    };
    Row start("start", "start and end a process (wall clock)", {1.25});
    Row modules("start", "start, load 200 modules, end (wall clock)", {1.2});
    for (const auto& [who, suffix] :
         {std::pair("Vx", "with"), std::pair("the C++ library alone", "without")}) {
        const std::string name = program(suffix);
        const std::string module = folder / (std::string("bench-module-") + suffix + ".so");
        add(start, who, [=](State& state) { startProcess(state, {name}); });
        add(modules, who, [=](State& state) { loadModules(state, name, module); });
    }
    add(start, "floor: libraries of the same size",
        [name = program("sized")](State& state) { startProcess(state, {name}); });
}
