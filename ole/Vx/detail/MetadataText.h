// detail/MetadataText.h - The text form that the five metadata records share.
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
namespace detail {

/// Writes "tag,1,item,item,...,item,": every item is followed by a comma.
class MetadataWriter {
public:
    explicit MetadataWriter(const char* tag) { *this << tag << 1; }

    MetadataWriter& operator<<(int number) { return add(number); }
    MetadataWriter& operator<<(unsigned int number) { return add(number); }
    MetadataWriter& operator<<(bool flag) { return add(flag ? "1" : "0"); }
    MetadataWriter& operator<<(const char* text) { return add(text); }
    MetadataWriter& operator<<(const LightweightString<char>& text) { return add(text); }
    template <class Enum, class = std::enable_if_t<std::is_enum_v<Enum>>>
    MetadataWriter& operator<<(Enum number)
    {
        return add(static_cast<int>(number));
    }

    const LightweightString<char>& text() const { return text_; }

private:
    template <class Item> MetadataWriter& add(const Item& item)
    {
        text_ += item;
        text_ += ',';
        return *this;
    }

    LightweightString<char> text_;
};

/// The pieces of a string, split at the commas. Read them only if accepted().
class MetadataReader {
public:
    explicit MetadataReader(const LightweightString<char>& text)
    {
        std::vector<unsigned int> commas;
        findSeparators(text, IsMatchingChar<char>(','), commas, 0);
        if (commas.empty())
            return; // a single piece is no record
        SplitOutputBuilder<LightweightString<char>> builder(pieces_, text);
        convertIndicesToSubStrings(text, commas, builder, 0);
    }

    /// Whether the string is a record with \p tag, of version 1, in exactly \p pieceCount pieces.
    bool accepted(const char* tag, std::size_t pieceCount) const
    {
        return pieces_.size() > 2 && !pieces_[0].empty() &&
               std::strcmp(pieces_[0].c_str(), tag) == 0 && number(1) == 1 &&
               pieces_.size() == pieceCount;
    }

    const LightweightString<char>& text(std::size_t piece) const { return pieces_[piece]; }

    /// Reads a field from a piece: 0 without a number. The number is cut to the field's width; a
    /// flag is true if the whole number is not 0.
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

    StringToVec<LightweightString<char>>::VecT pieces_;
};

} // namespace detail
} // namespace Vx
