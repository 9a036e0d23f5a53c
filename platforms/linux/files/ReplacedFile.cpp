#include "files/ReplacedFile.h"

#include "diagnostics/Report.h"
#include "files/FileAttributes.h"

#include <climits>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

int ReplacedFile::open(const char* path, FileTarget target, mode_t mode)
{
    path_ = path;
    target_ = std::move(target);
    exceptionsAtOpen_ = std::uncaught_exceptions();
    process_ = getpid();

    Descriptor old;
    if (target_.exists) {
        const int error = openOld(old);
        if (error == ENOENT)
            target_.exists = false; // removed by another program meanwhile
        else if (error != 0)
            return error;
    }
    // No one else may open it before it has its final permissions.
    const bool isPrivate = old || mode != 0;
    if (const int error =
            temporary_.create(target_.folder.get(), target_.name, isPrivate ? 0600 : 0666))
        return error;
    if (old)
        if (const int error = copyAttributes(old.get(), temporary_.descriptor())) {
            report("cannot replace", path, error,
                   "its permissions, access list or attributes would be lost");
            return error;
        }
    if (!old && mode != 0 && retried(systemCalls.fchmod, temporary_.descriptor(), mode) != 0)
        return errno;
    opened_ = true;
    return 0;
}

int ReplacedFile::openOld(Descriptor& old)
{
    const int folder = target_.folder.get();
    const char* const name = target_.name.c_str();
    // Renaming needs permission for the folder only; a protected file must stay protected.
    if (retried(systemCalls.faccessat, folder, name, W_OK, AT_EACCESS) != 0)
        return errno;
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    old = Descriptor(retried(systemCalls.openat, folder, name, O_RDONLY | kFlags, 0u));
    if (!old && errno == EACCES) // writable but not readable
        old = Descriptor(retried(systemCalls.openat, folder, name, O_WRONLY | kFlags, 0u));
    struct stat file;
    if (!old || retried(systemCalls.fstat, old.get(), &file) != 0)
        return errno;
    if (!S_ISREG(file.st_mode))
        return EINVAL;
    // In a sticky folder, only the owner may give the name to another file.
    struct stat status;
    if (retried(systemCalls.fstat, folder, &status) != 0)
        return errno;
    const uid_t user = geteuid();
    const bool owns = user == 0 || user == status.st_uid || user == file.st_uid;
    return (status.st_mode & S_ISVTX) == 0 || owns ? 0 : EPERM;
}

bool ReplacedFile::read(void*, unsigned int) { return false; }

bool ReplacedFile::write(const void* bytes, unsigned int byteCount)
{
    if (byteCount == 0)
        return commit() == 0;
    if (error_ != 0 || published_)
        return false;
    if (byteCount > UINT_MAX - size_)
        return failed(EFBIG);
    // The first write is not buffered: a program that writes everything at once and does not
    // commit learns here whether there is room for it.
    const bool straight = size_ == 0 || byteCount >= kBufferSize;
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

bool ReplacedFile::failed(int error)
{
    error_ = error;
    return false;
}

int ReplacedFile::commit()
{
    if (published_ || error_ != 0)
        return error_;
    if (getpid() != process_)
        return EPERM;
    if (!flush())
        return error_;
    if (retried(systemCalls.fsync, temporary_.descriptor()) != 0)
        return error_ = errno;
    if ((error_ = temporary_.publish(target_.exists)) != 0)
        return error_;
    published_ = true;
    // Some file systems cannot sync folders.
    if (retried(systemCalls.fsync, target_.folder.get()) != 0 && errno != EINVAL)
        report("replaced", path_.c_str(), errno, "a power failure may bring the old file back");
    return 0;
}

int ReplacedFile::finish()
{
    opened_ = false;
    return commit();
}

ReplacedFile::~ReplacedFile()
{
    if (getpid() != process_) {
        temporary_.disown();
        return;
    }
    // After a failure the caller has not necessarily looked at the result, so tell the user.
    const bool abandoned = std::uncaught_exceptions() > exceptionsAtOpen_;
    if (opened_ && !abandoned && commit() != 0)
        report("could not write", path_.c_str(), error_,
               target_.exists ? "the old file is unchanged" : "no file was created");
}
