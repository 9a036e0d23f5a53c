#include "files/Folders.h"

#include "files/Descriptor.h"

#include <Vx/platform/iShell.h>
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>
#include <vector>

static_assert(FolderKind::kUserData == iShell::kUserDataFolder);

namespace {

/// Returns the folder that an environment variable names, ending in a separator; empty if the
/// variable is unset or not absolute, which the base-directory rules treat alike.
std::string folderVariable(const char* name)
{
    const char* value = secure_getenv(name);
    if (value == nullptr || *value != '/')
        return {};
    std::string path(value);
    if (path.back() != '/')
        path += '/';
    return path;
}

std::string homeOfUser()
{
    std::vector<char> strings(1024);
    passwd entry;
    passwd* found = nullptr;
    int error;
    do {
        error = getpwuid_r(geteuid(), &entry, strings.data(), strings.size(), &found);
        if (error == ERANGE)
            strings.resize(strings.size() * 2);
    } while (error == ERANGE || error == EINTR);
    // Containers run programs as users without an entry or a home: those get the root folder.
    std::string home =
        error == 0 && found != nullptr && found->pw_dir != nullptr && *found->pw_dir == '/'
            ? found->pw_dir
            : "/";
    if (home.back() != '/')
        home += '/';
    return home;
}

std::string home()
{
    const std::string path = folderVariable("HOME");
    return path.empty() ? homeOfUser() : path;
}

/// Returns the folder that \p variable names, or else \p inHome in the home folder.
std::string base(const char* variable, const char* inHome)
{
    const std::string path = folderVariable(variable);
    return path.empty() ? home() + inHome : path;
}

bool isFolder(const char* path)
{
    struct stat status;
    return retried(systemCalls.fstatat, AT_FDCWD, path, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

std::string folderPath(int kind)
{
    switch (kind) {
    case FolderKind::kHome: return home();
    case FolderKind::kDocuments: return home() + "Documents/";
    case FolderKind::kTemporary: {
        const std::string path = folderVariable("TMPDIR");
        return path.empty() ? "/tmp/" : path;
    }
    case FolderKind::kCache: return base("XDG_CACHE_HOME", ".cache/");
    case FolderKind::kSharedData: return base("XDG_DATA_HOME", ".local/share/");
    case FolderKind::kState: return base("XDG_STATE_HOME", ".local/state/");
    default: return base("XDG_CONFIG_HOME", ".config/");
    }
}

bool mayCreateFolder(int kind)
{
    return kind != FolderKind::kHome && kind != FolderKind::kTemporary;
}

std::string machineSettingsFolder()
{
    std::string folders;
    if (const char* value = secure_getenv("XDG_CONFIG_DIRS"))
        folders = value;
    for (std::string::size_type begin = 0; begin < folders.size();) {
        const std::string::size_type end = std::min(folders.find(':', begin), folders.size());
        if (folders[begin] == '/')
            return folders.substr(begin, end - begin) + "/Vx/";
        begin = end + 1;
    }
    return "/etc/xdg/Vx/";
}

void syncFolder(const std::string& path)
{
    const Descriptor folder(retried(systemCalls.openat, AT_FDCWD, path.empty() ? "." : path.c_str(),
                                    O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0u));
    if (folder)
        retried(systemCalls.fsync, folder.get());
}

int makeFolders(const std::string& path)
{
    if (isFolder(path.c_str()))
        return 0;
    for (std::string::size_type end = 0; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        const std::string part = path.substr(0, end);
        // A parent that exists may be refused with EACCES or EROFS rather than EEXIST.
        if (retried(systemCalls.mkdirat, AT_FDCWD, part.c_str(), mode_t(0700)) != 0) {
            const int error = errno;
            if (!isFolder(part.c_str()))
                return error == EEXIST ? ENOTDIR : error;
        } else {
            syncFolder(part.substr(0, part.rfind('/') + 1));
        }
    }
    return 0;
}
