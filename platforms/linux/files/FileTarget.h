// FileTarget.h - which file a path for writing means.
#pragma once

#include "files/Descriptor.h"

#include <string>

/// The folder and the name that a path leads to, symbolic links followed to their end, the
/// last one even if nothing stands there yet. Held as a descriptor, so that a folder that
/// is moved or replaced meanwhile cannot lead the writer astray. For what is neither a
/// regular file nor a new one, only the status is found.
struct FileTarget {
    Descriptor folder; ///< open for reading
    std::string name;  ///< a single name in the folder
    bool exists = false;
    struct stat status = {}; ///< of the file, when it exists

    /// \returns 0, or an errno value: no such folder, no permission, a link that the system
    ///   does not let this user follow, a name that can only be a folder's, a path that
    ///   others change all the time (EAGAIN)
    /// \throws std::bad_alloc
    int resolve(const char* path);

private:
    int walk(const char* path);
};
