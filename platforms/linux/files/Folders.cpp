#include "files/Folders.h"

#include "files/Descriptor.h"
#include "Shell.h"

#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace {

/// The value of a variable that names a folder, with a separator at its end; empty when it
/// is not set or, as the base-directory rules have it, not absolute.
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
    std::vector<char> texts(1024);
    passwd entry;
    passwd* found = nullptr;
    int error;
    do {
        error = getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found);
        if (error == ERANGE)
            texts.resize(texts.size() * 2);
    } while (error == ERANGE || error == EINTR);
    // Users without a home, as in containers, live at the root.
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

/// The folder that \p variable names, or \p inHome below the home folder.
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
    case Shell::kHomeFolder: return home();
    case Shell::kDocumentsFolder: return home() + "Documents/";
    case Shell::kTemporaryFolder: {
        const std::string path = folderVariable("TMPDIR");
        return path.empty() ? "/tmp/" : path;
    }
    case Shell::kCacheFolder: return base("XDG_CACHE_HOME", ".cache/");
    case Shell::kSharedDataFolder: return base("XDG_DATA_HOME", ".local/share/");
    case Shell::kStateFolder: return base("XDG_STATE_HOME", ".local/state/");
    default: return base("XDG_CONFIG_HOME", ".config/");
    }
}

bool isOwnFolder(int kind) { return kind != Shell::kHomeFolder && kind != Shell::kTemporaryFolder; }

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
        // Folders on the way may stand where this user may make nothing.
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
