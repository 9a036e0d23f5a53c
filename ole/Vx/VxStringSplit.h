// VxStringSplit.h - cutting text at separators, joining it again, file names.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxMemory.h>
#include <vector>

namespace Vx {

/// What the splitting functions take as \p flags, combined with `|`.
enum SplitFlags : unsigned int {
    SkipEmpty = 1,     ///< middle pieces without characters are left out
    RespectQuotes = 2, ///< a separator between double quotes does not separate
    KeepSeparator = 4, ///< the first and middle pieces keep the separator that ends them
};

/// Matches one character.
template <class Ch> class IsMatchingChar {
public:
    /// Matches \p character and no other.
    constexpr explicit IsMatchingChar(Ch character) noexcept : character_(character) {}

    /// Whether \p c is the character.
    constexpr bool operator()(Ch c) const noexcept { return c == character_; }

    /// The character that is matched.
    constexpr Ch character() const noexcept { return character_; }

private:
    Ch character_;
};

/// The vector of strings that the splitting functions fill.
template <class String> struct StringToVec {
    /// Its items come from the platform's memory, as those of every vector that crosses over.
    using VecT = std::vector<String, StdAllocator<String>>;
};

/// Appends pieces of one text to a vector. Both must outlive the builder.
template <class String> class SplitOutputBuilder {
public:
    /// Keeps references to both.
    SplitOutputBuilder(typename StringToVec<String>::VecT& out, const String& source) noexcept
        : out_(out), source_(source)
    {}

    /// Appends the \p count characters from \p start in a block of their own, cut at the end
    /// of the text; an empty string when nothing is left.
    void add(unsigned int start, unsigned int count)
    {
        const unsigned int length = source_.length();
        if (start >= length)
            count = 0;
        else if (count > length - start)
            count = length - start;
        out_.emplace_back(source_.c_str() + (count != 0 ? start : 0), count);
    }

private:
    typename StringToVec<String>::VecT& out_;
    const String& source_;
};

namespace StringDetail {

/// Appends to \p positions the indices of all characters that \p matches.
template <class Ch, class Matcher>
void findMatches(const Ch* chars, unsigned int length, Matcher matches,
                 std::vector<unsigned int>& positions)
{
    for (unsigned int i = 0; i < length; ++i)
        if (matches(chars[i]))
            positions.push_back(i);
}

// For one character, eight at a time.
VX_API void findMatches(const char* chars, unsigned int length, IsMatchingChar<char> matches,
                        std::vector<unsigned int>& positions);
VX_API void findMatches(const wchar_t* chars, unsigned int length, IsMatchingChar<wchar_t> matches,
                        std::vector<unsigned int>& positions);

} // namespace StringDetail

/// Appends to \p positions, in increasing order, the indices of the characters of \p text
/// that \p matches and that separate.
///
/// A double quote (0x22) opens or closes a quoted run, unless a backslash stands directly
/// before it; with RespectQuotes nothing inside such a run separates. A separator that is
/// itself the double quote always separates. No quote or backslash is taken out of the text.
template <class String, class Matcher>
void findSeparators(const String& text, Matcher matches, std::vector<unsigned int>& positions,
                    unsigned int flags)
{
    const auto* const chars = text.c_str();
    const unsigned int length = text.length();
    if ((flags & RespectQuotes) == 0)
        return StringDetail::findMatches(chars, length, matches, positions);
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

/// Hands \p out the pieces of \p text between the separators at \p positions, of which there
/// is at least one.
///
/// Deliberate: a separator at the start gives no empty first piece and one at the end no
/// empty last piece, whatever the flags; a text that is one separator gives one piece.
template <class String, class Builder>
void convertIndicesToSubStrings(const String& text, const std::vector<unsigned int>& positions,
                                Builder& out, unsigned int flags)
{
    const unsigned int length = text.length();
    const unsigned int kept = (flags & KeepSeparator) != 0 ? 1 : 0;
    auto position = positions.begin();
    const auto end = positions.end();
    if (*position != 0)
        out.add(0, *position + kept);
    else if (length == 1)
        out.add(0, kept);
    unsigned int start = *position + 1;
    while (++position != end) {
        const unsigned int count = *position - start;
        if (count != 0 || (flags & SkipEmpty) == 0)
            out.add(start, count + kept);
        start = *position + 1;
    }
    if (start < length)
        out.add(start, length - start);
}

/// Splits \p text at the characters that \p matches and appends the pieces to \p out, which
/// is not cleared. A text without separators, the empty one included, is one piece that
/// shares its block. \p text is no item of \p out: those move when \p out grows.
///
///     Vx::StringToVec<LightweightString<wchar_t>>::VecT fields;
///     Vx::splitIf(line, Vx::IsMatchingChar<wchar_t>(L','), fields, Vx::RespectQuotes);
///
/// \returns the number of strings in \p out afterwards
/// Errors: memory exhaustion leaves by the platform's exception; \p out then keeps what it
///   held, and perhaps some of the pieces.
template <class String, class Matcher>
unsigned int splitIf(const String& text, Matcher matches, typename StringToVec<String>::VecT& out,
                     unsigned int flags)
{
    std::vector<unsigned int> positions;
    if (!text.empty())
        positions.reserve(16);
    findSeparators(text, matches, positions, flags);
    if (positions.empty()) {
        out.push_back(text);
    } else {
        // One growth for all pieces, but never less than doubling: callers collect texts.
        const std::size_t wanted = out.size() + positions.size() + 1;
        if (wanted > out.capacity())
            out.reserve(wanted > 2 * out.capacity() ? wanted : 2 * out.capacity());
        SplitOutputBuilder<String> builder(out, text);
        convertIndicesToSubStrings(text, positions, builder, flags);
    }
    return static_cast<unsigned int>(out.size());
}

/// The items one after another with \p separator between them, none when it is 0. Nothing is
/// quoted: an item that contains the separator comes apart in unpack().
VX_API LightweightString<wchar_t>
pack(const std::vector<LightweightString<wchar_t>, StdAllocator<LightweightString<wchar_t>>>& items,
     wchar_t separator);

/// The items of a packed text. Empty items in front or in the middle are lost; an empty text
/// gives one empty item.
VX_API std::vector<LightweightString<wchar_t>, StdAllocator<LightweightString<wchar_t>>>
unpack(const LightweightString<wchar_t>& packed, wchar_t separator);

/// The last component of a path, by the platform's separator: "name" of "dir/name/". A path
/// without separators is returned itself; one of separators only gives the empty text.
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
