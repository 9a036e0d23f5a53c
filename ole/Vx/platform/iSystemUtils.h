// platform/iSystemUtils.h - Text conversion, clock, identifiers, call stacks.
#pragma once

#include <Vx/VxFwd.h>
#include <vector>

/// The 16 bytes of a Vx::UUID, as it stores them.
struct SimpleUUID {
    unsigned char bytes[16]; ///< not in printing order
};
static_assert(sizeof(SimpleUUID) == 16, "a SimpleUUID is copied into a Vx::UUID bytewise");

/// Text conversion, the clock, identifiers and call stacks.
///
/// Encodings: narrow strings are UTF-8, wide strings UTF-32. Conversions never fail: malformed
///   input is replaced, not reported.
/// Thread safety: every operation may be called from any thread at any time.
class iSystemUtils {
public:
    /// The \p length of fromUTF8() for NUL-terminated bytes.
    static constexpr unsigned int kUpToTerminator = 0xFFFFFFFFu;

    /// Widens a NUL-terminated string: each byte becomes the code point of the same number.
    /// Null is treated as empty.
    virtual LightweightString<wchar_t> wideFromAscii(const char* text) = 0;

    /// Returns all characters of \p wide in UTF-8, embedded zeros included. A value that is not
    /// a code point becomes U+FFFD.
    virtual LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide) = 0;

    /// Decodes \p length bytes of UTF-8, or up to the terminator if \p length is
    /// kUpToTerminator. Each maximal ill-formed part becomes one U+FFFD. Null is treated as
    /// empty.
    virtual LightweightString<wchar_t> fromUTF8(const char* bytes, unsigned int length) = 0;

    /// Returns the milliseconds of real time since an origin of the platform's choice, a finite
    /// number. Never runs backwards.
    virtual double msecsNow() = 0;

    /// Returns a new, globally unique identifier, on any thread.
    virtual SimpleUUID generateUUID() = 0;

    /// Appends one non-empty string per stack frame of the caller to \p frames, innermost first.
    /// May append nothing. Called while an exception is constructed: throwing here terminates
    /// the process.
    virtual void captureCallStack(
        std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>& frames) = 0;

protected:
    ~iSystemUtils() = default;
};
