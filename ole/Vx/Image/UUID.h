// Image/UUID.h - A 128-bit universally unique identifier.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/detail/UuidDigits.h>
#include <Vx/platform/iSystemUtils.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#ifdef __cpp_impl_three_way_comparison
#include <compare>
#endif

namespace Vx {

/// A universally unique identifier, stored by value.
///
///     Vx::UUID id("{0123abcd-4567-89ef-0123-456789abcdef}");
///     if (id.valid()) store(id);
///
///     constexpr Vx::UUID kClip("0123abcd-4567-89ef-0123-456789abcdef"); // does not compile if wrong
///
/// Layout: 16 bytes. Bytes 0-3, 4-5 and 6-7 are little-endian integers; bytes 8-15 are in
///   printing order. All zeros is the invalid UUID.
/// String form: 36 characters, lower-case hexadecimal digits in groups of 8-4-4-4-12 joined by
///   "-". Parsing also accepts upper case and surrounding braces.
/// Errors: parsing an invalid string yields the invalid UUID. Only memory exhaustion, and whatever
///   the platform's generateUUID() throws, is thrown.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API UUID {
public:
    /// The length of the string form, without a terminator.
    static constexpr unsigned int kTextLength = 36;

    /// The invalid UUID.
    VX_UUID_API constexpr UUID() noexcept : bytes_{} {}
    VX_UUID_API constexpr UUID(const UUID& other) noexcept : UUID(other.bytes_) {}
    constexpr UUID& operator=(const UUID&) noexcept = default;
    VX_UUID_API constexpr UUID(const SimpleUUID& bytes) noexcept : UUID(bytes.bytes) {}

    /// Parses a NUL-terminated string as initFromString() does. Null is treated as empty. In a
    /// constant expression, anything but the string form, with or without braces, is an error.
    VX_UUID_API constexpr explicit UUID(const char* text) noexcept : bytes_{}
    {
        if (!detail::readWholeUuid(text, bytes_))
            initFromString(text, lengthOf(text)); // no constant expression may come here
    }
    VX_UUID_API constexpr explicit UUID(const wchar_t* text) noexcept : bytes_{}
    {
        if (!detail::readWholeUuid(text, bytes_))
            initFromString(text, lengthOf(text));
    }
    explicit VX_API UUID(const LightweightString<char>& text) noexcept;
    explicit VX_API UUID(const LightweightString<wchar_t>& text) noexcept;

    /// Parses 36 characters, or 38 with braces. \p length excludes the terminator, which must be
    /// there. Anything else, null included, makes this the invalid UUID.
    ///
    /// Deliberate: after the length and the braces, `sscanf` decides with "%02x" for each byte. It
    /// accepts spaces and signs before a digit, and ignores what follows the last byte.
    VX_API void initFromString(const char* text, unsigned int length) noexcept;
    VX_API void initFromString(const wchar_t* text, unsigned int length) noexcept;

    /// Makes this a new UUID, which the platform generates.
    VX_API void generate();

    /// Makes this the invalid UUID.
    VX_UUID_API constexpr void invalidate() noexcept { *this = UUID(); }

    /// Whether any byte is not zero.
    VX_UUID_API constexpr bool valid() const noexcept { return *this != UUID(); }

    VX_UUID_API constexpr bool operator==(const UUID& other) const noexcept
    {
        return compare(other) == 0;
    }
    VX_UUID_API constexpr bool operator!=(const UUID& other) const noexcept
    {
        return compare(other) != 0;
    }
    /// Deliberate: compares the stored bytes, which is not the order of the printed form.
    VX_UUID_API constexpr bool operator<(const UUID& other) const noexcept
    {
        return compare(other) < 0;
    }

    /// Writes 36 characters and a NUL to \p buffer, which must hold 37.
    /// \returns 36
    VX_API int asString(char* buffer) const noexcept;
    VX_API int asWString(wchar_t* buffer) const noexcept;

    /// Returns the 36 characters of the string form.
    VX_API LightweightString<char> asString() const;
    VX_API LightweightString<wchar_t> asWString() const;

    /// The 16 stored bytes, valid as long as this object.
    constexpr const unsigned char* data() const noexcept { return bytes_; }

    /// Negative, 0 or positive, in the order of the stored bytes.
    constexpr int compare(const UUID& other) const noexcept
    {
        for (const int half : {0, 8}) {
            const std::uint64_t a = detail::bigEndian(bytes_ + half);
            const std::uint64_t b = detail::bigEndian(other.bytes_ + half);
            if (a != b)
                return a < b ? -1 : 1;
        }
        return 0;
    }

private:
    constexpr explicit UUID(const unsigned char (&bytes)[16]) noexcept
        : bytes_{bytes[0],  bytes[1],  bytes[2],  bytes[3], bytes[4],  bytes[5],
                 bytes[6],  bytes[7],  bytes[8],  bytes[9], bytes[10], bytes[11],
                 bytes[12], bytes[13], bytes[14], bytes[15]}
    {}

    template <class Ch> static constexpr unsigned int lengthOf(const Ch* text) noexcept
    {
        return text == nullptr ? 0 : static_cast<unsigned int>(std::char_traits<Ch>::length(text));
    }

    unsigned char bytes_[16];
};
static_assert(sizeof(UUID) == 16 && alignof(UUID) == 1,
              "a UUID is its 16 bytes: the layout is part of the binary interface");

constexpr bool operator>(const UUID& a, const UUID& b) noexcept { return b < a; }
constexpr bool operator<=(const UUID& a, const UUID& b) noexcept { return !(b < a); }
constexpr bool operator>=(const UUID& a, const UUID& b) noexcept { return !(a < b); }
#ifdef __cpp_impl_three_way_comparison
constexpr std::strong_ordering operator<=>(const UUID& a, const UUID& b) noexcept
{
    return a.compare(b) <=> 0;
}
#endif

/// Writes the string form, padded to the stream's width.
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

template <> struct std::hash<Vx::UUID> {
    std::size_t operator()(const Vx::UUID& id) const noexcept
    {
        // Multiplied and folded, because generated UUIDs may differ in a few bits only.
        std::uint64_t mixed = Vx::detail::bigEndian(id.data()) ^
                              Vx::detail::bigEndian(id.data() + 8) * 0x9E3779B97F4A7C15u;
        mixed = (mixed ^ mixed >> 33) * 0xFF51AFD7ED558CCDu;
        mixed = (mixed ^ mixed >> 33) * 0xC4CEB9FE1A85EC53u;
        return mixed ^ mixed >> 33;
    }
};
