#include "files/FileAttributes.h"

#include "files/SystemCalls.h"

#include <cstdint>
#include <cstring>
#include <linux/limits.h>
#include <linux/xattr.h>
#include <vector>

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

bool isUnsupported(int error) { return error == EOPNOTSUPP || error == ENOSYS; }

int copyAttribute(int from, int to, const char* name)
{
    std::vector<char> value(XATTR_SIZE_MAX);
    const ssize_t size =
        retried(systemCalls.fgetxattr, from, name, static_cast<void*>(value.data()), value.size());
    if (size < 0)
        return errno == ENODATA ? 0 : errno; // another program has just removed it
    return retried(systemCalls.fsetxattr, to, name, static_cast<const void*>(value.data()),
                   static_cast<std::size_t>(size), 0) == 0
               ? 0
               : errno;
}

int copyUserAttributes(int from, int to)
{
    char* const none = nullptr;
    ssize_t size = retried(systemCalls.flistxattr, from, none, std::size_t(0));
    if (size <= 0)
        return size == 0 || isUnsupported(errno) ? 0 : errno;
    std::vector<char> names(XATTR_LIST_MAX);
    size = retried(systemCalls.flistxattr, from, names.data(), names.size());
    if (size < 0)
        return errno;
    const char* const end = names.data() + size;
    for (const char* name = names.data(); name < end; name += std::strlen(name) + 1)
        if (std::strncmp(name, XATTR_USER_PREFIX, XATTR_USER_PREFIX_LEN) == 0)
            if (const int error = copyAttribute(from, to, name))
                return error;
    return 0;
}

/// The kernel's form of an access list: a version, then entries.
struct AccessEntry {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t id;
};
constexpr std::size_t kVersionSize = 4;
constexpr std::uint16_t kOwningGroup = 0x04, kOthers = 0x20;

// Gives the owning group no more rights than everybody.
void narrowGroup(char* list, std::size_t size)
{
    std::uint16_t everybody = 0;
    for (const bool narrowing : {false, true})
        for (std::size_t at = kVersionSize; at + sizeof(AccessEntry) <= size;
             at += sizeof(AccessEntry)) {
            AccessEntry entry;
            std::memcpy(&entry, list + at, sizeof entry);
            if (!narrowing && entry.tag == kOthers)
                everybody = entry.permissions;
            if (narrowing && entry.tag == kOwningGroup) {
                entry.permissions &= everybody;
                std::memcpy(list + at, &entry, sizeof entry);
            }
        }
}

/// Sets \p found if \p from has an access list.
int copyAccessList(int from, int to, bool sameGroup, bool& found)
{
    std::vector<char> list(XATTR_SIZE_MAX);
    const ssize_t size = retried(systemCalls.fgetxattr, from, kAccessList,
                                 static_cast<void*>(list.data()), list.size());
    found = size >= 0;
    if (!found) {
        if (errno == ENODATA && retried(systemCalls.fremovexattr, to, kAccessList) == 0)
            return 0;
        return errno == ENODATA || isUnsupported(errno) ? 0 : errno;
    }
    if (!sameGroup)
        narrowGroup(list.data(), static_cast<std::size_t>(size));
    return retried(systemCalls.fsetxattr, to, kAccessList, static_cast<const void*>(list.data()),
                   static_cast<std::size_t>(size), 0) == 0
               ? 0
               : errno;
}

} // namespace

int copyAttributes(int from, int to)
{
    struct stat old, now;
    if (retried(systemCalls.fstat, from, &old) != 0 || retried(systemCalls.fstat, to, &now) != 0)
        return errno;
    if (const int error = copyUserAttributes(from, to))
        return error;

    mode_t mode = old.st_mode & 07777;
    if (now.st_uid != old.st_uid &&
        retried(systemCalls.fchown, to, old.st_uid, static_cast<gid_t>(-1)) != 0)
        mode &= ~mode_t(S_ISUID);
    const bool sameGroup = now.st_gid == old.st_gid ||
                           retried(systemCalls.fchown, to, static_cast<uid_t>(-1), old.st_gid) == 0;
    bool hasAccessList = false;
    if (const int error = copyAccessList(from, to, sameGroup, hasAccessList))
        return error;
    if (!sameGroup) {
        mode &= ~mode_t(S_ISGID);
        // With an access list these bits are its mask, which limits others' entries too.
        if (!hasAccessList)
            mode &= ~mode_t(S_IRWXG) | (mode & S_IRWXO) << 3;
    }
    if (retried(systemCalls.fchmod, to, mode) == 0)
        return 0;
    // Some file systems have fixed permissions.
    return errno == EPERM || errno == EOPNOTSUPP ? 0 : errno;
}
