#include "files/ReplacedFile.h"

#include "diagnostics/Report.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

int ReplacedFile::open(const char* path, FileTarget target)
{
    path_ = path;
    target_ = std::move(target);
    exceptionsAtOpen_ = std::uncaught_exceptions();
    process_ = getpid();

    const int folder = target_.folder.get();
    if (target_.exists) {
        // Renaming over a file asks only the folder; a protected file is to stay protected.
        if (retried(systemCalls.faccessat, folder, target_.name.c_str(), W_OK, AT_EACCESS) != 0)
            return errno;
        // Shared temporary folders let only the owner give a name to something else.
        struct stat status;
        if (retried(systemCalls.fstat, folder, &status) != 0)
            return errno;
        const uid_t user = geteuid();
        if ((status.st_mode & S_ISVTX) != 0 && user != 0 && user != status.st_uid &&
            user != target_.status.st_uid)
            return EPERM;
    }
    // Until it has the old file's permissions, nobody else opens it.
    if (const int error = temporary_.create(folder, target_.name, target_.exists ? 0600 : 0666))
        return error;
    if (target_.exists)
        if (const int error = keepAttributes())
            return error;
    opened_ = true;
    return 0;
}

int ReplacedFile::keepAttributes()
{
    const int file = temporary_.descriptor();
    const struct stat& old = target_.status;
    struct stat now;
    if (retried(systemCalls.fstat, file, &now) != 0)
        return errno;
    mode_t mode = old.st_mode & 07777;
    if (now.st_uid != old.st_uid &&
        retried(systemCalls.fchown, file, old.st_uid, static_cast<gid_t>(-1)) != 0)
        mode &= ~mode_t(S_ISUID); // would lend the rights of somebody else
    if (now.st_gid != old.st_gid &&
        retried(systemCalls.fchown, file, static_cast<uid_t>(-1), old.st_gid) != 0) {
        const mode_t everybody = mode & S_IRWXO;
        mode &= ~mode_t(S_ISGID) & (~mode_t(S_IRWXG) | everybody << 3);
    }
    if (retried(systemCalls.fchmod, file, mode) == 0)
        return 0;
    // Some file systems have permissions of their own that nobody sets; ours are narrow.
    return errno == EPERM || errno == EOPNOTSUPP ? 0 : errno;
}

bool ReplacedFile::read(void*, unsigned int) { return false; }

bool ReplacedFile::write(const void* bytes, unsigned int byteCount)
{
    if (error_ != 0)
        return false;
    if (byteCount == 0)
        return sync();
    if (byteCount > UINT_MAX - size_)
        return failed(EFBIG);
    // The first write goes straight through: whoever writes everything at once learns here
    // whether there is room for it.
    const bool straight = size_ == 0 || byteCount >= kBufferSize;
    unsynced_ = true;
    size_ += byteCount;
    if (byteCount > kBufferSize - buffered_ && !flush())
        return false;
    if (straight)
        return toDescriptor(static_cast<const char*>(bytes), byteCount);
    std::memcpy(buffer_ + buffered_, bytes, byteCount);
    buffered_ += byteCount;
    return true;
}

bool ReplacedFile::flush() { return toDescriptor(buffer_, std::exchange(buffered_, 0)); }

bool ReplacedFile::toDescriptor(const char* bytes, unsigned int byteCount)
{
    while (byteCount != 0) {
        const ssize_t written =
            retried(systemCalls.write, temporary_.descriptor(), bytes, std::size_t(byteCount));
        if (written <= 0)
            return failed(written < 0 ? errno : EIO);
        bytes += written;
        byteCount -= static_cast<unsigned int>(written);
    }
    return true;
}

bool ReplacedFile::sync()
{
    if (!flush())
        return false;
    if (unsynced_ && retried(systemCalls.fsync, temporary_.descriptor()) != 0)
        return failed(errno);
    unsynced_ = false;
    return true;
}

bool ReplacedFile::failed(int error)
{
    error_ = error;
    return false;
}

bool ReplacedFile::commit()
{
    if (error_ != 0 || !sync())
        return false;
    if (const int error = temporary_.publish(target_.exists))
        return failed(error);
    // Some file systems have no fsync() for folders; there is nothing more to do then.
    if (retried(systemCalls.fsync, target_.folder.get()) != 0 && errno != EINVAL)
        report("replaced", path_.c_str(), errno, "a power failure may bring the old file back");
    return true;
}

int ReplacedFile::finish()
{
    opened_ = false;
    return commit() ? 0 : error_;
}

ReplacedFile::~ReplacedFile()
{
    if (getpid() != process_) {
        temporary_.disown();
        return;
    }
    if (!opened_ || std::uncaught_exceptions() > exceptionsAtOpen_)
        return;
    if (!commit())
        report("could not write", path_.c_str(), error_,
               target_.exists ? "the old file stands" : "no file was made");
}
