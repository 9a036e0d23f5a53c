#include "FileSystem.h"

Vx::Ptr<iFile> FileSystem::openFile(const LightweightString<wchar_t>&, int, int, int, int)
{
    return {};
}

wchar_t FileSystem::pathSeparator() { return L'/'; }
