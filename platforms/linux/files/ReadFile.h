// ReadFile.h - a regular file opened for reading.
#pragma once

#include "files/Descriptor.h"

#include <Vx/platform/iFileSystem.h>

/// Reads a regular file from start to end.
class ReadFile final : public iFile {
public:
    /// \returns 0, or an errno value. Folders, devices, pipes and files of 4 GiB or more are
    ///   refused; none of them is opened on the way, and none blocks.
    int open(const char* path);

    /// Bytes at the opening. A file that grows is read up to there; a file that shrinks
    /// makes read() return false.
    unsigned int size() override { return size_; }

    bool read(void* buffer, unsigned int byteCount) override;

    /// Always false: the file is for reading.
    bool write(const void* bytes, unsigned int byteCount) override;

    unsigned int refCount = 0; ///< holders, counted by Vx::Ptr

private:
    Descriptor file_;
    unsigned int size_ = 0;
};
