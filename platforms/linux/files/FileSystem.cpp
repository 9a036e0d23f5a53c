#include "files/FileSystem.h"

#include "diagnostics/Report.h"
#include "files/DeviceFile.h"
#include "files/FileTarget.h"
#include "files/ReadFile.h"
#include "files/ReplacedFile.h"
#include "text/Utf8.h"

#include <algorithm>
#include <memory>

namespace {

// The only place where errno values become the contract's result: a file or none.
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

// The system would read up to a NUL, and conversion replaces what is not a scalar value.
bool reachesSystemUnchanged(wchar_t c)
{
    return c > 0 && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

} // namespace

Vx::Ptr<iFile> FileSystem::openFile(const LightweightString<wchar_t>& path, int access,
                                    int disposition, int flags, int reserved)
{
    const bool reading = access == 1 && disposition == 0 && flags == 1 && reserved == 0;
    const bool writing = access == 2 && disposition == 3 && flags == 0 && reserved == 0;
    if (!reading && !writing)
        return {};
    // Not through OS(): how the system encodes paths is not the host's to override.
    const LightweightString<char> name = Utf8::encode(path.c_str(), path.length());
    if (!std::all_of(path.begin(), path.end(), reachesSystemUnchanged)) {
        report("could not open", name.c_str(), EILSEQ,
               "the path has a NUL or an invalid character");
        return {};
    }
    return reading ? opened<ReadFile>(name.c_str()) : openForWriting(name.c_str());
}

wchar_t FileSystem::pathSeparator() { return L'/'; }
