#include "SystemUtils.h"

#include "diagnostics/CallStack.h"
#include "text/Utf8.h"
#include "Uuid.h"

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
    // A double counts nanoseconds exactly enough for some hundred days of uptime; from then
    // on its step is 2 ns and doubles with the uptime.
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
