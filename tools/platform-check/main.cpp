// platform-check - Checks a libOS.so against the contract that Vx expects of a platform.
#include "Check.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kSeconds = 60; // until a silent check counts as hanging

// Passes if a process starts with the platform at all.
const Check kStarts = {"starts", "a process starts with the library", nullptr};

const char kUsage[] =
    "usage: platform-check LIBRARY [CHECK...]\n"
    "       platform-check --list\n"
    "\n"
    "Checks LIBRARY against the contract that Vx expects of a platform. Each check runs in a\n"
    "process of its own with LIBRARY as its platform. CHECK is the name of a check or the\n"
    "beginning of one; without any, all checks run.\n"
    "\n"
    "Exit status: 0 if all checks pass, 1 if some fail or no process starts with LIBRARY, 2 for\n"
    "a usage error.\n"
    "\n"
    "  platform-check build/release/platforms/linux/libOS.so\n"
    "  platform-check ./libOS.so files. settings.processes\n";

std::vector<Check> allChecks()
{
    std::vector<Check> all;
    for (auto* part :
         {memoryChecks, textChecks, systemChecks, threadChecks, fileChecks, shellChecks})
        for (const Check& check : part())
            all.push_back(check);
    return all;
}

// In the child: runs one check on the platform that the loader has put in place.
int runOne(std::string_view name)
{
    if (name == kStarts.name)
        return 0;
    for (const Check& check : allChecks()) {
        if (name != check.name)
            continue;
        try {
            check.run();
            return 0;
        } catch (const Failure& failure) {
            std::printf("%s", failure.reason.c_str());
        } catch (const std::exception& error) {
            std::printf("threw %s", error.what());
        } catch (...) {
            std::printf("threw something other than a std::exception");
        }
        return 1;
    }
    return 2;
}

// Becomes this program again, with the library in \p folder as its platform. Does not return.
[[noreturn]] void becomeChild(const std::string& self, const Check& check,
                              const std::string& folder, const int (&ends)[2])
{
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    setpgid(0, 0);
    // Before the folders that are there: the platform may need libraries of its own.
    const char* const others = getenv("LD_LIBRARY_PATH");
    std::string path = folder + "/library";
    if (others != nullptr && *others != 0)
        path.append(":").append(others);
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
    const std::string home = folder + "/" + check.name;
    std::filesystem::create_directories(home);
    for (const char* variable :
         {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "TMPDIR"})
        setenv(variable, home.c_str(), 1);
    execl(self.c_str(), self.c_str(), "--child", check.name, static_cast<char*>(nullptr));
    _exit(127);
}

// Reads until the other end is closed.
// \returns false if nothing came for kSeconds
bool readAll(int descriptor, std::string& text)
{
    for (;;) {
        pollfd waiting = {descriptor, POLLIN, 0};
        const int ready = poll(&waiting, 1, kSeconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return ready != 0;
        char buffer[4096];
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count <= 0)
            return true;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

struct Outcome {
    bool passed;
    std::string reason;
};

std::string describe(int status)
{
    if (WIFSIGNALED(status))
        return std::string("killed by signal: ") + strsignal(WTERMSIG(status));
    return "exited with status " + std::to_string(WEXITSTATUS(status));
}

Outcome runInChild(const std::string& self, const Check& check, const std::string& folder)
{
    int ends[2];
    if (pipe(ends) != 0)
        return {false, std::string("cannot create a pipe: ") + std::strerror(errno)};
    const pid_t child = fork();
    if (child == 0)
        becomeChild(self, check, folder, ends);
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        return {false, std::string("cannot create a process: ") + std::strerror(errno)};
    }

    std::string said;
    const bool ended = readAll(ends[0], said);
    close(ends[0]);
    if (!ended)
        kill(-child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status == 0 && ended)
        return {true, {}};
    std::replace(said.begin(), said.end(), '\n', ' ');
    if (WIFEXITED(status) && WEXITSTATUS(status) == 1 && !said.empty())
        return {false, said};
    const std::string how =
        ended ? describe(status) : "did not end within " + std::to_string(kSeconds) + " seconds";
    return {false, how + (said.empty() ? "" : ": " + said)};
}

bool startsWith(std::string_view name, std::string_view beginning)
{
    return name.substr(0, beginning.size()) == beginning;
}

// Returns the checks that the arguments choose, or none if one of them matches no check: a
// mistyped name must not look like success.
std::vector<Check> chosenChecks(int count, char** names)
{
    const std::vector<Check> all = allChecks();
    for (int i = 0; i < count; ++i)
        if (std::none_of(all.begin(), all.end(),
                         [&](const Check& check) { return startsWith(check.name, names[i]); })) {
            std::fprintf(stderr, "platform-check: no check named %s; see --list\n", names[i]);
            return {};
        }
    std::vector<Check> chosen;
    for (const Check& check : all)
        if (count == 0 || std::any_of(names, names + count, [&](const char* name) {
                return startsWith(check.name, name);
            }))
            chosen.push_back(check);
    return chosen;
}

int checkLibrary(const char* name, const std::vector<Check>& checks, const std::string& folder)
{
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    if (const Outcome outcome = runInChild(self, kStarts, folder); !outcome.passed) {
        std::fprintf(stderr, "platform-check: no process starts with %s as its platform: %s\n",
                     name, outcome.reason.c_str());
        return 1;
    }
    int passed = 0;
    int failed = 0;
    for (const Check& check : checks) {
        const Outcome outcome = runInChild(self, check, folder);
        (outcome.passed ? passed : failed)++;
        std::printf("%s %-28s %s\n", outcome.passed ? "ok  " : "FAIL", check.name, check.claim);
        if (!outcome.passed)
            std::printf("     %s\n", outcome.reason.c_str());
        std::fflush(stdout);
    }
    std::printf("%d checks passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::string_view(argv[1]) == "--child")
        return runOne(argv[2]);
    if (argc == 2 && std::string_view(argv[1]) == "--list") {
        for (const Check& check : allChecks())
            std::printf("%-28s %s\n", check.name, check.claim);
        return 0;
    }
    if (argc < 2 || argv[1][0] == '-') {
        const bool asked = argc == 2 && std::string_view(argv[1]) == "--help";
        std::fputs(kUsage, asked ? stdout : stderr);
        return asked ? 0 : 2;
    }
    char library[PATH_MAX];
    if (realpath(argv[1], library) == nullptr) {
        std::fprintf(stderr, "platform-check: %s: %s\n", argv[1], std::strerror(errno));
        return 2;
    }
    const std::vector<Check> checks = chosenChecks(argc - 2, argv + 2);
    if (checks.empty())
        return 2;

    // A folder that the loader searches first, with the library under a platform's name.
    char folder[] = "/tmp/platform-check-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        std::perror("platform-check: cannot create a scratch folder");
        return 2;
    }
    const std::filesystem::path place(folder);
    std::filesystem::create_directory(place / "library");
    std::filesystem::create_symlink(library, place / "library" / "libOS.so");
    const int status = checkLibrary(argv[1], checks, folder);
    std::filesystem::remove_all(place);
    return status;
}
