// IniText.h - the lines of an INI file beside the document that the library makes of them.
#pragma once

#include <Vx/VxIniFile.h>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// One line as it stands in the file, and what VxIniFile::load() takes it for.
struct IniLine {
    enum class Kind {
        blank,  ///< left out of the document
        header, ///< starts the section `name`
        pair,   ///< everything else: pairs, comments, stray text
    };

    std::string_view raw;  ///< without its '\n'
    std::string_view kept; ///< what loading keeps of raw: a part of it
    bool ended;            ///< whether a '\n' ends it
    Kind kind;
    LightweightString<char> name; ///< of a header
    Vx::AttribValuePair pair;     ///< of a pair; name and value are empty without a '='

    std::string_view head() const; ///< what stands before kept
    std::string_view tail() const; ///< what stands behind kept
};

/// Whether the library split \p pair at a '='.
bool isSplit(const Vx::AttribValuePair& pair);
/// Whether a person takes \p pair for a comment. The library knows no comments.
bool looksLikeComment(const Vx::AttribValuePair& pair);

/// The text of an INI file, cut into lines by the rules of VxIniFile::load().
class IniText {
public:
    explicit IniText(std::string bytes);

    const std::string& bytes() const { return *bytes_; }
    const std::vector<IniLine>& lines() const { return lines_; }

    /// The sections that these lines make.
    VxIniFile::Sections sections(bool caseSensitive) const;

private:
    std::shared_ptr<const std::string> bytes_; // the lines point into it, copies too
    std::vector<IniLine> lines_;
};

/// Whether two documents have the same sections with the same texts in the same order.
bool sameSections(const VxIniFile::Sections& a, const VxIniFile::Sections& b);

/// The library's document of a file.
/// \throws Failure when load() refuses it
VxIniFile loadIni(const std::string& path, bool caseSensitive);

/// The lines of a file that load() has read as well. The library is the judge of what a
/// line means: where it should see anything else than these lines say, nothing is returned.
/// \throws Failure when the file cannot be read, or the two do not agree
IniText readIni(const std::string& path, bool caseSensitive);

/// On the command line "-" stands for the lines above the first header.
LightweightString<char> sectionArgument(const std::string& word);
/// How a section is called when it is shown.
std::string sectionTitle(const LightweightString<char>& name);

} // namespace tool
