// ReadFile.h - A regular file opened for reading.
#pragma once

#include "files/Descriptor.h"

#include <Vx/platform/iFileSystem.h>

/// Reads a regular file from start to end.
class ReadFile final : public iFile {
public:
    /// Opens a regular file of less than 4 GiB. Refuses everything else without opening it, so it
    /// neither blocks nor disturbs a device.
    /// \returns 0 or an errno value
    int open(const char* path);

    /// Returns the size at the time of opening. If the file grows, the rest is not read; if it
    /// shrinks, read() returns false.
    unsigned int size() override { return size_; }

    bool read(void* buffer, unsigned int byteCount) override;

    /// Returns false.
    bool write(const void* bytes, unsigned int byteCount) override;

    unsigned int refCount = 0; ///< for Vx::Ptr

private:
    Descriptor file_;
    unsigned int size_ = 0;
};
