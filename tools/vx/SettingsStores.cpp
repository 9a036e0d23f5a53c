#include "SettingsStores.h"

#include "Strings.h"
#include "Tool.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
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

bool SettingsStore::exists() const
{
    std::error_code error;
    return fs::exists(file, error) ||
           fs::exists(fs::path(file).replace_extension(".journal"), error);
}

SettingsStore settingsStore(const std::string& program)
{
    if (program != "-")
        return {0, program, userSettingsFolder() / "programs" / (fileNameOf(program) + ".ini")};
    const fs::path machine = machineSettingsFolder();
    const bool ours = access(machine.c_str(), W_OK | X_OK) == 0;
    return {1, "", (ours ? machine : userSettingsFolder()) / "machine.ini"};
}

std::set<std::pair<std::string, std::string>> settingsIn(const SettingsStore& store)
{
    std::set<std::pair<std::string, std::string>> keys;
    std::string section, line;
    std::ifstream saved(store.file);
    while (std::getline(saved, line)) {
        line = trimmed(line);
        if (line.size() > 1 && line.front() == '[' && line.back() == ']')
            section = unescaped(trimmed(line.substr(1, line.size() - 2)));
        else if (!line.empty() && line[0] != ';' && line[0] != '#' && line.find('=') != line.npos)
            keys.emplace(section, unescaped(trimmed(line.substr(0, line.find('=')))));
    }
    // A line of the journal: checksum, section, key and value, separated by tabs.
    std::ifstream journal(fs::path(store.file).replace_extension(".journal"));
    while (std::getline(journal, line)) {
        std::istringstream fields(line);
        std::string checksum, key, value;
        if (std::getline(fields, checksum, '\t') && std::getline(fields, section, '\t') &&
            std::getline(fields, key, '\t'))
            keys.emplace(unescaped(section), unescaped(key));
    }
    return keys;
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
        int status = 3;
        try {
            status = action();
        } catch (const std::exception&) {
            status = 3; // the parent says what did not happen
        }
        std::fflush(stdout);
        _exit(status);
    }
    int status = -1;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR)
        ;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace tool
