// DeviceFile.h - A character device opened for writing.
#pragma once

#include "files/Descriptor.h"

#include <Vx/platform/iFileSystem.h>

/// Writes straight to a terminal, /dev/null or another character device, which cannot be
/// replaced. There is nothing to commit.
class DeviceFile final : public iFile {
public:
    /// \returns 0 or an errno value
    int open(const char* path);

    /// Returns the number of bytes written so far, modulo 2^32.
    unsigned int size() override { return size_; }

    /// Returns false.
    bool read(void* buffer, unsigned int byteCount) override;

    bool write(const void* bytes, unsigned int byteCount) override;

    unsigned int refCount = 0; ///< for Vx::Ptr

private:
    Descriptor file_;
    unsigned int size_ = 0;
};
