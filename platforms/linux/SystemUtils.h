// SystemUtils.h - text conversion, clock, identifiers, call stacks.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/iSystemUtils.h>

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
