#include "files/DeviceFile.h"

#include <fcntl.h>

int DeviceFile::open(const char* path)
{
    file_ = Descriptor(
        retried(systemCalls.openat, AT_FDCWD, path, O_WRONLY | O_NOCTTY | O_CLOEXEC, 0u));
    struct stat status;
    if (!file_ || retried(systemCalls.fstat, file_.get(), &status) != 0)
        return errno;
    return S_ISCHR(status.st_mode) ? 0 : EINVAL;
}

bool DeviceFile::read(void*, unsigned int) { return false; }

bool DeviceFile::write(const void* bytes, unsigned int byteCount)
{
    const char* from = static_cast<const char*>(bytes);
    while (byteCount != 0) {
        const ssize_t written = retried(systemCalls.write, file_.get(),
                                        static_cast<const void*>(from), std::size_t(byteCount));
        if (written <= 0)
            return false;
        from += written;
        size_ += static_cast<unsigned int>(written);
        byteCount -= static_cast<unsigned int>(written);
    }
    return true;
}
