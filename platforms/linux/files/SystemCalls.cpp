#include "files/SystemCalls.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

// If the host was started without its standard streams, the system hands out their numbers next,
// and anything printed would end up in a user's file.
int openAboveStandardStreams(int folder, const char* path, int flags, mode_t mode)
{
    const int opened = ::openat(folder, path, flags, mode);
    if (opened < 0 || opened > STDERR_FILENO)
        return opened;
    const int moved = ::fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    ::close(opened);
    errno = error;
    return moved;
}

} // namespace

constinit SystemCalls systemCalls = {
    .openat = openAboveStandardStreams,
    .close = ::close,
    .read = ::read,
    .write = ::write,
    .fstat = ::fstat,
    .fstatat = ::fstatat,
    .fstatfs = ::fstatfs,
    .faccessat = ::faccessat,
    .readlinkat = ::readlinkat,
    .fchmod = ::fchmod,
    .fchown = ::fchown,
    .flistxattr = ::flistxattr,
    .fgetxattr = ::fgetxattr,
    .fsetxattr = ::fsetxattr,
    .fremovexattr = ::fremovexattr,
    .ftruncate = ::ftruncate,
    .fsync = ::fsync,
    .flock = ::flock,
    .linkat = ::linkat,
    .renameat2 = ::renameat2,
    .unlinkat = ::unlinkat,
    .mkdirat = ::mkdirat,
    .getrandom = ::getrandom,
    .nanosleep = ::nanosleep,
};
