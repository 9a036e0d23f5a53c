// The cost of loading the library.
#include "Table.h"

#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool runsWell(const std::string& program)
{
    char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0)
        return false;
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Wall-clock time, since the child's processor time is not ours.
void startProcess(bench::State& state, const std::string& program)
{
    bench::run(state, runsWell(program), [&] { runsWell(program); });
}

} // namespace

void bench::addStart()
{
    const std::filesystem::path folder = std::filesystem::canonical("/proc/self/exe").parent_path();
    Row row("start", "start and end a process (wall clock)");
    const auto add = [&](const std::string& name, const char* program) {
        const std::string path = folder / program;
        benchmark::RegisterBenchmark((row.prefix() + name).c_str(), [=](State& state) {
            startProcess(state, path);
        })->UseRealTime();
    };
    add("Vx", "bench-start-with");
    add("the C++ library alone", "bench-start-without");
}
