// Temporary.h - A file that is written under no name, or a temporary one, and then published.
#pragma once

#include "files/Descriptor.h"

#include <string>

/// The new content of a file while it is being written, in the folder of the file.
///
/// It has no name where the file system supports that: then nothing is left of it however the
/// process ends. It needs a temporary name from linking to renaming if it replaces a file, and
/// from the start on other file systems.
///
/// Temporary names are ".vx-<hash of the target's name>-<user>-<suffix>", short because the
/// target's name may be as long as the system allows. The suffix is one of a few digits, so that
/// the next writer of the target finds and removes the names of dead processes cheaply. If all of
/// them are taken, by other writers or by a user who wants to block us, it is random; then the
/// whole folder is searched for names of dead processes.
///
/// Dead or alive: a writer holds an exclusive flock() on its file from before it has a temporary
///   name until after it has lost it. Whoever gets the lock while the name still denotes the
///   locked file knows that the writer is dead and that no one else touches the name.
///
/// Thread safety: one thread at a time.
/// Errors: functions return 0 or an errno value.
class Temporary {
public:
    /// Removes the file unless it was published.
    ~Temporary();

    /// Opens an empty file in \p folder, to be published as \p target. \p folder must stay open.
    /// \throws std::bad_alloc
    int create(int folder, const std::string& target, mode_t mode);

    int descriptor() const noexcept { return file_.get(); }

    /// Gives the file the target's name, atomically. \p replace tells whether an old file is
    /// expected. A failure leaves the old file. Not durable until the folder is synced.
    int publish(bool replace);

    /// Forgets the names, for the copy of this object in a forked child.
    void disown() noexcept { folder_ = -1; }

private:
    template <class Take> int takeName(Take take);
    int createNamed(const char* name, mode_t mode);
    int link(const char* name);
    void removeAllDead();
    void removeIfDead(const char* name);

    int folder_ = -1;
    Descriptor file_;
    std::string target_;
    std::string prefix_;
    std::string name_; // the temporary name of our file; empty: none
};
