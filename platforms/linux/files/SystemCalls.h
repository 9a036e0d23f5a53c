// SystemCalls.h - every system call that the file and settings code makes.
#pragma once

#include <cerrno>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>

/// The calls as replaceable pointers, so that a test can let the n-th one fail, cut it
/// short or write it down. Each keeps the conventions of the C library: -1 and errno. What
/// openat() answers is never the number of a standard stream.
///
/// Threads: production code only reads the table; replace entries before other threads run.
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
    int (*fsync)(int descriptor);
    int (*flock)(int descriptor, int operation);
    int (*linkat)(int fromFolder, const char* from, int toFolder, const char* to, int flags);
    int (*renameat2)(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned int flags);
    int (*unlinkat)(int folder, const char* path, int flags);
    int (*mkdirat)(int folder, const char* path, mode_t mode);
};

/// The calls in use: the real ones, before any constructor has run.
extern constinit SystemCalls systemCalls;

/// Makes \p call, again as long as a signal interrupts it. Not for close(), which has
/// given its descriptor back even then.
template <class Result, class... Parameters, class... Arguments>
Result retried(Result (*call)(Parameters...), Arguments... arguments)
{
    for (;;) {
        const Result result = call(arguments...);
        if (result != -1 || errno != EINTR)
            return result;
    }
}
