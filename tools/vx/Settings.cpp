#include "Commands.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace tool {
namespace {

namespace fs = std::filesystem;

// The files of the reference platform, see docs/settings.md. iShell::getFolder() would create the
// folders, so vx finds them itself.

fs::path userDataFolder()
{
    const char* const named = std::getenv("XDG_CONFIG_HOME");
    if (named != nullptr && *named == '/')
        return named;
    const char* const home = std::getenv("HOME");
    if (home == nullptr || *home != '/')
        throw Failure("no-home");
    return fs::path(home) / ".config";
}

fs::path machineFolder()
{
    const char* const named = std::getenv("XDG_CONFIG_DIRS");
    std::istringstream folders(named != nullptr ? named : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (!folder.empty() && folder.front() == '/')
            return folder;
    return "/etc/xdg";
}

/// The names of the programs with settings in \p folder, as file names without extension.
std::set<std::string> storesIn(const fs::path& folder)
{
    std::set<std::string> stores;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
        if (const fs::path& file = entry.path();
            file.extension() == ".ini" || file.extension() == ".journal")
            stores.insert(file.stem().string());
    return stores;
}

/// Undoes the %XX escapes of a file name.
std::string programOf(const std::string& store)
{
    std::string program;
    for (std::size_t i = 0; i < store.size(); ++i) {
        unsigned char byte = static_cast<unsigned char>(store[i]);
        if (byte == '%' && i + 2 < store.size()) {
            std::from_chars(&store[i + 1], &store[i + 3], byte, 16);
            i += 2;
        }
        program += static_cast<char>(byte);
    }
    return program;
}

/// Whether the last run of a program ended cleanly; empty if there is no such value. Asks the
/// platform in a child process, since the settings of scope 0 belong to one program per process.
std::optional<bool> endedCleanly(std::string program)
{
    const pid_t child = fork();
    if (child == -1)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        program_invocation_short_name = program.data();
        const auto marker =
            OS()->shell()->getSettings(0)->getValue("Normal Exit", "", "Configuration");
        _exit(marker == "true" ? 0 : marker == "false" ? 1 : 2);
    }
    int status = -1;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR)
        ;
    if (!WIFEXITED(status) || WEXITSTATUS(status) == 2)
        return {};
    return WEXITSTATUS(status) == 0;
}

Status show(bool json)
{
    const fs::path user = userDataFolder() / "Vx";
    const fs::path programs = user / "programs";
    Table table({{"PROGRAM"}, {"LAST EXIT"}, {"STORE"}});
    Json list = Json::array();
    for (const std::string& store : storesIn(programs)) {
        const std::string program = programOf(store), file = programs / (store + ".ini");
        const std::optional<bool> clean = endedCleanly(program);
        table.add({shown(program),
                   !clean   ? "unknown"
                   : *clean ? "clean"
                            : "crashed, or running",
                   shown(file)});
        list.push_back({{"program", program},
                        {"store", file},
                        {"normalExit", clean ? Json(*clean) : Json(nullptr)}});
    }
    Json shared = Json::array();
    for (const fs::path& file : {user / "machine.ini", machineFolder() / "Vx/machine.ini"}) {
        std::error_code error;
        if (!fs::exists(file, error))
            continue;
        table.add({"(all programs)", "", shown(file.string())});
        shared.push_back(file.string());
    }
    if (json)
        printJson({{"programs", list}, {"shared", shared}});
    if (list.empty() && shared.empty())
        return complain("no-settings", {inQuotes(programs.string())});
    if (!json)
        table.print();
    return kYes;
}

} // namespace

void addSettings(Command top)
{
    Command command = top.add("settings", "Lists the settings of each program and its last exit");
    auto json = std::make_shared<bool>(false);
    command.jsonFlag(*json);
    command.footer("Lists the stores of the reference platform. Exit status 1 if there are none."
                   "\n\nExample:\n  vx settings");
    command.runs([json] { return show(*json); });
}

} // namespace tool
