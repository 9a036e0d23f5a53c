#include "files/Temporary.h"

#include <cassert>
#include <cstdint>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <unistd.h>

namespace {

constexpr const char* kDigits[] = {"0", "1", "2", "3"}; // suffixes of the usual names

/// FNV-1a. Two targets with the same hash share their temporary names, which is harmless.
std::uint64_t hashOf(const std::string& text)
{
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

/// Takes the lock that marks a file's writer as alive.
int lockAlive(int file)
{
    if (retried(systemCalls.flock, file, LOCK_EX | LOCK_NB) == 0)
        return 0;
    // Where no one can lock, no one takes this writer for dead either.
    const bool noLocksHere =
        errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL;
    return noLocksHere ? 0 : errno;
}

/// \returns 0 if \p name denotes the open \p file, ENOENT if it does not
int denotes(int folder, const char* name, int file)
{
    struct stat named;
    struct stat opened;
    if (retried(systemCalls.fstatat, folder, name, &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        retried(systemCalls.fstat, file, &opened) != 0)
        return errno;
    return named.st_dev == opened.st_dev && named.st_ino == opened.st_ino ? 0 : ENOENT;
}

} // namespace

Temporary::~Temporary()
{
    if (folder_ >= 0 && !name_.empty())
        retried(systemCalls.unlinkat, folder_, name_.c_str(), 0);
}

int Temporary::create(int folder, const std::string& target, mode_t mode)
{
    char prefix[64];
    std::snprintf(prefix, sizeof(prefix), ".vx-%016llx-%u-",
                  static_cast<unsigned long long>(hashOf(target)), geteuid());
    target_ = target;
    prefix_ = prefix;
    folder_ = folder;

    for (const char* digit : kDigits)
        removeIfDead((prefix_ + digit).c_str());
    file_ =
        Descriptor(retried(systemCalls.openat, folder_, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (file_)
        return lockAlive(file_.get());
    // What file systems and kernels without unnamed files return.
    if (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)
        return takeName([&](const char* name) { return createNamed(name, mode); });
    return errno;
}

// Calls take(name) until it returns something other than EEXIST.
template <class Take> int Temporary::takeName(Take take)
{
    const auto taken = [&](const std::string& name) {
        const int error = take(name.c_str());
        if (error == 0)
            name_ = name;
        return error;
    };
    for (const char* digit : kDigits)
        if (const int error = taken(prefix_ + digit); error != EEXIST)
            return error;
    removeAllDead();
    for (int tries = 0; tries < 100; ++tries) {
        std::uint64_t number;
        if (retried(systemCalls.getrandom, static_cast<void*>(&number), sizeof(number), 0u) !=
            sizeof(number))
            return errno;
        char suffix[32];
        std::snprintf(suffix, sizeof(suffix), "%016llx", static_cast<unsigned long long>(number));
        if (const int error = taken(prefix_ + suffix); error != EEXIST)
            return error;
    }
    return EEXIST;
}

int Temporary::createNamed(const char* name, mode_t mode)
{
    file_ = Descriptor(retried(systemCalls.openat, folder_, name,
                               O_CREAT | O_EXCL | O_NOFOLLOW | O_RDWR | O_CLOEXEC, mode));
    if (!file_)
        return errno;
    int error = lockAlive(file_.get());
    if (error == 0)
        error = denotes(folder_, name, file_.get());
    // Before it was locked, another writer may have taken this one for dead.
    if (error == EWOULDBLOCK || error == ENOENT)
        return EEXIST;
    if (error != 0)
        retried(systemCalls.unlinkat, folder_, name, 0);
    return error;
}

int Temporary::link(const char* name)
{
    char path[32];
    std::snprintf(path, sizeof(path), "/proc/self/fd/%d", file_.get());
    if (retried(systemCalls.linkat, AT_FDCWD, path, folder_, name, AT_SYMLINK_FOLLOW) == 0)
        return 0;
    if (errno != ENOENT)
        return errno;
    // Without /proc: newer kernels let the process that opened the file link it.
    if (retried(systemCalls.linkat, file_.get(), "", folder_, name, AT_EMPTY_PATH) == 0)
        return 0;
    return errno;
}

int Temporary::publish(bool replace)
{
    assert(file_ && folder_ >= 0);
    if (name_.empty()) {
        if (!replace) {
            const int error = link(target_.c_str());
            if (error != EEXIST) // else another writer was faster: the last one wins
                return error;
        }
        if (const int error = takeName([&](const char* name) { return link(name); }))
            return error;
    }
    if (retried(systemCalls.renameat2, folder_, name_.c_str(), folder_, target_.c_str(), 0u) != 0)
        return errno;
    name_.clear();
    // Released now rather than on close: a forked child may hold the descriptor open.
    retried(systemCalls.flock, file_.get(), LOCK_UN);
    return 0;
}

void Temporary::removeAllDead()
{
    Descriptor folder(
        retried(systemCalls.openat, folder_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0u));
    if (!folder)
        return;
    DIR* const entries = fdopendir(folder.get());
    if (entries == nullptr)
        return;
    folder.release(); // closedir() closes it
    int found = 0;
    constexpr int kMaxFound = 100; // another user may have made any number of such names
    while (const dirent* entry = readdir(entries))
        if (prefix_.compare(0, prefix_.npos, entry->d_name, 0, prefix_.size()) == 0 &&
            ++found <= kMaxFound)
            removeIfDead(entry->d_name);
    closedir(entries);
}

void Temporary::removeIfDead(const char* name)
{
    // For writing, because some network file systems lock exclusively only then.
    constexpr int kFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    Descriptor file(retried(systemCalls.openat, folder_, name, O_RDWR | kFlags, 0u));
    if (!file && errno == EACCES)
        file = Descriptor(retried(systemCalls.openat, folder_, name, O_RDONLY | kFlags, 0u));
    if (!file || retried(systemCalls.flock, file.get(), LOCK_EX | LOCK_NB) != 0)
        return;
    if (denotes(folder_, name, file.get()) == 0)
        retried(systemCalls.unlinkat, folder_, name, 0);
}
