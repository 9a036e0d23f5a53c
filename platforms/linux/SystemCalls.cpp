#include "SystemCalls.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

constinit SystemCalls systemCalls = {
    .openat = [](int folder, const char* path, int flags,
                 mode_t mode) { return ::openat(folder, path, flags, mode); },
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
    .fsync = ::fsync,
    .flock = ::flock,
    .linkat = ::linkat,
    .renameat2 = ::renameat2,
    .unlinkat = ::unlinkat,
    .mkdirat = ::mkdirat,
};
