// VxStringSplit.h - Splitting strings at separators, joining them, file names.
//
//     Vx::StringToVec<LightweightString<wchar_t>>::VecT fields;
//     Vx::splitIf(line, Vx::IsMatchingChar<wchar_t>(L','), fields, Vx::RespectQuotes);
//
// Errors: only exhausted memory, which throws what the platform throws. Vectors that are
//   filled then keep what they held, and perhaps some of the new elements.
// Thread safety: all functions may be called from any thread.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxMemory.h>
#include <Vx/detail/FindMatches.h>
#include <algorithm>
#include <cstdint>
#include <vector>

namespace Vx {

/// The \p flags of the splitting functions, combined with `|`.
enum SplitFlags : unsigned int {
    SkipEmpty = 1,     ///< drops empty middle pieces
    RespectQuotes = 2, ///< ignores separators between double quotes
    KeepSeparator = 4, ///< the first and middle pieces include the separator that ends them
};

/// Matches one character.
template <class Ch> class IsMatchingChar {
public:
    /// Matches \p character only.
    constexpr explicit IsMatchingChar(Ch character) noexcept : character_(character) {}
    /// Returns whether \p c is the character.
    constexpr bool operator()(Ch c) const noexcept { return c == character_; }
    /// Returns the character.
    constexpr Ch character() const noexcept { return character_; }

private:
    Ch character_;
};

/// The vector type that the splitting functions fill; its memory comes from the platform.
template <class String> struct StringToVec {
    /// The vector type.
    using VecT = std::vector<String, StdAllocator<String>>;
};

/// Appends substrings of a string to a vector. Keeps references to both: they must outlive the
/// builder, and the string must not be an element of the vector.
template <class String> class SplitOutputBuilder {
public:
    /// Appends substrings of \p source to \p out.
    SplitOutputBuilder(typename StringToVec<String>::VecT& out, const String& source) noexcept
        : out_(out), source_(source)
    {}

    /// Appends a new string of the \p count characters from \p start on, or of as many as
    /// there are; an empty string if \p start is at or past the end.
    void add(unsigned int start, unsigned int count)
    {
        start = std::min(start, source_.length());
        count = std::min(count, source_.length() - start);
        out_.emplace_back(source_.c_str() + start, count);
    }

private:
    typename StringToVec<String>::VecT& out_;
    const String& source_;
};

/// Appends the indices of the separators in \p text to \p positions, in increasing order.
/// Separators are the characters for which \p matches(character) is true.
///
/// With RespectQuotes, those in a quoted run are not separators. A double quote opens or closes
/// such a run, unless the character before it is a backslash. A double quote that matches is
/// always a separator and never quotes.
template <class String, class Matcher>
void findSeparators(const String& text, Matcher matches, std::vector<unsigned int>& positions,
                    unsigned int flags)
{
    const auto* const chars = text.c_str();
    const unsigned int length = text.length();
    if ((flags & RespectQuotes) == 0)
        return detail::findMatches(chars, length, matches, positions);
    bool inQuotes = false;
    for (unsigned int i = 0; i < length; ++i) {
        const bool isQuote = chars[i] == '"';
        if (matches(chars[i])) {
            if (!inQuotes || isQuote)
                positions.push_back(i);
        } else if (isQuote && (i == 0 || chars[i - 1] != '\\')) {
            inQuotes = !inQuotes;
        }
    }
}

/// Calls \p out.add(start, count) for each piece of \p text between the separators at
/// \p positions, which must increase and must not be empty. A position at or past the end of
/// \p text is followed by an empty last piece.
///
/// Deliberate: a separator at the start yields no empty first piece and one at the end no empty
/// last piece, whatever the flags. A string that is a single separator yields one piece.
template <class String, class Builder>
void convertIndicesToSubStrings(const String& text, const std::vector<unsigned int>& positions,
                                Builder& out, unsigned int flags)
{
    // In 64 bits: the index after a position may not fit in 32.
    using Index = std::uint64_t;
    const Index length = text.length();
    const Index kept = (flags & KeepSeparator) != 0 ? 1 : 0;
    const auto add = [&out](Index start, Index count) {
        constexpr Index kMost = 0xFFFFFFFFu;
        out.add(static_cast<unsigned int>(std::min(start, kMost)),
                static_cast<unsigned int>(std::min(count, kMost)));
    };
    const Index first = positions.front();
    if (first != 0 || length == 1)
        add(0, first + kept);
    Index start = first + 1;
    for (std::size_t i = 1; i < positions.size(); ++i) {
        const Index position = positions[i];
        if (position != start || (flags & SkipEmpty) == 0)
            add(start, position - start + kept);
        start = position + 1;
    }
    if (start != length)
        add(start, start < length ? length - start : 0);
}

/// Splits \p text at the separators that findSeparators() finds and appends the pieces to
/// \p out, which is not cleared. A string without separators is one piece that shares its
/// block; so is the empty string. \p text may be an element of \p out.
/// \returns the number of strings in \p out
template <class String, class Matcher>
unsigned int splitIf(const String& text, Matcher matches, typename StringToVec<String>::VecT& out,
                     unsigned int flags)
{
    const String source(text); // the vector moves its elements when it grows
    std::vector<unsigned int> positions;
    if (!source.empty())
        positions.reserve(16);
    findSeparators(source, matches, positions, flags);
    if (positions.empty()) {
        out.push_back(source);
    } else {
        // One growth for all pieces; at least doubling, for callers that collect many strings.
        const std::size_t wanted = out.size() + positions.size() + 1;
        if (wanted > out.capacity())
            out.reserve(std::max(wanted, 2 * out.capacity()));
        SplitOutputBuilder<String> builder(out, source);
        convertIndicesToSubStrings(source, positions, builder, flags);
    }
    return static_cast<unsigned int>(out.size());
}

/// Joins \p items with \p separator between them; without one if it is 0. Nothing is quoted:
/// unpack() splits an item that contains the separator.
VX_API LightweightString<wchar_t>
pack(const std::vector<LightweightString<wchar_t>, StdAllocator<LightweightString<wchar_t>>>& items,
     wchar_t separator);

/// Splits what pack() joined.
///
/// Deliberate: drops an empty item at the start, in the middle or at the end; the empty string
/// yields one empty item.
VX_API std::vector<LightweightString<wchar_t>, StdAllocator<LightweightString<wchar_t>>>
unpack(const LightweightString<wchar_t>& packed, wchar_t separator);

/// Returns the last component of a path, by the platform's separator: "name" for "dir/name/".
/// A path without separators is returned as it is; one of separators only yields "".
VX_API LightweightString<wchar_t> splitFilename(const LightweightString<wchar_t>& path);

// Compiled into the library; other modules may inline them or call them there.
extern template VX_API void findSeparators<LightweightString<char>, IsMatchingChar<char>>(
    const LightweightString<char>&, IsMatchingChar<char>, std::vector<unsigned int>&, unsigned int);
extern template VX_API void findSeparators<LightweightString<wchar_t>, IsMatchingChar<wchar_t>>(
    const LightweightString<wchar_t>&, IsMatchingChar<wchar_t>, std::vector<unsigned int>&,
    unsigned int);
extern template VX_API void
convertIndicesToSubStrings<LightweightString<char>, SplitOutputBuilder<LightweightString<char>>>(
    const LightweightString<char>&, const std::vector<unsigned int>&,
    SplitOutputBuilder<LightweightString<char>>&, unsigned int);
extern template VX_API void
convertIndicesToSubStrings<LightweightString<wchar_t>,
                           SplitOutputBuilder<LightweightString<wchar_t>>>(
    const LightweightString<wchar_t>&, const std::vector<unsigned int>&,
    SplitOutputBuilder<LightweightString<wchar_t>>&, unsigned int);
extern template VX_API unsigned int splitIf<LightweightString<wchar_t>, IsMatchingChar<wchar_t>>(
    const LightweightString<wchar_t>&, IsMatchingChar<wchar_t>,
    StringToVec<LightweightString<wchar_t>>::VecT&, unsigned int);

} // namespace Vx
