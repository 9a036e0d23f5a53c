// FileSystem.h - Opens files.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iFileSystem.h>

/// Opens files by path; paths are passed to the system as UTF-8.
///
/// For reading: regular files of less than 4 GiB.
/// For writing: regular files, which are created or replaced as a whole (see ReplacedFile),
///   symbolic links followed; and character devices, which are written straight.
/// Everything else gives an empty pointer: folders, pipes, sockets, block devices, arguments
///   other than the two combinations of iFileSystem. A path with a NUL or a value that is not a
///   Unicode scalar value would reach a different file; it is refused with a line on standard
///   error.
/// Errors: memory exhaustion propagates as std::bad_alloc, with nothing left open.
class FileSystem final : public iFileSystem {
public:
    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override;
    wchar_t pathSeparator() override;
};
