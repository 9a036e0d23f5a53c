// Terminal.h - Output for people: colour, escaping and tables.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

enum class Colour { plain, bold, dim, red, green, yellow, blue };

/// \p when is "always", "never" or "auto": on a colour terminal unless NO_COLOR is set.
void chooseColour(const std::string& when);

/// \p text in \p colour if colour is on, otherwise unchanged.
std::string paint(Colour colour, std::string_view text);

/// Whether a character is invisible or changes the text direction.
bool isInvisible(wchar_t code);

/// Escapes \p bytes for a terminal: invalid UTF-8 becomes U+FFFD, control characters \xNN,
/// invisible ones \u{N}. The contents of a file can neither move the cursor nor hide.
std::string shown(std::string_view bytes);

/// shown() in single quotes.
std::string inQuotes(std::string_view bytes);

/// The display width of \p text in columns.
std::size_t displayWidth(const std::string& text);

/// The width of the terminal that standard output is, otherwise 80.
std::size_t terminalColumns();

/// Whether the environment selects a UTF-8 locale.
bool utf8Terminal();

/// A table with headings. Cells are padded by their display width.
class Table {
public:
    struct Column {
        std::string heading;
        bool right = false; ///< right-aligned
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// One cell per column, already escaped by shown().
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    /// Prints to standard output.
    void print() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace tool
