// FileSystem.h - files.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iFileSystem.h>

/// Opens files; paths travel to the system as UTF-8.
///
/// For reading: regular files below 4 GiB.
/// For writing: regular files, created or replaced whole when the last holder lets go (see
///   ReplacedFile), symbolic links followed; and character devices, written straight.
/// Anything else (folders, pipes, sockets, block devices, a path with a zero in it, other
///   arguments than the two combinations of iFileSystem) gives an empty pointer.
/// Errors: memory exhaustion leaves as std::bad_alloc, with nothing left open.
class FileSystem final : public iFileSystem {
public:
    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override;
    wchar_t pathSeparator() override;
};
