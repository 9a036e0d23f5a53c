// Image/FormatUID.h - The name of a video format.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <cstddef>
#include <cstring>
#include <functional>
#include <ostream>
#include <string_view>
#ifdef __cpp_impl_three_way_comparison
#include <compare>
#endif

namespace Vx {
namespace Image {

/// The name of a video format: a decimal number of one to three digits for a standard format, a
/// longer string for a custom one, "0" for none.
///
///     Vx::Image::FormatUID format(7u);
///     if (format.valid() && !format.isCustom()) use(format.text());
///
/// Layout: one string, shared with its other holders. Nothing is validated.
/// Comparison: the two strings up to their first NUL, case-sensitively. An empty string equals
///   only an empty string. Deliberate: the order is textual, so "10" sorts before "9".
/// Errors: only memory exhaustion throws, as in LightweightString.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API FormatUID {
public:
    /// No format: "0".
    VX_API FormatUID();

    /// The decimal digits of \p id.
    ///
    /// Deliberate: \p id passes through a signed int, so ids from 2147483648 become negative
    /// numbers, and 4294967295 becomes "-1".
    VX_API FormatUID(unsigned int id);

    /// Shares \p text, unchanged.
    VX_API FormatUID(const LightweightString<char>& text);

    FormatUID(const FormatUID&) noexcept = default;

    /// Shares the string of \p other, unless the two are equal already.
    VX_API FormatUID& operator=(const FormatUID& other) noexcept;

    /// False if the string is empty or exactly "0". "00" is valid.
    VX_API bool valid() const noexcept;

    /// Whether the string is longer than 4 characters.
    VX_API bool isCustom() const noexcept;

    /// Whether the string has 1 to 3 characters and `strtol`, cut to 32 bits, parses it as \p id.
    ///
    /// Deliberate: a longer string equals no number. Not even "0042" equals 42.
    VX_API bool operator==(unsigned int id) const noexcept;
    /// Compare the strings as described above.
    VX_API bool operator==(const LightweightString<char>& text) const noexcept;
    VX_API bool operator==(const FormatUID& other) const noexcept;
    VX_API bool operator!=(const FormatUID& other) const noexcept;
    VX_API bool operator<(const FormatUID& other) const noexcept;

    /// The string, valid as long as this object.
    const LightweightString<char>& text() const noexcept { return text_; }

private:
    LightweightString<char> text_;
};
static_assert(sizeof(FormatUID) == sizeof(LightweightString<char>),
              "an identifier is its string: the layout is part of the binary interface");

inline bool operator!=(const FormatUID& a, unsigned int id) noexcept { return !(a == id); }
inline bool operator!=(const FormatUID& a, const LightweightString<char>& text) noexcept
{
    return !(a == text);
}
inline bool operator>(const FormatUID& a, const FormatUID& b) noexcept { return b < a; }
inline bool operator<=(const FormatUID& a, const FormatUID& b) noexcept { return !(b < a); }
inline bool operator>=(const FormatUID& a, const FormatUID& b) noexcept { return !(a < b); }
#ifdef __cpp_impl_three_way_comparison
/// Weak, because strings that differ after a NUL are equivalent.
inline std::weak_ordering operator<=>(const FormatUID& a, const FormatUID& b) noexcept
{
    return a < b   ? std::weak_ordering::less
           : b < a ? std::weak_ordering::greater
                   : std::weak_ordering::equivalent;
}
#else
inline bool operator==(unsigned int id, const FormatUID& b) noexcept { return b == id; }
inline bool operator!=(unsigned int id, const FormatUID& b) noexcept { return !(b == id); }
inline bool operator==(const LightweightString<char>& text, const FormatUID& b) noexcept
{
    return b == text;
}
inline bool operator!=(const LightweightString<char>& text, const FormatUID& b) noexcept
{
    return !(b == text);
}
#endif

/// Writes the string, padded to the stream's width.
inline std::ostream& operator<<(std::ostream& stream, const FormatUID& id)
{
    return stream << id.text();
}

} // namespace Image
} // namespace Vx

/// Equal identifiers have equal hashes.
template <> struct std::hash<Vx::Image::FormatUID> {
    std::size_t operator()(const Vx::Image::FormatUID& id) const noexcept
    {
        // Up to the first NUL, as equality compares.
        return std::hash<std::string_view>()(id.text().c_str());
    }
};
