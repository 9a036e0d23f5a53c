#include "settings/LockedFile.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/sysmacros.h>

namespace {

/// Opens without O_CREAT first: in sticky folders the kernel refuses O_CREAT for the files of
/// other users, even if they exist and may be written.
int openOrCreate(const char* path, int flags, mode_t mode)
{
    flags |= O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    for (;;) {
        int file = retried(systemCalls.openat, AT_FDCWD, path, flags & ~O_CREAT, mode_t(0));
        if (file >= 0 || errno != ENOENT || (flags & O_CREAT) == 0)
            return file;
        file = retried(systemCalls.openat, AT_FDCWD, path, flags | O_EXCL, mode);
        if (file >= 0)
            retried(systemCalls.fchmod, file, mode); // the umask does not apply
        if (file >= 0 || errno != EEXIST)
            return file;
    }
}

/// Returns a value that changes when the file is replaced.
ino_t identityOf(const char* path)
{
    struct stat status;
    return retried(systemCalls.fstatat, AT_FDCWD, path, &status, 0) == 0 ? status.st_ino : 0;
}

} // namespace

int LockedFile::open(const char* path, int flags, mode_t mode, const char* watched,
                     Patience patience)
{
    for (;;) {
        unlock();
        file_ = Descriptor(openOrCreate(path, flags, mode));
        if (!file_ || retried(systemCalls.fstat, file_.get(), &status_) != 0)
            return errno;
        const int operation = (flags & O_ACCMODE) == O_RDONLY ? LOCK_SH : LOCK_EX;
        if (const int error = wait(operation, watched, patience))
            return error;
        // Someone may have removed or replaced the file while we waited.
        if (retried(systemCalls.fstat, file_.get(), &status_) != 0)
            return errno;
        if (status_.st_nlink != 0)
            return 0;
    }
}

int LockedFile::lockAgain()
{
    if (const int error = wait(LOCK_EX, nullptr, Patience::kBounded))
        return error;
    return retried(systemCalls.fstat, file_.get(), &status_) == 0 ? 0 : errno;
}

int LockedFile::wait(int operation, const char* watched, Patience patience)
{
    constexpr int kMaxIdlePauses = 5000, kMaxPauses = 60000;
    constexpr timespec kPause = {0, 1'000'000};
    ino_t last = 0;
    for (int idle = 0, pauses = 0;; ++idle, ++pauses) {
        if (retried(systemCalls.flock, file_.get(), operation | LOCK_NB) == 0) {
            locked_ = true;
            return 0;
        }
        if (errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS)
            return 0;
        if (errno != EWOULDBLOCK || patience == Patience::kNone || idle == kMaxIdlePauses ||
            pauses == kMaxPauses)
            return errno;
        systemCalls.nanosleep(&kPause, nullptr);
        if (watched == nullptr)
            continue;
        // There is no queue: another process may take the lock many times before this one
        // finds it free. That is not the holder's fault as long as the work gets done.
        const ino_t now = identityOf(watched);
        if (now != last)
            idle = 0;
        last = now;
    }
}

void LockedFile::unlock()
{
    // Not left to close(): a forked child may hold a copy of the descriptor.
    if (locked_)
        retried(systemCalls.flock, file_.get(), LOCK_UN);
    locked_ = false;
}

std::string LockedFile::holder() const
{
    char line[256];
    char name[64] = "";
    int process = 0;
    if (std::FILE* const locks = std::fopen("/proc/locks", "re")) {
        while (process == 0 && std::fgets(line, sizeof(line), locks) != nullptr) {
            int owner;
            unsigned int deviceMajor, deviceMinor;
            unsigned long inode;
            // 1: FLOCK  ADVISORY  WRITE 4711 08:01:131 0 EOF
            if (std::sscanf(line, "%*d: FLOCK %*s %*s %d %x:%x:%lu", &owner, &deviceMajor,
                            &deviceMinor, &inode) == 4 &&
                inode == status_.st_ino && deviceMajor == major(status_.st_dev) &&
                deviceMinor == minor(status_.st_dev))
                process = owner;
        }
        std::fclose(locks);
    }
    if (process == 0)
        return "another process";
    const std::string number = std::to_string(process);
    if (std::FILE* const comm = std::fopen(("/proc/" + number + "/comm").c_str(), "re")) {
        if (std::fscanf(comm, "%63[ -~]", name) != 1) // the name is that process's choice
            name[0] = '\0';
        std::fclose(comm);
    }
    return "process " + number + (name[0] != '\0' ? " (" + std::string(name) + ")" : "");
}
