// FileTarget.h - Finds the file that a path for writing leads to.
#pragma once

#include "files/Descriptor.h"

#include <string>

/// The folder and the name that a path leads to after following symbolic links, the last one
/// even if it dangles. The folder is held open, so that moving or replacing it cannot redirect
/// the writer. If the file exists but is not a regular one, only its status is found.
///
/// Links are followed as the kernel follows them with fs.protected_symlinks, whether or not that
/// is enabled: in a sticky folder that all users can write to, only links of this user and of
/// the folder's owner. Each link is opened before it is judged and read, so replacing it in
/// between has no effect.
struct FileTarget {
    Descriptor folder; ///< open for reading
    std::string name;  ///< a single name in the folder
    bool exists = false;
    struct stat status = {}; ///< of the file, if it exists

    /// \returns 0, or an errno value: no such folder, no permission, a link that must not be
    ///   followed, a name that only a folder can have
    /// \throws std::bad_alloc
    int resolve(const char* path);

private:
    int openFolderOf(const std::string& path);
    int mayFollow(const struct stat& link) const;
    int readLink(int link, std::string& target) const;
};
