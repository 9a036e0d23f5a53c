// platform-check - holds a libOS.so against what the library expects of a platform.
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

constexpr int kSeconds = 60; // a check that takes longer hangs

// Holds as soon as a process has started on the platform.
const Check kStarts = {"starts", "a process starts with the library", nullptr};

const char kUsage[] =
    "usage: platform-check LIBRARY [CHECK...]\n"
    "       platform-check --list\n"
    "\n"
    "Loads LIBRARY as the platform of a child process, once for each check, and holds it\n"
    "against what Vx expects of a platform. Names of checks, or their beginnings, choose\n"
    "some of them.\n"
    "\n"
    "Exit status: 0 all checks hold, 1 some do not, or no process starts with LIBRARY,\n"
    "2 the call is wrong.\n"
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

// The child: one check on the platform that the loader has put in place.
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
            std::printf("threw something that is no std::exception");
        }
        return 1;
    }
    return 2;
}

struct Outcome {
    bool held;
    std::string reason;
};

std::string described(int status, bool timedOut)
{
    if (timedOut)
        return "did not end within " + std::to_string(kSeconds) + " seconds";
    if (WIFSIGNALED(status))
        return std::string("ended by signal: ") + strsignal(WTERMSIG(status));
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

// The parent: starts this program again with the library in front, listens, waits.
Outcome runInChild(const std::string& self, const Check& check, const std::string& folder)
{
    int ends[2];
    if (pipe(ends) != 0)
        return {false, std::string("no pipe: ") + std::strerror(errno)};
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        setpgid(0, 0);
        // In front of what is there: the platform may need libraries of its own.
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
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        return {false, std::string("no process: ") + std::strerror(errno)};
    }

    std::string said;
    bool timedOut = false;
    for (;;) {
        pollfd waiting = {ends[0], POLLIN, 0};
        const int ready = poll(&waiting, 1, kSeconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        char buffer[4096];
        const ssize_t count = ready > 0 ? read(ends[0], buffer, sizeof buffer) : 0;
        if (ready == 0)
            timedOut = true;
        if (count <= 0)
            break;
        said.append(buffer, static_cast<std::size_t>(count));
    }
    close(ends[0]);
    if (timedOut)
        kill(-child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status == 0 && !timedOut)
        return {true, {}};
    std::replace(said.begin(), said.end(), '\n', ' ');
    if (WIFEXITED(status) && WEXITSTATUS(status) == 1 && !said.empty() && !timedOut)
        return {false, said};
    return {false, described(status, timedOut) + (said.empty() ? "" : ": " + said)};
}

bool chosenBy(const Check& check, std::string_view wanted)
{
    return std::string_view(check.name).substr(0, wanted.size()) == wanted;
}

bool chosen(const Check& check, int count, char** names)
{
    return count == 0 || std::any_of(names, names + count,
                                     [&](const char* wanted) { return chosenBy(check, wanted); });
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

    // Whoever mistypes one of several names must not hear that all checks hold.
    const std::vector<Check> checks = allChecks();
    for (int i = 2; i < argc; ++i)
        if (std::none_of(checks.begin(), checks.end(),
                         [&](const Check& check) { return chosenBy(check, argv[i]); })) {
            std::fprintf(stderr, "platform-check: no check is called %s; --list shows them\n",
                         argv[i]);
            return 2;
        }

    // The name under which the loader looks for a platform, in a folder that comes first.
    char folder[] = "/tmp/platform-check-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        std::perror("platform-check: no scratch folder");
        return 2;
    }
    const std::filesystem::path place(folder);
    std::filesystem::create_directory(place / "library");
    std::filesystem::create_symlink(library, place / "library" / "libOS.so");

    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    if (const Outcome outcome = runInChild(self, kStarts, folder); !outcome.held) {
        std::fprintf(stderr, "platform-check: no process starts with %s as its platform: %s\n",
                     argv[1], outcome.reason.c_str());
        std::filesystem::remove_all(place);
        return 1;
    }
    int held = 0;
    int broken = 0;
    for (const Check& check : checks) {
        if (!chosen(check, argc - 2, argv + 2))
            continue;
        const Outcome outcome = runInChild(self, check, folder);
        (outcome.held ? held : broken)++;
        std::printf("%s %-28s %s\n", outcome.held ? "ok  " : "FAIL", check.name, check.claim);
        if (!outcome.held)
            std::printf("     %s\n", outcome.reason.c_str());
        std::fflush(stdout);
    }
    std::filesystem::remove_all(place);
    std::printf("%d checks held, %d did not\n", held, broken);
    return broken == 0 ? 0 : 1;
}
