// FileSystem.h - files.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iFileSystem.h>

class FileSystem final : public iFileSystem {
public:
    Vx::Ptr<iFile> openFile(const LightweightString<wchar_t>& path, int access, int disposition,
                            int flags, int reserved) override;
    wchar_t pathSeparator() override;
};
