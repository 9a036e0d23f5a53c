#include "SystemUtils.h"

#include "Uuid.h"
#include "diagnostics/CallStack.h"
#include "text/Utf8.h"

#include <cstring>
#include <time.h>

LightweightString<wchar_t> SystemUtils::wideFromAscii(const char* text)
{
    return text != nullptr ? Utf8::widen(text, std::strlen(text)) : LightweightString<wchar_t>();
}

LightweightString<char> SystemUtils::toUTF8(const LightweightString<wchar_t>& wide)
{
    return Utf8::encode(wide.c_str(), wide.length());
}

LightweightString<wchar_t> SystemUtils::fromUTF8(const char* bytes, unsigned int length)
{
    if (bytes == nullptr)
        return {};
    return Utf8::decode(bytes, length == kUpToTerminator ? std::strlen(bytes) : length);
}

double SystemUtils::msecsNow()
{
    // The result resolves a nanosecond in the first hundred days of uptime. From then on its
    // step doubles as often as the uptime does.
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

SimpleUUID SystemUtils::generateUUID() { return Uuid::generate(); }

void SystemUtils::captureCallStack(
    std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>& frames)
{
    CallStack::capture(frames, __builtin_return_address(0));
}
