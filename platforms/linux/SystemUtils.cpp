#include "SystemUtils.h"

#include <time.h>

LightweightString<wchar_t> SystemUtils::wideFromAscii(const char* text)
{
    LightweightString<wchar_t> wide;
    for (; text != nullptr && *text != 0; ++text)
        wide += static_cast<wchar_t>(static_cast<unsigned char>(*text));
    return wide;
}

LightweightString<char> SystemUtils::toUTF8(const LightweightString<wchar_t>& wide)
{
    LightweightString<char> narrow;
    for (wchar_t c : wide)
        narrow += static_cast<char>(c);
    return narrow;
}

LightweightString<wchar_t> SystemUtils::fromUTF8(const char* bytes, unsigned int)
{
    return wideFromAscii(bytes);
}

double SystemUtils::msecsNow()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

SimpleUUID SystemUtils::generateUUID() { return {}; }

void SystemUtils::captureCallStack(
    std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>&)
{}
