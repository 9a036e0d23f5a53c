#include "files/FileTarget.h"

#include <climits>
#include <fcntl.h>
#include <linux/magic.h>
#include <unistd.h>

int FileTarget::resolve(const char* path)
{
    // The kernel looks up the whole path first: it also knows mount options and security modules.
    if (retried(systemCalls.fstatat, AT_FDCWD, path, &status, 0) == 0) {
        exists = true;
        if (!S_ISREG(status.st_mode))
            return 0;
    } else if (errno != ENOENT) {
        return errno;
    }

    constexpr int kMaxLinks = 40; // as many as the kernel follows
    std::string rest(path);
    for (int links = 0; links <= kMaxLinks; ++links) {
        if (const int error = openFolderOf(rest))
            return error;
        const Descriptor file(retried(systemCalls.openat, folder.get(), name.c_str(),
                                      O_PATH | O_NOFOLLOW | O_CLOEXEC, 0u));
        exists = bool(file);
        if (!file)
            return errno == ENOENT ? 0 : errno;
        if (retried(systemCalls.fstat, file.get(), &status) != 0)
            return errno;
        if (!S_ISLNK(status.st_mode))
            return 0;
        if (const int error = mayFollow(status))
            return error;
        if (const int error = readLink(file.get(), rest))
            return error;
    }
    return ELOOP;
}

int FileTarget::openFolderOf(const std::string& path)
{
    const std::string::size_type slash = path.rfind('/');
    const std::string folderPath =
        slash == std::string::npos ? std::string(".") : path.substr(0, slash + 1);
    name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty())
        return path.empty() ? ENOENT : EISDIR;
    if (name == "." || name == "..")
        return EISDIR;
    // A relative link starts from the folder that contains it.
    Descriptor next(retried(systemCalls.openat, folder ? folder.get() : AT_FDCWD,
                            folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0u));
    if (!next)
        return errno;
    folder = std::move(next);
    return 0;
}

int FileTarget::mayFollow(const struct stat& link) const
{
    struct stat found;
    if (retried(systemCalls.fstat, folder.get(), &found) != 0)
        return errno;
    constexpr mode_t kShared = S_ISVTX | S_IWOTH;
    if ((found.st_mode & kShared) == kShared && link.st_uid != geteuid() &&
        link.st_uid != found.st_uid)
        return EACCES;
    // The link may be newer than the first lookup, so ask the kernel again.
    if (retried(systemCalls.fstatat, folder.get(), name.c_str(), &found, 0) != 0 && errno != ENOENT)
        return errno;
    return 0;
}

int FileTarget::readLink(int link, std::string& target) const
{
    // Links below /proc lead to open files, not to names.
    struct statfs fileSystem;
    if (retried(systemCalls.fstatfs, folder.get(), &fileSystem) != 0)
        return errno;
    if (fileSystem.f_type == PROC_SUPER_MAGIC)
        return ELOOP;
    char text[PATH_MAX];
    const ssize_t length = retried(systemCalls.readlinkat, link, "", text, sizeof(text));
    if (length < 0)
        return errno;
    target.assign(text, static_cast<std::size_t>(length));
    return 0;
}
