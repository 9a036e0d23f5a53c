// ReplacedFile.h - A file opened for writing that becomes visible when it is complete.
#pragma once

#include "files/FileTarget.h"
#include "files/Temporary.h"

#include <Vx/platform/iFileSystem.h>
#include <string>
#include <sys/types.h>

/// Creates or replaces a regular file, as a whole or not at all.
///
/// Content is written to a Temporary beside the target, buffered if it comes in small pieces.
/// The commit, at the latest when the last holder releases the file, makes the content durable,
/// gives it the target's name in one step, and makes the name durable.
///
/// The old file stays, and nothing else is left behind, if a write or the commit fails, if the
///   process dies, or if an exception that was thrown after opening releases the last holder (a
///   half-written document must not win). Except after an exception, one line on standard error
///   says so when the file is released.
/// A failed fsync() is final: it is not repeated, because the system would then report success.
/// The new file has the owner, permissions, access list and user attributes of the old one; see
///   copyAttributes(). If they cannot be kept, opening fails with a line on standard error.
///   Other hard links keep the old file.
/// In a forked child, releasing the file changes nothing, and a commit fails.
class ReplacedFile final : public iFile {
public:
    ~ReplacedFile() override;

    /// \p path is what messages call the file. A new file gets exactly the permissions \p mode,
    /// or, if that is 0, what the umask leaves of 0666.
    /// \returns 0, or an errno value, such as for no permission to write the old file or the
    ///   folder
    /// \throws std::bad_alloc
    int open(const char* path, FileTarget target, mode_t mode = 0);

    /// Returns the number of bytes written so far.
    unsigned int size() override { return size_; }

    /// Returns false.
    bool read(void* buffer, unsigned int byteCount) override;

    /// Appends \p byteCount bytes, or commits if there are none. After a failure every further
    /// call returns false; after a commit, every further write of at least one byte. Refuses
    /// more than 4 GiB - 1 in total, the largest size that size() can return.
    bool write(const void* bytes, unsigned int byteCount) override;

    /// Commits, for a caller that reports a failure itself: releasing the file does not.
    /// \returns 0 or an errno value
    int finish();

    unsigned int refCount = 0; ///< for Vx::Ptr

private:
    static constexpr unsigned int kBufferSize = 64 * 1024;

    int openOld(Descriptor& old);
    int commit();
    bool flush();
    bool toDescriptor(const char* bytes, unsigned int byteCount);
    bool failed(int error);

    FileTarget target_;
    Temporary temporary_; // destroyed before target_, whose folder it uses
    std::string path_;
    int error_ = 0; // errno of the first failure
    int exceptionsAtOpen_ = 0;
    pid_t process_ = 0;
    bool opened_ = false;
    bool published_ = false;
    unsigned int size_ = 0;
    unsigned int buffered_ = 0;
    char buffer_[kBufferSize];
};
