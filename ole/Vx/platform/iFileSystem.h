// platform/iFileSystem.h - files.
#pragma once

#include <Vx/VxFwd.h>

/// A file opened by iFileSystem; closed when the last Vx::Ptr lets go.
///
/// Threads: one thread at a time.
class iFile {
public:
    virtual ~iFile() = default;

    /// Bytes from start to end, wherever the position stands.
    virtual unsigned int size() = 0;

    /// Fills all \p byteCount bytes from the current position, or returns
    /// false and leaves \p buffer unspecified. Never a short read.
    virtual bool read(void* buffer, unsigned int byteCount) = 0;

    /// Writes all \p byteCount bytes at the current position, or returns false.
    virtual bool write(const void* bytes, unsigned int byteCount) = 0;
};

/// Opens files by wide path.
///
/// Threads: any.
class iFileSystem {
public:
    /// Opens \p path. The library uses two combinations of arguments:
    ///
    ///     access 1, disposition 0, flags 1, reserved 0   read an existing file
    ///     access 2, disposition 3, flags 0, reserved 0   create or replace a file
    ///
    /// \returns the file, or an empty pointer when it cannot be opened: a missing
    ///   file, a directory, no permission, a size that 32 bits cannot hold. A
    ///   failure is an answer, never an exception.
    virtual Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access,
                                    int disposition, int flags, int reserved) = 0;

    /// The character between the components of a path.
    virtual wchar_t pathSeparator() = 0;

protected:
    ~iFileSystem() = default;
};
