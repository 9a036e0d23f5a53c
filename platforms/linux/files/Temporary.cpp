#include "files/Temporary.h"

#include <cassert>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

/// FNV-1a: two targets that meet in a name share slots, nothing worse.
std::uint64_t hashOf(const std::string& text)
{
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

/// Takes the lock that says "alive".
int lockAlive(int file)
{
    if (retried(systemCalls.flock, file, LOCK_EX | LOCK_NB) == 0)
        return 0;
    // Where nobody can lock, nobody takes us for dead either.
    const bool noLocksHere =
        errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL;
    return noLocksHere ? 0 : errno;
}

/// \returns 0 when \p name stands for \p file, ENOENT when it does not
int standsFor(int folder, const char* name, int file)
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
    if (folder_ >= 0 && slot_ >= 0)
        retried(systemCalls.unlinkat, folder_, slotName(slot_), 0);
}

int Temporary::create(int folder, const std::string& target, mode_t mode)
{
    char base[64];
    const int length = std::snprintf(base, sizeof(base), ".vx-%016llx-%u-0",
                                     static_cast<unsigned long long>(hashOf(target)), geteuid());
    target_ = target;
    slotName_.assign(base, static_cast<std::size_t>(length));
    folder_ = folder;

    removeDead();
    file_ =
        Descriptor(retried(systemCalls.openat, folder_, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (file_)
        return lockAlive(file_.get());
    // How file systems and kernels without unnamed files answer.
    if (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)
        return createNamed(mode);
    return errno;
}

int Temporary::createNamed(mode_t mode)
{
    for (int slot = 0; slot < kSlots; ++slot) {
        const char* name = slotName(slot);
        file_ = Descriptor(retried(systemCalls.openat, folder_, name,
                                   O_CREAT | O_EXCL | O_NOFOLLOW | O_RDWR | O_CLOEXEC, mode));
        if (!file_ && errno == EEXIST)
            continue;
        if (!file_)
            return errno;
        int error = lockAlive(file_.get());
        if (error == 0)
            error = standsFor(folder_, name, file_.get());
        // Between making the name and locking, another writer may have taken us for dead.
        if (error == EWOULDBLOCK || error == ENOENT)
            continue;
        slot_ = slot; // ours: from here on it is removed with us
        return error;
    }
    return EBUSY;
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

int Temporary::linkToSlot()
{
    for (int slot = 0; slot < kSlots; ++slot) {
        const int error = link(slotName(slot));
        if (error == 0)
            slot_ = slot;
        if (error != EEXIST)
            return error;
    }
    return EBUSY;
}

int Temporary::publish(bool replace)
{
    assert(file_ && folder_ >= 0);
    if (slot_ < 0) {
        if (!replace) {
            const int error = link(target_.c_str());
            if (error != EEXIST) // else somebody was faster: the last writer wins
                return error;
        }
        int error = linkToSlot();
        if (error == EBUSY) {
            removeDead();
            error = linkToSlot();
        }
        if (error != 0)
            return error;
    }
    if (retried(systemCalls.renameat2, folder_, slotName(slot_), folder_, target_.c_str(), 0u) != 0)
        return errno;
    slot_ = -1;
    // Released now rather than on close: a forked child may hold the descriptor open.
    retried(systemCalls.flock, file_.get(), LOCK_UN);
    return 0;
}

const char* Temporary::slotName(int slot)
{
    slotName_.back() = static_cast<char>('0' + slot);
    return slotName_.c_str();
}

void Temporary::removeDead()
{
    for (int slot = 0; slot < kSlots; ++slot)
        removeIfDead(slotName(slot));
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
    if (standsFor(folder_, name, file.get()) == 0)
        retried(systemCalls.unlinkat, folder_, name, 0);
}
