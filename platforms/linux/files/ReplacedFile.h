// ReplacedFile.h - a file opened for writing, seen by nobody before it is complete.
#pragma once

#include "files/FileTarget.h"
#include "files/Temporary.h"

#include <Vx/platform/iFileSystem.h>
#include <string>
#include <sys/types.h>

/// Creates or replaces a regular file, whole or not at all.
///
/// What is written goes to a Temporary beside the target, through a buffer, so that many
/// small writes cost little and a large one goes straight to the system. When the last
/// holder lets go, the content is put on the medium, takes the target's name in one step,
/// and the folder is put on the medium too.
///
/// The old file stands untouched, and nothing else stays behind, when a write failed, the
///   content could not be stored, the process ends, or the last holder lets go while an
///   exception unwinds that was not under way at the opening (a half-written document must
///   not win). Save for the exception, one line on standard error says so, because no
///   answer can reach the caller any more.
/// A failed fsync() is final: it is not tried again, and the old file stands.
/// The new file has the permissions, owner and group of the old one. Where the user may not
///   give it the group, the group gets no more than everybody. Hard links keep the old file.
/// A forked child that lets go of its copy changes nothing.
class ReplacedFile final : public iFile {
public:
    ~ReplacedFile() override;

    /// \p path is what the user calls the file, for messages.
    /// \returns 0, or an errno value: no permission to write the old file or the folder
    /// \throws std::bad_alloc
    int open(const char* path, FileTarget target);

    /// Bytes written so far.
    unsigned int size() override { return size_; }

    /// Always false: there is nothing to read.
    bool read(void* buffer, unsigned int byteCount) override;

    /// Takes \p byteCount bytes. Once it has returned false it always will, and the old
    /// file stands. More than 4 GiB - 1 in all is refused, since size() could not tell it.
    ///
    /// True for the first write means that the system has taken it, for a small one after
    /// that, that it is buffered. A write of 0 bytes asks for more: that everything written
    /// so far is on the medium. With a true answer to that, only taking the name can still
    /// fail.
    bool write(const void* bytes, unsigned int byteCount) override;

    /// Replaces the file now, for those who need the answer; the last holder then only
    /// closes.
    /// \returns 0, or an errno value: the old file stands
    int finish();

    unsigned int refCount = 0; ///< holders, counted by Vx::Ptr

private:
    static constexpr unsigned int kBufferSize = 64 * 1024;

    int keepAttributes();
    bool flush();
    bool sync();
    bool toDescriptor(const char* bytes, unsigned int byteCount);
    bool commit();
    bool failed(int error);

    FileTarget target_;
    Temporary temporary_; // behind target_: it uses the folder to the last
    std::string path_;
    int error_ = 0; // errno of the first failure
    int exceptionsAtOpen_ = 0;
    pid_t process_ = 0;
    bool opened_ = false;
    bool unsynced_ = true; // an empty new file must be put on the medium as well
    unsigned int size_ = 0;
    unsigned int buffered_ = 0;
    char buffer_[kBufferSize];
};
