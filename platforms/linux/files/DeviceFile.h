// DeviceFile.h - a character device opened for writing.
#pragma once

#include "files/Descriptor.h"

#include <Vx/platform/iFileSystem.h>

/// Writes straight to a terminal, /dev/null and their like, which cannot be replaced.
class DeviceFile final : public iFile {
public:
    /// \returns 0 or an errno value
    int open(const char* path);

    /// Bytes written so far, modulo 2^32.
    unsigned int size() override { return size_; }

    /// Always false: the device is for writing.
    bool read(void* buffer, unsigned int byteCount) override;

    bool write(const void* bytes, unsigned int byteCount) override;

    unsigned int refCount = 0; ///< holders, counted by Vx::Ptr

private:
    Descriptor file_;
    unsigned int size_ = 0;
};
