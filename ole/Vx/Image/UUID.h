// Image/UUID.h - a 16-byte identifier and its text form.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/platform/iSystemUtils.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <utility>
#if defined(__cpp_impl_three_way_comparison) && __cplusplus >= 202002L
#include <compare>
#endif

// Marks the inline functions of UUID that the library nevertheless exports: UUID.cpp, which
// emits them, defines it.
#ifndef VX_UUID_API
#define VX_UUID_API VX_API
#endif

namespace Vx {
namespace UUIDDetail {

/// The byte that each pair of digits stands for, in the order of the text.
inline constexpr int kPlaces[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

/// The place of each pair of digits in the text.
inline constexpr int kOffsets[16] = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};

/// The value of each hexadecimal digit; kNoDigit, a bit above theirs, for all else.
inline constexpr unsigned int kNoDigit = 0x80;
struct DigitValues {
    constexpr DigitValues() : of{}
    {
        for (unsigned int c = 0; c < 256; ++c)
            of[c] = static_cast<unsigned char>(c >= '0' && c <= '9'   ? c - '0'
                                               : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                               : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                                      : kNoDigit);
    }
    unsigned char of[256];
};
inline constexpr DigitValues kDigitValues;

constexpr unsigned int digitValue(char c) noexcept
{
    return kDigitValues.of[static_cast<unsigned char>(c)];
}
constexpr unsigned int digitValue(wchar_t c) noexcept
{
    const unsigned int code = static_cast<unsigned int>(c);
    return code < 256 ? kDigitValues.of[code] : kNoDigit;
}

/// Reads the pair of digits at one place, and the hyphen in front of a group.
template <std::size_t I, class Ch>
constexpr bool readPair(const Ch* text, unsigned char (&bytes)[16]) noexcept
{
    const Ch* const pair = text + kOffsets[I];
    if constexpr (I == 4 || I == 6 || I == 8 || I == 10)
        if (pair[-1] != '-')
            return false;
    const unsigned int high = digitValue(pair[0]);
    if (high == kNoDigit)
        return false;
    const unsigned int low = digitValue(pair[1]);
    if (low == kNoDigit)
        return false;
    bytes[kPlaces[I]] = static_cast<unsigned char>(high * 16 + low);
    return true;
}

template <class Ch, std::size_t... I>
constexpr bool readPairs(const Ch* text, unsigned char (&bytes)[16],
                         std::index_sequence<I...>) noexcept
{
    return (readPair<I>(text, bytes) && ...);
}

/// Reads the 36 characters of the plain form; false, with \p bytes unspecified, for any
/// other text. Looks at no character behind the first that is out of place.
template <class Ch> constexpr bool readPlain(const Ch* text, unsigned char (&bytes)[16]) noexcept
{
    return readPairs(text, bytes, std::make_index_sequence<16>());
}

/// Reads a whole zero-terminated text of the plain form, with or without braces.
template <class Ch> constexpr bool readConstant(const Ch* text, unsigned char (&bytes)[16]) noexcept
{
    const int braces = *text == '{' ? 1 : 0;
    return readPlain(text + braces, bytes) && (braces == 0 || text[37] == '}') &&
           text[36 + 2 * braces] == 0;
}

} // namespace UUIDDetail

/// A universally unique identifier, held by value.
///
///     Vx::UUID id("{0123abcd-4567-89ef-0123-456789abcdef}");
///     if (id.valid()) store(id);
///
///     constexpr Vx::UUID kClip("0123abcd-4567-89ef-0123-456789abcdef"); // checked here
///
/// Shape: 16 bytes, nothing else. Bytes 0-3, 4-5 and 6-7 are little-endian numbers; bytes
///   8-15 stand as printed. All zero means "no identifier".
/// Text: 36 characters, lower-case hexadecimal digits in groups of 8-4-4-4-12 joined by
///   "-"; read in either case and with or without braces around.
/// Errors: none thrown. A text that cannot be read leaves the invalid value.
/// Threads: a plain value; share it for reading, guard it for writing.
/// Ownership: every buffer is the caller's.
class VX_API UUID {
public:
    /// Characters of the text form, terminator excluded.
    static constexpr unsigned int kTextLength = 36;

    /// The invalid value.
    VX_UUID_API constexpr UUID() noexcept : bytes_{} {}

    /// The same 16 bytes.
    VX_UUID_API constexpr UUID(const UUID& other) noexcept : UUID(other.bytes_) {}
    constexpr UUID& operator=(const UUID&) noexcept = default;
    VX_UUID_API constexpr UUID(const SimpleUUID& bytes) noexcept : UUID(bytes.bytes) {}

    /// Reads a zero-terminated text as initFromString() does; null reads as empty. In a
    /// constant expression the text must have the plain form, or it does not compile.
    VX_UUID_API constexpr explicit UUID(const char* text) noexcept : bytes_{}
    {
        if (!__builtin_is_constant_evaluated())
            initFromString(text, StringDetail::lengthOf(text));
        else if (!UUIDDetail::readConstant(text, bytes_))
            textIsNoUUID();
    }
    VX_UUID_API constexpr explicit UUID(const wchar_t* text) noexcept : bytes_{}
    {
        if (!__builtin_is_constant_evaluated())
            initFromString(text, StringDetail::lengthOf(text));
        else if (!UUIDDetail::readConstant(text, bytes_))
            textIsNoUUID();
    }
    /// Reads the text as initFromString() does with its length.
    explicit VX_API UUID(const LightweightString<char>& text) noexcept;
    explicit VX_API UUID(const LightweightString<wchar_t>& text) noexcept;

    /// Reads 36 characters, or 38 with braces; anything else, null included, leaves the
    /// invalid value. \p length counts characters, terminator excluded, and the text ends
    /// with a terminating 0.
    ///
    /// Deliberate: length and braces come first; what is inside is judged by `sscanf` with
    /// "%02x" for each byte, so blanks and signs that it accepts in front of a digit are
    /// accepted, and what stands behind the last byte is not looked at.
    VX_API void initFromString(const char* text, unsigned int length) noexcept;
    VX_API void initFromString(const wchar_t* text, unsigned int length) noexcept;

    /// Becomes a new identifier, made by the platform.
    VX_API void generate();

    /// Becomes the invalid value.
    VX_UUID_API constexpr void invalidate() noexcept
    {
        for (unsigned char& byte : bytes_)
            byte = 0;
    }

    /// Whether any byte is not zero.
    VX_UUID_API constexpr bool valid() const noexcept { return *this != UUID(); }

    /// Whether the 16 bytes are the same, or not.
    VX_UUID_API constexpr bool operator==(const UUID& other) const noexcept
    {
        return compare(other) == 0;
    }
    VX_UUID_API constexpr bool operator!=(const UUID& other) const noexcept
    {
        return compare(other) != 0;
    }

    /// Order of the stored bytes. Deliberate: this is not the order of the printed texts.
    VX_UUID_API constexpr bool operator<(const UUID& other) const noexcept
    {
        return compare(other) < 0;
    }

    /// Writes the text form and a terminator: \p buffer holds at least 37 characters.
    /// \returns 36
    VX_API int asString(char* buffer) const noexcept;
    VX_API int asWString(wchar_t* buffer) const noexcept;

    /// The text form.
    VX_API LightweightString<char> asString() const;
    VX_API LightweightString<wchar_t> asWString() const;

    /// The 16 bytes, as they are stored.
    constexpr const unsigned char* data() const noexcept { return bytes_; }

    /// Negative, 0 or positive, by the stored bytes.
    constexpr int compare(const UUID& other) const noexcept
    {
        if (!__builtin_is_constant_evaluated())
            return std::memcmp(bytes_, other.bytes_, sizeof bytes_);
        for (int i = 0; i < 16; ++i)
            if (bytes_[i] != other.bytes_[i])
                return bytes_[i] < other.bytes_[i] ? -1 : 1;
        return 0;
    }

private:
    constexpr explicit UUID(const unsigned char (&bytes)[16]) noexcept
        : bytes_{bytes[0],  bytes[1],  bytes[2],  bytes[3], bytes[4],  bytes[5],
                 bytes[6],  bytes[7],  bytes[8],  bytes[9], bytes[10], bytes[11],
                 bytes[12], bytes[13], bytes[14], bytes[15]}
    {}

    /// Ends a constant expression: the text is no UUID.
    static void textIsNoUUID() noexcept {}

    unsigned char bytes_[16];
};
static_assert(sizeof(UUID) == 16 && alignof(UUID) == 1,
              "an identifier is its 16 bytes: the layout is part of the binary interface");

/// Order of the stored bytes.
constexpr bool operator>(const UUID& a, const UUID& b) noexcept { return b < a; }
constexpr bool operator<=(const UUID& a, const UUID& b) noexcept { return !(b < a); }
constexpr bool operator>=(const UUID& a, const UUID& b) noexcept { return !(a < b); }
#if defined(__cpp_impl_three_way_comparison) && __cplusplus >= 202002L
/// Order of the stored bytes.
constexpr std::strong_ordering operator<=>(const UUID& a, const UUID& b) noexcept
{
    return a.compare(b) <=> 0;
}
#endif

/// Writes the text form, padded as a string would be.
inline std::ostream& operator<<(std::ostream& stream, const UUID& id)
{
    char text[UUID::kTextLength + 1];
    id.asString(text);
    return stream << text;
}
inline std::wostream& operator<<(std::wostream& stream, const UUID& id)
{
    wchar_t text[UUID::kTextLength + 1];
    id.asWString(text);
    return stream << text;
}

} // namespace Vx

/// Equal identifiers have equal hashes.
template <> struct std::hash<Vx::UUID> {
    /// \returns a number in which every bit of \p id has its say
    std::size_t operator()(const Vx::UUID& id) const noexcept
    {
        // Identifiers may differ in a few low bits only.
        std::uint64_t halves[2];
        std::memcpy(halves, id.data(), sizeof halves);
        std::uint64_t mixed = halves[0] ^ halves[1] * std::uint64_t(0x9E3779B97F4A7C15);
        mixed = (mixed ^ mixed >> 33) * std::uint64_t(0xFF51AFD7ED558CCD);
        mixed = (mixed ^ mixed >> 33) * std::uint64_t(0xC4CEB9FE1A85EC53);
        return static_cast<std::size_t>(mixed ^ mixed >> 33);
    }
};
