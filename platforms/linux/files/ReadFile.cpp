#include "files/ReadFile.h"

#include <climits>
#include <fcntl.h>

namespace {

int refusal(const struct stat& status)
{
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    return status.st_size <= off_t(UINT_MAX) ? 0 : EFBIG;
}

} // namespace

int ReadFile::open(const char* path)
{
    struct stat status;
    // Opening a device or a pipe has side effects, so look at the name first.
    if (retried(systemCalls.fstatat, AT_FDCWD, path, &status, 0) != 0)
        return errno;
    if (const int error = refusal(status))
        return error;
    file_ = Descriptor(retried(systemCalls.openat, AT_FDCWD, path,
                               O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0u));
    // Look again at what was opened: the name may mean another file by now.
    if (!file_ || retried(systemCalls.fstat, file_.get(), &status) != 0)
        return errno;
    size_ = static_cast<unsigned int>(status.st_size);
    return refusal(status);
}

bool ReadFile::read(void* buffer, unsigned int byteCount)
{
    char* to = static_cast<char*>(buffer);
    while (byteCount != 0) {
        const ssize_t got =
            retried(systemCalls.read, file_.get(), static_cast<void*>(to), std::size_t(byteCount));
        if (got <= 0)
            return false;
        to += got;
        byteCount -= static_cast<unsigned int>(got);
    }
    return true;
}

bool ReadFile::write(const void*, unsigned int) { return false; }
