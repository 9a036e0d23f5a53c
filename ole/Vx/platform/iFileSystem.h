// platform/iFileSystem.h - Files.
#pragma once

#include <Vx/VxFwd.h>

/// An open file. Closed when the last Vx::Ptr to it is released.
///
/// Each open file has a position of its own, which starts at 0. A file that is open for reading is
/// never changed through it.
/// A file opened for writing is published (becomes visible under its path, in place of the file
/// that was there) when it is committed or, without a commit, when it is closed.
/// Thread safety: one thread at a time.
class iFile {
public:
    virtual ~iFile() = default;

    /// Returns the size in bytes, independent of the current position.
    virtual unsigned int size() = 0;

    /// Reads exactly \p byteCount bytes at the current position, or returns false and leaves
    /// \p buffer unspecified. Never reads short.
    virtual bool read(void* buffer, unsigned int byteCount) = 0;

    /// Writes \p byteCount bytes at the current position, or returns false.
    ///
    /// A write of 0 bytes is the commit: it publishes what has been written and returns whether
    /// that worked. After it, only further commits are allowed. A platform that cannot commit
    /// returns true and publishes when the file is closed; its users then never learn of a
    /// failure.
    virtual bool write(const void* bytes, unsigned int byteCount) = 0;
};

/// Opens files by path.
///
/// Thread safety: may be called from any thread.
class iFileSystem {
public:
    /// Opens \p path. The library uses two combinations of arguments:
    ///
    ///     access 1, disposition 0, flags 1, reserved 0   read an existing file
    ///     access 2, disposition 3, flags 0, reserved 0   create or replace a file
    ///
    /// The path must reach the system unchanged: a path that the system cannot represent is
    /// refused, never converted to a different one.
    ///
    /// \returns the file, or an empty pointer if it cannot be opened: a missing file, a folder,
    ///   no permission, a size that 32 bits cannot hold. Does not throw for any of these.
    virtual Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access,
                                    int disposition, int flags, int reserved) = 0;

    /// Returns the character between the components of a path, never 0.
    virtual wchar_t pathSeparator() = 0;

protected:
    ~iFileSystem() = default;
};
