#include "files/FileSystem.h"

#include "files/DeviceFile.h"
#include "files/FileTarget.h"
#include "files/ReadFile.h"
#include "files/ReplacedFile.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemUtils.h>
#include <memory>

namespace {

// Here every errno value becomes the contract's answer: a file object or none.
template <class File, class... Arguments> Vx::Ptr<iFile> opened(Arguments&&... arguments)
{
    std::unique_ptr<File> file(new File);
    if (file->open(std::forward<Arguments>(arguments)...) != 0)
        return {};
    unsigned int* count = &file->refCount;
    return Vx::Ptr<iFile>(count, file.release());
}

Vx::Ptr<iFile> openForWriting(const char* path)
{
    FileTarget target;
    if (target.resolve(path) != 0)
        return {};
    if (!target.exists || S_ISREG(target.status.st_mode))
        return opened<ReplacedFile>(path, std::move(target));
    return S_ISCHR(target.status.st_mode) ? opened<DeviceFile>(path) : Vx::Ptr<iFile>();
}

} // namespace

Vx::Ptr<iFile> FileSystem::openFile(const LightweightString<wchar_t>& path, int access,
                                    int disposition, int flags, int reserved)
{
    const bool reading = access == 1 && disposition == 0 && flags == 1 && reserved == 0;
    const bool writing = access == 2 && disposition == 3 && flags == 0 && reserved == 0;
    // The system would read a path up to its first zero and open something else.
    if (!(reading || writing) || std::wstring_view(path).find(L'\0') != std::wstring_view::npos)
        return {};
    const LightweightString<char> name = OS()->systemUtils()->toUTF8(path);
    return reading ? opened<ReadFile>(name.c_str()) : openForWriting(name.c_str());
}

wchar_t FileSystem::pathSeparator() { return L'/'; }
