// SettingsText.h - The text form of settings.
#pragma once

#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

/// A section and a key in it.
using SettingsKey = std::pair<std::string, std::string>;

/// Returns \p text with control bytes, backslashes and spaces at its ends written as \n, \r, \t,
/// \\ or \xHH; in addition the bytes \p anywhere, and those \p atStart if they come first.
std::string escapeSetting(std::string_view text, std::string_view atStart = {},
                          std::string_view anywhere = {});

/// Undoes escapeSetting(). \returns false for a control byte other than a tab, and for an unknown
/// or incomplete escape; \p result is unspecified then
bool unescapeSetting(std::string_view text, std::string& result);

/// Settings as lines that people can read and edit:
///
///     # a comment; lines that begin with ';' are comments, too
///     [Configuration]
///     Normal Exit=true
///
/// Spaces and tabs around a section, key or value do not belong to it. Escapes, see
///   escapeSetting(), stand for bytes that would be misread, so any bytes come back unchanged.
/// Comments, empty lines, the order of lines and the spelling of unchanged lines are kept. If a
///   key occurs twice, the last value is its value.
class SettingsText {
public:
    SettingsText() = default;
    SettingsText(const SettingsText&) = delete;
    SettingsText& operator=(const SettingsText&) = delete;

    /// Lines that parse() could not read.
    struct Unreadable {
        unsigned int count = 0;
        unsigned int first = 0; ///< line number, from 1
    };

    /// Appends the lines of \p bytes, which end in LF or CR LF. Unreadable lines are left out.
    /// So are all keys between an unreadable section header and the next header: there is no
    /// telling where they belong.
    Unreadable parse(std::string_view bytes);

    /// Returns the value, valid until the next change, or null if there is none.
    const std::string* find(const SettingsKey& key) const;

    /// Stores a value: in the line of the old one, or at the end of its section. An exception
    /// leaves the object unchanged.
    void set(const SettingsKey& key, std::string_view value);

    /// Returns the text; every line ends in LF.
    std::string bytes() const;

    void swap(SettingsText& other) noexcept;

private:
    using Lines = std::list<std::string>;
    struct Entry {
        Lines::iterator line;
        std::string value;
    };
    /// The section that parse() is in.
    struct Section {
        std::string name;
        bool known = true;
    };

    bool parseLine(std::string_view line, Section& section);
    Lines::iterator append(std::string_view line) { return lines_.emplace(lines_.end(), line); }

    Lines lines_;
    std::map<SettingsKey, Entry> entries_;
    std::map<std::string, Lines::iterator> sectionEnds_; // the last key of each, or its header
};
