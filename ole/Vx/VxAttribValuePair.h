// VxAttribValuePair.h - one name=value item of configuration data, and lists of them as text.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/LightweightVector.h>
#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <cstddef>

namespace Vx {

/// A name and a value, and the text that they came from.
///
///     Vx::AttribValuePair pair("rate=25", '=');
///     if (pair.valid()) use(pair.name, pair.value);
///
/// The text is kept beside the name and the value, so that text which is no pair (a
/// comment, a stray line) passes through unchanged.
///
/// Shape: a 32-bit form and three strings, 56 bytes. The form says which strings count:
///   0: all three agree; every constructor ends with it.
///   1: only the text; name and value have not been split out yet.
///   2: name and value; the text is stale.
///
/// Nothing in the library makes forms 1 and 2; whoever changes a public member by hand sets the
/// form that says so, and comparison, assignment and printing honour it.
///
/// Comparison: of texts, here and in the functions below, byte by byte, case-sensitive, up to
///   the first 0, as strcmp does.
/// Separators: one byte each. The separator 0 adds nothing where texts are joined.
///   Nothing is quoted, escaped or trimmed, neither when parsing nor when joining.
/// Errors: a text that is no pair is represented, never refused. Memory exhaustion
///   passes through.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API AttribValuePair {
public:
    /// Splits \p text at the first \p separator; further ones stay in the value. Without
    /// one (none before the first 0 of the text), name and value are empty and the pair
    /// is not valid(). With the separator 0 the whole text is the name.
    AttribValuePair(const LightweightString<char>& text, char separator);

    /// Takes name and value as they are; the text is name, separator, value.
    AttribValuePair(const LightweightString<char>& name, const LightweightString<char>& value,
                    char separator);

    /// The same with both texts converted to UTF-8.
    AttribValuePair(const LightweightString<wchar_t>& name, const LightweightString<wchar_t>& value,
                    char separator);

    /// Copies member by member, the form too; assignment does not.
    AttribValuePair(const AttribValuePair&) noexcept = default;
    /// Leaves \p other with three empty strings.
    AttribValuePair(AttribValuePair&& other) noexcept = default;

    ~AttribValuePair();

    /// Takes over what \p other holds, by its form:
    ///   0: everything.
    ///   1: its text, split at '='; this pair ends in form 0.
    ///   2: its name and value; this pair keeps its own text and ends in form 2.
    /// Deliberate: '=' whatever separator the text was written with, and also when a pair
    /// of form 1 is assigned to itself.
    AttribValuePair& operator=(const AttribValuePair& other);

    /// Whether there is both a name and a value; never in form 1.
    bool valid() const;

    /// Compares what counts in the two forms:
    ///   0 and 0: names and values, or else the texts.
    ///   1 and 1, 0 and 1: the texts.
    ///   2 and 2, 0 and 2: names and values.
    ///   1 and 2: names, values and texts.
    bool operator==(const AttribValuePair& other) const;
    bool operator!=(const AttribValuePair& other) const { return !(*this == other); }

    /// The pair as text. Deliberate: only form 2 is put together with \p separator; in any
    /// other form it is the stored text, so a pair made with ':' still prints with ':'.
    LightweightString<char> asString(char separator) const;

    /// asString() widened byte by byte (not decoded as UTF-8). Deliberate: the argument is
    /// ignored, a pair of form 2 is put together with '='.
    LightweightString<wchar_t> asWString(char separator) const;

    /// All pairs in one text: each as asString(pairSeparator), with \p itemSeparator
    /// between them. No separator comes before the first text that is not empty; from
    /// there on empty items keep theirs.
    static LightweightString<char> asString(const LightweightVector<AttribValuePair>& pairs,
                                            char pairSeparator, char itemSeparator);

    /// The same, decoded as UTF-8.
    static LightweightString<wchar_t> asWString(const LightweightVector<AttribValuePair>& pairs,
                                                char pairSeparator, char itemSeparator);

    /// Reads the text that asString() makes. Items that are not valid() (no
    /// \p pairSeparator, an empty name, an empty value) are dropped.
    static LightweightVector<AttribValuePair> vecFromString(const LightweightString<char>& text,
                                                            char pairSeparator, char itemSeparator);

    /// The value of the first pair named \p name; empty without one.
    ///
    /// Deliberate: items are counted in 16 bits. In a list of more than 65,535 pairs the
    /// search never leaves the first 65,536: it goes round in them, and does not end when
    /// none of them matches.
    static LightweightString<char> getValue(const LightweightString<char>& name,
                                            const LightweightVector<AttribValuePair>& pairs);

    /// The same with the name as UTF-8, and the value decoded.
    static LightweightString<wchar_t> getValue(const LightweightString<wchar_t>& name,
                                               const LightweightVector<AttribValuePair>& pairs);

    int form;                      ///< which of the texts count, see above
    LightweightString<char> text;  ///< the whole item
    LightweightString<char> name;  ///< what stands before the first separator
    LightweightString<char> value; ///< what stands behind it
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
