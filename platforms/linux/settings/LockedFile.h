// LockedFile.h - An open file that is locked against other processes.
#pragma once

#include "files/Descriptor.h"

#include <string>
#include <sys/stat.h>

/// Opens a file and holds an flock() on it: shared if it is opened for reading only, exclusive
/// otherwise. Never follows a symbolic link at the end of the path, never blocks on a pipe.
///
/// Waiting is bounded: a stopped process, or one of another user, may hold the lock for ever.
///   open() gives up after about five seconds, or, as long as others keep replacing the file
///   \p watched, after about a minute.
/// File systems without locks: the file counts as locked, as there is no better protection.
class LockedFile {
public:
    ~LockedFile() { unlock(); }

    /// How open() deals with a lock that is taken.
    enum class Patience { kNone, kBounded };

    /// \param flags those of open(2). With O_CREAT a missing file is created, with exactly the
    ///   permissions \p mode
    /// \param watched a file whose replacement shows that the holders make progress, or null
    /// \returns 0, EWOULDBLOCK if the lock stayed taken (the file is open, but not locked), or
    ///   another errno value
    int open(const char* path, int flags, mode_t mode, const char* watched = nullptr,
             Patience patience = Patience::kBounded);

    /// Locks the open file exclusively again after unlock(), with the same results as open().
    int lockAgain();

    /// Releases the lock, but leaves the file open.
    void unlock();

    bool isLocked() const noexcept { return locked_; }
    int descriptor() const noexcept { return file_.get(); }

    /// The state of the file after the last successful open() or lockAgain().
    const struct stat& status() const noexcept { return status_; }

    /// Names the process that holds the lock, such as "process 4711 (editor)", as far as the
    /// kernel tells. \throws std::bad_alloc
    std::string holder() const;

private:
    int wait(int operation, const char* watched, Patience patience);

    Descriptor file_;
    struct stat status_ = {};
    bool locked_ = false;
};
