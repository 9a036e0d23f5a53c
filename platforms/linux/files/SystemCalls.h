// SystemCalls.h - Every system call that the file and settings code makes.
#pragma once

#include <cerrno>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>
#include <time.h>

/// The system calls as replaceable pointers, so that tests can make the n-th one fail, cut it
/// short or record it. Each follows the conventions of the C library: -1 and errno. openat()
/// never returns the number of a standard stream.
///
/// Thread safety: production code only reads the table. Replace entries before other threads run.
struct SystemCalls {
    int (*openat)(int folder, const char* path, int flags, mode_t mode);
    int (*close)(int descriptor);
    ssize_t (*read)(int descriptor, void* buffer, size_t byteCount);
    ssize_t (*write)(int descriptor, const void* bytes, size_t byteCount);
    int (*fstat)(int descriptor, struct stat* result);
    int (*fstatat)(int folder, const char* path, struct stat* result, int flags);
    int (*fstatfs)(int descriptor, struct statfs* result);
    int (*faccessat)(int folder, const char* path, int mode, int flags);
    ssize_t (*readlinkat)(int folder, const char* path, char* buffer, size_t byteCount);
    int (*fchmod)(int descriptor, mode_t mode);
    int (*fchown)(int descriptor, uid_t owner, gid_t group);
    ssize_t (*flistxattr)(int descriptor, char* names, size_t size);
    ssize_t (*fgetxattr)(int descriptor, const char* name, void* value, size_t size);
    int (*fsetxattr)(int descriptor, const char* name, const void* value, size_t size, int flags);
    int (*fremovexattr)(int descriptor, const char* name);
    int (*ftruncate)(int descriptor, off_t size);
    int (*fsync)(int descriptor);
    int (*flock)(int descriptor, int operation);
    int (*linkat)(int fromFolder, const char* from, int toFolder, const char* to, int flags);
    int (*renameat2)(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned int flags);
    int (*unlinkat)(int folder, const char* path, int flags);
    int (*mkdirat)(int folder, const char* path, mode_t mode);
    ssize_t (*getrandom)(void* buffer, size_t byteCount, unsigned int flags);
    int (*nanosleep)(const timespec* time, timespec* rest);
};

/// The calls in use. Constant-initialised with the real ones.
extern constinit SystemCalls systemCalls;

/// Makes \p call, and repeats it while a signal interrupts it. Not for close(), which releases
/// its descriptor even then.
template <class Result, class... Parameters, class... Arguments>
Result retried(Result (*call)(Parameters...), Arguments... arguments)
{
    for (;;) {
        const Result result = call(arguments...);
        if (result != -1 || errno != EINTR)
            return result;
    }
}
