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
const Check kStarts = {"starts", Contract, "", "a process starts with the library", nullptr};

const char* const kLevels[] = {"contract", "desktop", "reference"};

const char kUsage[] =
    "usage: platform-check [--level LEVEL] LIBRARY [CHECK...]\n"
    "       platform-check --list\n"
    "\n"
    "Checks that LIBRARY keeps the promises of a platform. Each check runs in a process of its\n"
    "own with LIBRARY as its platform. CHECK is the name of a check or the beginning of one;\n"
    "without any, all checks of the level run. Those of higher levels are listed as skipped.\n"
    "\n"
    "  --level contract   what the headers demand of every platform; the default\n"
    "  --level desktop    and what desktop applications expect: files and settings on disk\n"
    "  --level reference  and what only the platform that comes with the library promises\n"
    "  --list             list the checks: name, level, and the sentence that each verifies\n"
    "\n"
    "Exit status: 0 if all checks pass, 1 if some fail or no process starts with LIBRARY, 2 for\n"
    "a usage error.\n"
    "\n"
    "  platform-check build/release/platforms/linux/libOS.so\n"
    "  platform-check --level desktop ./libOS.so files. disk.settings\n";

std::vector<Check> allChecks()
{
    std::vector<Check> all;
    for (auto* part : {memoryChecks, textChecks, systemChecks, threadChecks, fileChecks,
                       shellChecks, diskChecks})
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

struct Options {
    Level level = Contract;
    const char* library = nullptr;
    std::vector<Check> checks;
};

int checkLibrary(const Options& options, const std::string& folder)
{
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    if (const Outcome outcome = runInChild(self, kStarts, folder); !outcome.passed) {
        std::fprintf(stderr, "platform-check: no process starts with %s as its platform: %s\n",
                     options.library, outcome.reason.c_str());
        return 1;
    }
    int passed = 0;
    int failed = 0;
    int skipped = 0;
    for (const Check& check : options.checks) {
        const bool skip = check.level > options.level;
        const Outcome outcome = skip ? Outcome{} : runInChild(self, check, folder);
        (skip ? skipped : outcome.passed ? passed : failed)++;
        std::printf("%s %-23s %s\n",
                    skip             ? "skip"
                    : outcome.passed ? "ok  "
                                     : "FAIL",
                    check.name, skip ? kLevels[check.level] : check.sentence);
        if (!skip && !outcome.passed)
            std::printf("     %s\n     promised in %s\n", outcome.reason.c_str(), check.source);
        std::fflush(stdout);
    }
    std::printf("%d checks passed, %d failed, %d skipped at level %s\n", passed, failed, skipped,
                kLevels[options.level]);
    return failed == 0 ? 0 : 1;
}

// Fills \p options from the arguments, or says on standard error what is wrong with them.
bool understand(int argc, char** argv, Options& options)
{
    int next = 1;
    if (argc > 2 && std::string_view(argv[1]) == "--level") {
        const auto* const level =
            std::find(std::begin(kLevels), std::end(kLevels), std::string_view(argv[2]));
        if (level == std::end(kLevels)) {
            std::fprintf(stderr, "platform-check: no level named %s; see --help\n", argv[2]);
            return false;
        }
        options.level = static_cast<Level>(level - kLevels);
        next = 3;
    }
    if (next >= argc || argv[next][0] == '-') {
        std::fputs(kUsage, stderr);
        return false;
    }
    options.library = argv[next++];
    options.checks = chosenChecks(argc - next, argv + next);
    const bool any = std::any_of(options.checks.begin(), options.checks.end(),
                                 [&](const Check& check) { return check.level <= options.level; });
    if (!any && !options.checks.empty())
        std::fprintf(stderr, "platform-check: %s is a check of --level %s\n",
                     options.checks[0].name, kLevels[options.checks[0].level]);
    return any;
}

} // namespace

static int run(int argc, char** argv)
{
    if (argc == 2 && std::string_view(argv[1]) == "--list") {
        for (const Check& check : allChecks())
            std::printf("%-23s %-9s %s: %s\n", check.name, kLevels[check.level], check.source,
                        check.sentence);
        return 0;
    }
    if (argc == 2 && std::string_view(argv[1]) == "--help") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    Options options;
    if (!understand(argc, argv, options))
        return 2;
    char library[PATH_MAX];
    if (realpath(options.library, library) == nullptr) {
        std::fprintf(stderr, "platform-check: %s: %s\n", options.library, std::strerror(errno));
        return 2;
    }

    // A folder that the loader searches first, with the library under a platform's name.
    char folder[] = "/tmp/platform-check-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        std::perror("platform-check: cannot create a scratch folder");
        return 2;
    }
    const std::filesystem::path place(folder);
    std::filesystem::create_directory(place / "library");
    std::filesystem::create_symlink(library, place / "library" / "libOS.so");
    const int status = checkLibrary(options, folder);
    std::filesystem::remove_all(place);
    return status;
}

int main(int argc, char** argv)
{
    if (argc == 3 && std::string_view(argv[1]) == "--child")
        return runOne(argv[2]);
    const int status = run(argc, argv);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return status;
    std::perror("platform-check: cannot write to standard output");
    return 2;
}
