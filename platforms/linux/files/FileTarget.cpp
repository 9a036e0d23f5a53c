#include "files/FileTarget.h"

#include <climits>
#include <fcntl.h>
#include <linux/magic.h>

namespace {

constexpr int kMaxLinks = 40; // as many as the kernel follows

/// Links below /proc lead to open files, not to names.
bool inProcessFileSystem(int folder)
{
    struct statfs fileSystem;
    return retried(systemCalls.fstatfs, folder, &fileSystem) != 0 ||
           fileSystem.f_type == PROC_SUPER_MAGIC;
}

} // namespace

int FileTarget::resolve(const char* path)
{
    // Another writer replaces the file now and then, but not each time we look.
    constexpr int kTries = 100;
    int error = EAGAIN;
    for (int n = 0; error == EAGAIN && n < kTries; ++n) {
        *this = FileTarget();
        error = walk(path);
    }
    return error;
}

int FileTarget::walk(const char* path)
{
    // The kernel's own walk comes first: it knows the links that this user must not follow
    // (those of others in shared temporary folders), which reading them does not tell.
    if (retried(systemCalls.fstatat, AT_FDCWD, path, &status, 0) == 0)
        exists = true;
    else if (errno != ENOENT)
        return errno;
    if (exists && !S_ISREG(status.st_mode))
        return 0;

    std::string rest(path);
    for (int links = 0; links <= kMaxLinks; ++links) {
        const std::string::size_type slash = rest.rfind('/');
        const std::string folderPath =
            slash == std::string::npos ? std::string(".") : rest.substr(0, slash + 1);
        name = slash == std::string::npos ? rest : rest.substr(slash + 1);
        if (name.empty())
            return rest.empty() ? ENOENT : EISDIR;
        if (name == "." || name == "..")
            return EISDIR;

        Descriptor next(retried(systemCalls.openat, folder ? folder.get() : AT_FDCWD,
                                folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0u));
        if (!next)
            return errno;
        folder = std::move(next);

        char link[PATH_MAX];
        const ssize_t length =
            retried(systemCalls.readlinkat, folder.get(), name.c_str(), link, sizeof(link));
        if (length < 0 && errno != EINVAL && errno != ENOENT)
            return errno;
        if (length >= 0) {
            if (inProcessFileSystem(folder.get()))
                return ELOOP;
            rest.assign(link, static_cast<std::size_t>(length));
            continue;
        }

        if (!exists)
            return 0;
        // Two walks meet two files when somebody changes the path under us.
        struct stat found;
        if (retried(systemCalls.fstatat, folder.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) !=
            0)
            return errno == ENOENT ? EAGAIN : errno;
        return found.st_dev == status.st_dev && found.st_ino == status.st_ino ? 0 : EAGAIN;
    }
    return ELOOP;
}
