// VxAttribValuePair.h - A name=value item of configuration data, and lists of items as text.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/LightweightVector.h>
#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <cstddef>

namespace Vx {

/// A name, a value, and the text that they were read from.
///
///     Vx::AttribValuePair pair("rate=25", '=');
///     if (pair.valid())
///         use(pair.name, pair.value);
///
/// Text without a pair, such as a comment, is kept and written back unchanged.
///
/// Layout: a 32-bit form and three strings, 56 bytes. The form says which strings count:
///   0: all three, which agree; every constructor sets it.
///   1: only the text; name and value have not been split yet.
///   2: name and value; the text is outdated.
///   The library never sets forms 1 and 2. Code that changes a public member sets the form;
///   comparison, assignment and printing respect it.
/// Comparison: of strings, here and below, as strcmp compares: byte by byte, case-sensitive, up
///   to the first zero.
/// Separators: one byte each; joining with the separator 0 inserts none. Nothing is quoted,
///   escaped or trimmed.
/// Errors: those of LightweightString: exhausted memory, and texts of 2^31 characters or more. The
///   pair then keeps its value.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API AttribValuePair {
public:
    /// Splits \p text at the first \p separator before its first zero; the value keeps any
    /// further ones. If there is none, name and value are empty. With the separator 0 the name
    /// is the whole text.
    AttribValuePair(const LightweightString<char>& text, char separator);

    /// Joins \p name and \p value to the text; wide strings are converted to UTF-8.
    AttribValuePair(const LightweightString<char>& name, const LightweightString<char>& value,
                    char separator);
    AttribValuePair(const LightweightString<wchar_t>& name, const LightweightString<wchar_t>& value,
                    char separator);

    /// Copies all members, including the form; assignment does not.
    AttribValuePair(const AttribValuePair&) noexcept = default;
    /// Leaves \p other with three empty strings.
    AttribValuePair(AttribValuePair&& other) noexcept = default;

    ~AttribValuePair();

    /// Assigns the parts that the form of \p other names.
    ///   0: everything.
    ///   1: its text, split at '='; the form becomes 0.
    ///   2: its name and value; the text of this pair is kept, the form becomes 2.
    /// Deliberate: splits at '=' whatever the separator was, also in self-assignment.
    AttribValuePair& operator=(const AttribValuePair& other);

    /// Returns whether name and value are both non-empty; false in form 1.
    bool valid() const;

    /// Compares the parts that count in the two forms.
    ///   0 and 0: names and values, or else the texts.
    ///   1 and 1, 0 and 1: the texts.
    ///   2 and 2, 0 and 2: names and values.
    ///   1 and 2: names, values and texts.
    bool operator==(const AttribValuePair& other) const;
    bool operator!=(const AttribValuePair& other) const { return !(*this == other); }

    /// Returns the pair as text.
    ///
    /// Deliberate: joins with \p separator only in form 2. The other forms return the stored
    /// text, so a pair made with ':' still prints with ':'.
    LightweightString<char> asString(char separator) const;

    /// Returns asString('=') up to its first zero, widened byte by byte without decoding UTF-8.
    ///
    /// Deliberate: ignores the argument.
    LightweightString<wchar_t> asWString(char separator) const;

    /// Joins the asString(\p pairSeparator) of all pairs with \p itemSeparator. Empty items
    /// before the first non-empty one are followed by no separator.
    static LightweightString<char> asString(const LightweightVector<AttribValuePair>& pairs,
                                            char pairSeparator, char itemSeparator);

    /// The same, decoded as UTF-8.
    static LightweightString<wchar_t> asWString(const LightweightVector<AttribValuePair>& pairs,
                                                char pairSeparator, char itemSeparator);

    /// Reads the text that asString() writes. Drops items that are not valid().
    static LightweightVector<AttribValuePair> vecFromString(const LightweightString<char>& text,
                                                            char pairSeparator, char itemSeparator);

    /// Returns the value of the first pair named \p name, or the empty string.
    ///
    /// Deliberate: counts items in 16 bits. With more than 65,535 pairs the search covers the
    /// first 65,536 again and again, and never returns if none of them matches.
    static LightweightString<char> getValue(const LightweightString<char>& name,
                                            const LightweightVector<AttribValuePair>& pairs);

    /// The same with the name encoded as UTF-8 and the value decoded.
    static LightweightString<wchar_t> getValue(const LightweightString<wchar_t>& name,
                                               const LightweightVector<AttribValuePair>& pairs);

    int form;                      ///< which of the strings count, see above
    LightweightString<char> text;  ///< the whole item
    LightweightString<char> name;  ///< what comes before the first separator
    LightweightString<char> value; ///< what comes after it
};
static_assert(sizeof(AttribValuePair) == 56 && offsetof(AttribValuePair, form) == 0 &&
                  offsetof(AttribValuePair, text) == 8 && offsetof(AttribValuePair, name) == 24 &&
                  offsetof(AttribValuePair, value) == 40,
              "form, text, name and value, in this order, are part of the binary interface");

} // namespace Vx

// Compiled into the library; other modules may inline them or call them there.
extern template LightweightVector<Vx::AttribValuePair>::~LightweightVector();
extern template void LightweightVector<Vx::AttribValuePair>::push_back(const Vx::AttribValuePair&);

static_assert(sizeof(LightweightVector<Vx::AttribValuePair>) == 24,
              "a virtual-table pointer and one handle are part of the binary interface");
