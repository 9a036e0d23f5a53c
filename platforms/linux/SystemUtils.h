// SystemUtils.h - text conversion, clock, identifiers, call stacks.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSystemUtils.h>

/// Text by Utf8.h, identifiers by Uuid.h, call stacks by CallStack.h; what these promise holds
/// here. The clock is the kernel's monotonic one: it stands still while the machine sleeps
/// and is not set by anyone.
///
/// Threads: any.
class SystemUtils final : public iSystemUtils {
public:
    LightweightString<wchar_t> wideFromAscii(const char* text) override;
    LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) override;
    LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) override;
    double msecsNow() override;
    SimpleUUID generateUUID() override;
    void captureCallStack(std::vector<LightweightString<char>,
                                      StdAllocator<LightweightString<char>>>& frames) override;
};
