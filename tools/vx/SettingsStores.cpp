#include "SettingsStores.h"

#include "Strings.h"
#include "Terminal.h"
#include "Tool.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace tool {
namespace {

namespace fs = std::filesystem;

// The files of the reference platform, see docs/settings.md. iShell::getFolder() would create the
// folders, so vx finds them itself.

/// The file name that the platform gives to a program's store, without extension.
std::string fileNameOf(const std::string& program)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string name;
    for (const char c : program) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || c == '/' || c == '%' || (c == '.' && name.empty()))
            name += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        else
            name += c;
    }
    return name.empty() ? "program" : name.substr(0, 200);
}

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

std::string unescaped(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t kind = std::string_view("nrt\\").find(
            text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0');
        unsigned char byte = 0;
        if (kind != std::string_view::npos) {
            result += "\n\r\t\\"[kind];
            ++i;
        } else if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' &&
                   std::from_chars(&text[i + 2], &text[i + 4], byte, 16).ec == std::errc()) {
            result += static_cast<char>(byte);
            i += 3;
        } else {
            result += text[i];
        }
    }
    return result;
}

bool mayReplaceFilesIn(const fs::path& folder)
{
    struct stat status = {};
    if (access(folder.c_str(), W_OK | X_OK) != 0 || stat(folder.c_str(), &status) != 0)
        return false;
    return (status.st_mode & S_ISVTX) == 0 || geteuid() == 0 || geteuid() == status.st_uid;
}

using Names = std::set<std::pair<std::string, std::string>>;

void addSaved(Names& names, const fs::path& file)
{
    std::string section, line;
    std::ifstream saved(file);
    while (std::getline(saved, line)) {
        line = trimmed(line);
        if (line.size() > 1 && line.front() == '[' && line.back() == ']')
            section = unescaped(trimmed(line.substr(1, line.size() - 2)));
        else if (!line.empty() && line[0] != ';' && line[0] != '#' && line.find('=') != line.npos)
            names.emplace(section, unescaped(trimmed(line.substr(0, line.find('=')))));
    }
}

/// Adds the names in a journal. A line has a checksum, section, key and value, separated by tabs.
void addRecorded(Names& names, const fs::path& file)
{
    std::string line;
    std::ifstream journal(file);
    while (std::getline(journal, line)) {
        std::istringstream fields(line);
        std::string checksum, section, key;
        if (std::getline(fields, checksum, '\t') && std::getline(fields, section, '\t') &&
            std::getline(fields, key, '\t'))
            names.emplace(unescaped(section), unescaped(key));
    }
}

} // namespace

fs::path userSettingsFolder()
{
    const char* const named = std::getenv("XDG_CONFIG_HOME");
    if (named != nullptr && *named == '/')
        return fs::path(named) / "Vx";
    const char* const home = std::getenv("HOME");
    if (home == nullptr || *home != '/')
        throw Failure("no-home");
    return fs::path(home) / ".config" / "Vx";
}

fs::path machineSettingsFolder()
{
    const char* const named = std::getenv("XDG_CONFIG_DIRS");
    std::istringstream folders(named != nullptr ? named : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (!folder.empty() && folder.front() == '/')
            return fs::path(folder) / "Vx";
    return "/etc/xdg/Vx";
}

bool isReadable(const fs::path& path)
{
    if (access(path.c_str(), R_OK) == 0)
        return true;
    if (errno == ENOENT || errno == ENOTDIR)
        return false;
    throw Failure("unreadable-file", {inQuotes(path.string()), std::strerror(errno)});
}

bool SettingsStore::exists() const
{
    const bool saved = isReadable(file);
    const bool recorded = isReadable(fs::path(file).replace_extension(".journal"));
    return saved || recorded || (!inherited.empty() && isReadable(inherited));
}

SettingsStore settingsStore(const std::string& program)
{
    if (program.empty())
        throw Failure("empty-program");
    if (program != "-")
        return {0, program, userSettingsFolder() / "programs" / (fileNameOf(program) + ".ini")};
    const fs::path machine = machineSettingsFolder();
    if (mayReplaceFilesIn(machine))
        return {1, "", machine / "machine.ini"};
    return {1, "", userSettingsFolder() / "machine.ini", machine / "machine.ini"};
}

std::set<std::pair<std::string, std::string>> settingsIn(const SettingsStore& store)
{
    Names names;
    addSaved(names, store.inherited);
    addSaved(names, store.file);
    addRecorded(names, fs::path(store.file).replace_extension(".journal"));
    return names;
}

int runAs(const SettingsStore& store, const std::function<int()>& action)
{
    std::fflush(stdout); // the child would print what is in the buffer again
    const pid_t child = fork();
    if (child == -1)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        std::string name = store.program;
        if (!name.empty())
            program_invocation_short_name = name.data();
        _exit(run([&] { return static_cast<Status>(action()); }));
    }
    int status = -1;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR)
        ;
    if (WIFSIGNALED(status))
        std::raise(WTERMSIG(status)); // as SIGPIPE when a pipe's reader has gone
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

} // namespace tool
