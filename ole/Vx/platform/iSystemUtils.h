// platform/iSystemUtils.h - text conversion, clock, identifiers, call stacks.
#pragma once

#include <Vx/VxFwd.h>
#include <vector>

/// 16 raw bytes of an identifier, in the layout of Vx::UUID.
struct SimpleUUID {
    unsigned char bytes[16]; ///< as they are stored, not as they are printed
};
static_assert(sizeof(SimpleUUID) == 16, "an identifier is 16 bytes and nothing else");

/// Text conversion, the clock, identifiers and call stacks.
///
/// Text: narrow text is UTF-8, wide text is UTF-32. A conversion never fails:
///   malformed input is replaced, not reported.
/// Threads: every operation may be called from any thread.
class iSystemUtils {
public:
    /// The \p length that means "up to the terminator" in fromUTF8().
    static constexpr unsigned int kUpToTerminator = 0xFFFFFFFFu;

    /// Widens a zero-terminated text character by character: each byte becomes
    /// the code point of the same number. Null reads as empty.
    virtual LightweightString<wchar_t> wideFromAscii(const char* text) = 0;

    /// The UTF-8 form of all characters of \p wide, zeros included. Values that
    /// are no code points become U+FFFD.
    virtual LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) = 0;

    /// Decodes \p length bytes of UTF-8, or up to the terminator when \p length is
    /// kUpToTerminator. Malformed sequences become U+FFFD, one for each maximal
    /// ill-formed part. Null reads as empty.
    virtual LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) = 0;

    /// Milliseconds since an origin of the platform's choice; never runs backwards.
    virtual double msecsNow() = 0;

    /// A new identifier that nobody has seen before.
    virtual SimpleUUID generateUUID() = 0;

    /// Appends one text for each stack frame of the caller to \p frames, innermost
    /// first. Adding nothing is acceptable. Called while an exception is being
    /// built: throwing here ends the process.
    virtual void captureCallStack(
        std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>& frames) = 0;

protected:
    ~iSystemUtils() = default;
};
