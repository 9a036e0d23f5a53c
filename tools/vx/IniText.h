// IniText.h - The lines of an INI file and how the library loads each of them.
#pragma once

#include <Vx/VxIniFile.h>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// One line of the file. It refers to the file's bytes.
struct IniLine {
    enum class Kind {
        blank,  ///< not part of the document
        header, ///< starts section `name`
        pair,   ///< anything else: key=value, a comment, stray text
    };

    std::string_view raw;  ///< without its '\n'
    std::string_view kept; ///< the part of raw that load() keeps
    bool ended;            ///< whether a '\n' follows
    Kind kind;

    std::string_view head() const; ///< the part of raw before kept
    std::string_view tail() const; ///< the part of raw after kept

    LightweightString<char> name() const; ///< of a header
    bool isSplit() const;                 ///< whether the library splits this pair at '='
    std::string_view key() const;         ///< of a pair; key and value are empty unless it is split
    std::string_view value() const;
    bool isComment() const; ///< whether a pair starts like a comment
};

/// Whether the library split \p pair at '='.
bool isSplit(const Vx::AttribValuePair& pair);
/// Whether \p pair starts like a comment. The library itself has no comments.
bool looksLikeComment(const Vx::AttribValuePair& pair);

/// Whether \p line is one of the lines that mark a merge conflict.
bool isConflictMark(const IniLine& line);

/// An INI file, split into lines by the rules of VxIniFile::load().
class IniText {
public:
    explicit IniText(std::string bytes);

    const std::string& bytes() const { return *bytes_; }
    const std::vector<IniLine>& lines() const { return lines_; }

    /// The sections that these lines load as.
    VxIniFile::Sections sections(bool caseSensitive) const;

    /// Whether they load as \p sections.
    bool loadsAs(const VxIniFile::Sections& sections) const;

private:
    std::shared_ptr<const std::string> bytes_; // shared by copies; the lines point into it
    std::vector<IniLine> lines_;
};

/// The line ending of the file; by default the one that the library writes.
std::string lineEnd(const IniText& text);

/// Whether \p bytes start with a UTF-16 mark, or with characters of which every second byte is NUL.
bool isUtf16(std::string_view bytes);

/// Loads a file with the library.
/// \throws Failure if load() fails, or the file is UTF-16
VxIniFile loadIni(const std::string& path, bool caseSensitive);

/// Reads the lines of a file and checks them against the document that load() makes of it.
/// \throws Failure if the file cannot be read or is UTF-16, or the two disagree
IniText readIni(const std::string& path, bool caseSensitive);

/// readIni(), but accepts UTF-16.
IniText readAnyIni(const std::string& path, bool caseSensitive);

/// readIni(), but refuses a file with NUL bytes.
IniText readTextIni(const std::string& path, bool caseSensitive);

/// The section that a command line argument names: "-" means the lines before the first.
LightweightString<char> sectionArgument(const std::string& word);
/// The name of a section for messages: "[Video]" or "before the first section".
std::string sectionTitle(const LightweightString<char>& name);
/// Where its lines are: "in [Video]" or "before the first section".
std::string sectionPlace(const LightweightString<char>& name);

} // namespace tool
