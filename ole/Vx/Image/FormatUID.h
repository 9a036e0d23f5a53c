// Image/FormatUID.h - the name of a video format.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <cstddef>
#include <cstring>
#include <functional>
#include <ostream>
#include <string_view>
#if defined(__cpp_impl_three_way_comparison) && __cplusplus >= 202002L
#include <compare>
#endif

namespace Vx {
namespace Image {

/// The name of a video format: a decimal number of one to three digits, as text, for a
/// standard format; a longer text for a custom one; "0" for none.
///
///     Vx::Image::FormatUID format(7u);
///     if (format.valid() && !format.isCustom()) use(format.text());
///
/// Shape: one string, shared with whoever gave or took it. Nothing is validated.
/// Equality: the two texts up to their first 0, case-sensitively; an empty text equals only
///   an empty text. Deliberate: the order is that of the texts, so "10" comes before "9".
/// Errors: memory exhaustion passes through as from LightweightString.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API FormatUID {
public:
    /// "0": no format.
    VX_API FormatUID();

    /// The decimal text of \p id.
    ///
    /// Deliberate: \p id passes through a signed int, so 4294967295 becomes "-1", and ids
    /// from 2147483648 on become negative numbers.
    VX_API FormatUID(unsigned int id);

    /// Shares \p text as it is.
    VX_API FormatUID(const LightweightString<char>& text);

    FormatUID(const FormatUID&) noexcept = default;

    /// Shares the text of \p other; when the two are equal already, nothing changes.
    VX_API FormatUID& operator=(const FormatUID& other) noexcept;

    /// False for an empty text and for exactly "0"; "00" is valid.
    VX_API bool valid() const noexcept;

    /// Whether the text is longer than 4 characters.
    VX_API bool isCustom() const noexcept;

    /// Whether the text has 1 to 3 characters and reads as \p id by `strtol`, cut to 32 bits.
    ///
    /// Deliberate: a longer text equals no number, not even "0042" the number 42.
    VX_API bool operator==(unsigned int id) const noexcept;
    /// Equality and order of the two texts, as the class says.
    VX_API bool operator==(const LightweightString<char>& text) const noexcept;
    VX_API bool operator==(const FormatUID& other) const noexcept;
    VX_API bool operator!=(const FormatUID& other) const noexcept;
    VX_API bool operator<(const FormatUID& other) const noexcept;

    /// The text as it was given; valid as long as this object is.
    const LightweightString<char>& text() const noexcept { return text_; }

private:
    LightweightString<char> text_;
};
static_assert(sizeof(FormatUID) == sizeof(LightweightString<char>),
              "an identifier is its text: the layout is part of the binary interface");

/// What follows from the comparisons that are members.
inline bool operator!=(const FormatUID& a, unsigned int id) noexcept { return !(a == id); }
inline bool operator!=(const FormatUID& a, const LightweightString<char>& text) noexcept
{
    return !(a == text);
}
inline bool operator>(const FormatUID& a, const FormatUID& b) noexcept { return b < a; }
inline bool operator<=(const FormatUID& a, const FormatUID& b) noexcept { return !(b < a); }
inline bool operator>=(const FormatUID& a, const FormatUID& b) noexcept { return !(a < b); }
#if defined(__cpp_impl_three_way_comparison) && __cplusplus >= 202002L
/// By the texts; weak, because texts that differ behind a 0 are equivalent.
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

/// Writes the text, padded as a string would be.
inline std::ostream& operator<<(std::ostream& stream, const FormatUID& id)
{
    return stream << id.text();
}

} // namespace Image
} // namespace Vx

/// Equal identifiers have equal hashes.
template <> struct std::hash<Vx::Image::FormatUID> {
    /// \returns the hash of the text up to its first 0
    std::size_t operator()(const Vx::Image::FormatUID& id) const noexcept
    {
        // Up to the first 0, because equality sees no further.
        return std::hash<std::string_view>()(id.text().c_str());
    }
};
