// SystemUtils.h - Text conversion, the clock, identifiers and call stacks.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSystemUtils.h>

/// Text conversion by Utf8.h, identifiers by Uuid.h, call stacks by CallStack.h; see there for what
/// they guarantee. The clock is the kernel's monotonic one: it stops while the machine sleeps,
/// and it cannot be set.
///
/// Thread safety: any thread.
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
