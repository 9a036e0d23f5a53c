// SettingsText.h - the text form of settings.
#pragma once

#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

/// A section and a key of it.
using SettingsKey = std::pair<std::string, std::string>;

/// Settings as lines for people, that come back byte for byte:
///
///     # a comment, as a line that begins with ';'
///     [Configuration]
///     Normal Exit=true
///
/// Blanks around a section, key or value are not part of it. Where bytes could be mistaken
/// they stand as \n, \r, \t, \\ or \xHH: control bytes; a backslash; a blank at an end; '='
/// in a key, and '[', '#' or ';' at its start. All other bytes stand for themselves.
/// Comments, empty lines and the order of lines survive changes. A key that stands twice
/// has its last value.
class SettingsText {
public:
    SettingsText() = default;
    SettingsText(const SettingsText&) = delete;
    SettingsText& operator=(const SettingsText&) = delete;

    /// Adds the lines of \p bytes. Line ends are LF or CR LF.
    /// \returns 0, or the number of the first line that is no settings text, from 1 on; the
    ///   object is of no use then
    unsigned int parse(std::string_view bytes);

    /// The value, valid until the next change; null when none is stored.
    const std::string* find(const SettingsKey& key) const;

    /// Stores a value: in place of the old one, or at the end of its section. After
    /// an exception nothing has changed.
    void set(const SettingsKey& key, std::string_view value);

    /// The text, each line ended by LF.
    std::string bytes() const;

    void swap(SettingsText& other) noexcept;

private:
    using Lines = std::list<std::string>;
    struct Entry {
        Lines::iterator line;
        std::string value;
    };

    bool parseLine(std::string_view line, std::string& section);

    Lines lines_;
    std::map<SettingsKey, Entry> entries_;
    std::map<std::string, Lines::iterator> sectionEnds_; // its last value, or its header
};
