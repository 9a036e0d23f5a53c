// Image/MetadataText.h - the text form that the five metadata records share. Private: not
// installed.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxStringNumbers.h>
#include <Vx/VxStringSplit.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <vector>

namespace Vx {
namespace Image {
namespace MetadataText {

using Text = LightweightString<char>;

/// Writes "tag,1,item,item,...,item,": every item is followed by a comma.
class Writer {
public:
    explicit Writer(const char* tag) { *this << tag << 1; }

    Writer& operator<<(int number) { return add(number); }
    Writer& operator<<(unsigned int number) { return add(number); }
    Writer& operator<<(bool flag) { return add(flag ? "1" : "0"); }
    Writer& operator<<(const char* text) { return add(text); }
    Writer& operator<<(const Text& text) { return add(text); }
    template <class Enum, class = std::enable_if_t<std::is_enum_v<Enum>>>
    Writer& operator<<(Enum number)
    {
        return add(static_cast<int>(number));
    }

    const Text& text() const { return text_; }

private:
    template <class Item> Writer& add(const Item& item)
    {
        text_ += item;
        text_ += ',';
        return *this;
    }

    Text text_;
};

/// The pieces of a text, cut at the commas. They are to be read only when accepted().
class Reader {
public:
    explicit Reader(const Text& text)
    {
        std::vector<unsigned int> commas;
        findSeparators(text, IsMatchingChar<char>(','), commas, 0);
        if (commas.empty())
            return; // one piece, which is no record
        SplitOutputBuilder<Text> builder(pieces_, text);
        convertIndicesToSubStrings(text, commas, builder, 0);
    }

    /// Whether the text is a record named \p tag of the format's version 1, in exactly
    /// \p pieceCount pieces.
    bool accepted(const char* tag, std::size_t pieceCount) const
    {
        return pieces_.size() > 2 && !pieces_[0].empty() &&
               std::strcmp(pieces_[0].c_str(), tag) == 0 && number(1) == 1 &&
               pieces_.size() == pieceCount;
    }

    /// A piece as it stands.
    const Text& text(std::size_t piece) const { return pieces_[piece]; }

    /// Fills \p field from a piece. A number is cut to the field's width, a flag is judged
    /// by the whole number, and what is no number is 0.
    void read(std::size_t piece, bool& field) const { field = number(piece) != 0; }
    template <class Field> void read(std::size_t piece, Field& field) const
    {
        if constexpr (std::is_enum_v<Field>)
            field = static_cast<Field>(static_cast<std::underlying_type_t<Field>>(number(piece)));
        else
            field = static_cast<Field>(number(piece));
    }

private:
    long number(std::size_t piece) const
    {
        return std::strtol(pieces_[piece].c_str(), nullptr, 10);
    }

    StringToVec<Text>::VecT pieces_;
};

} // namespace MetadataText
} // namespace Image
} // namespace Vx
