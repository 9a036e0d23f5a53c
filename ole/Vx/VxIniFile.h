// VxIniFile.h - a configuration document: named sections of pairs, read from and written to
// a file.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxAttribValuePair.h>
#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <cstring>
#include <map>
#include <strings.h>
#include <vector>

namespace VxIniFile_Private {

/// The order of section names: strcmp, or strcasecmp when case does not matter. A number
/// inside a name means nothing: "Section10" comes before "Section2".
///
/// strcasecmp follows the process's character-type locale. A host that changes it while a
/// case-blind document with non-ASCII names is alive changes the order under the map.
struct StringLT_Fancy {
    bool caseSensitive; ///< which of the two orders

    /// Whether \p a stands before \p b.
    bool operator()(const LightweightString<char>& a, const LightweightString<char>& b) const
    {
        return (caseSensitive ? std::strcmp(a.c_str(), b.c_str())
                              : strcasecmp(a.c_str(), b.c_str())) < 0;
    }
};

} // namespace VxIniFile_Private

/// A configuration document in memory: sections in the order of their names, each an
/// ordered list of pairs.
///
///     VxIniFile ini(L"editor.ini", /*loadNow=*/true, /*sectionNameCaseSensitive=*/false);
///     for (const Vx::AttribValuePair& pair : ini["Video"]) show(pair.name, pair.value);
///     ini["Video"].emplace_back("codec", "ProRes", '=');
///     ini.saveAll(L"");
///
/// Lines before the first header of a file stand in the anonymous section, an ordinary
/// entry of the map under the reserved name kAnonymousSection(). Comments and other lines
/// that are no pairs are kept as pairs that have only a text.
///
/// Which save: saveAll() ends for every document and replaces the file with one write; it
///   is the one to use. save() writes piece by piece and, deliberately, never returns for
///   a document with an anonymous section, even an empty one; it is there for hosts that
///   depend on its exact sequence of writes. A file that starts with a comment has an
///   anonymous section.
/// Errors: look-ups never fail. load(), save() and saveAll() answer false; they print and
///   throw nothing, except that memory exhaustion passes through, with the file closed and
///   nothing written to it.
/// Threads: one thread at a time, also while loading and saving.
class VX_API VxIniFile {
public:
    /// A section: its pairs, in the order of their lines.
    using Pairs = std::vector<Vx::AttribValuePair>;

    /// All sections by name.
    using Sections = std::map<LightweightString<char>, Pairs, VxIniFile_Private::StringLT_Fancy>;

    /// Walks the sections in map order:
    ///
    ///     for (auto it = ini.getSectionIterator(); it.valid(); ++it) show(it.name(), *it);
    ///
    /// Errors: Vx::Exception::RuntimeError for anything but valid() at the end.
    /// Lifetime: until the section it stands on is removed or the document ends.
    class VX_API SectionIterator {
    public:
        /// Stands nowhere: not valid().
        SectionIterator();
        /// Stands at \p position of a map that ends at \p end.
        SectionIterator(Sections::iterator position, Sections::iterator end);

        /// Whether there is a section here.
        bool valid() const;
        /// To the next section in map order.
        SectionIterator& operator++();
        /// To the next section. \returns the old position
        SectionIterator operator++(int);
        /// The name of the section.
        LightweightString<char> name() const;
        /// The pairs of the section.
        Pairs& operator*() const;

    private:
        Sections::iterator position_;
        Sections::iterator end_;
    };

    /// The same over a document that is only read.
    class VX_API ConstSectionIterator {
    public:
        /// Stands nowhere: not valid().
        ConstSectionIterator();
        /// Stands at \p position of a map that ends at \p end.
        ConstSectionIterator(Sections::const_iterator position, Sections::const_iterator end);

        /// Whether there is a section here.
        bool valid() const;
        /// To the next section in map order.
        ConstSectionIterator& operator++();
        /// To the next section. \returns the old position
        ConstSectionIterator operator++(int);
        /// The name of the section.
        LightweightString<char> name() const;
        /// The pairs of the section.
        const Pairs& operator*() const;

    private:
        Sections::const_iterator position_;
        Sections::const_iterator end_;
    };

    /// An empty document without a path. With \p sectionNameCaseSensitive false "Video" and
    /// "video" are one section, under the spelling that came first.
    explicit VxIniFile(bool sectionNameCaseSensitive);

    /// Remembers \p path and, when \p loadNow, loads it with lines that end in '\n'. The
    /// result of that is not kept: a missing or empty file makes an empty document.
    VxIniFile(const LightweightString<wchar_t>& path, bool loadNow, bool sectionNameCaseSensitive);

    VxIniFile(const VxIniFile&) = default;
    VxIniFile& operator=(const VxIniFile&) = default;
    /// Leaves \p other empty.
    VxIniFile(VxIniFile&& other) = default;
    VxIniFile& operator=(VxIniFile&& other) = default;

    ~VxIniFile();

    // Sections.

    /// What the constructor was given.
    bool getSectionNameCaseSensitivity() const;

    /// The anonymous section counts when it is present.
    unsigned int getNumSections() const;

    /// The section of that name, created empty when there is none. Valid until the section
    /// is removed.
    Pairs& getSection(const LightweightString<char>& name);
    Pairs& operator[](const LightweightString<char>& name);

    /// The section of that name; when there is none, an empty list that all documents share.
    /// Never creates a section.
    const Pairs& getSection(const LightweightString<char>& name) const;
    const Pairs& operator[](const LightweightString<char>& name) const;

    /// Whether there is such a section, be it empty.
    bool sectionExists(const LightweightString<char>& name) const;

    /// Nothing happens when there is no such section.
    void removeSection(const LightweightString<char>& name);

    /// The reserved name of the section before the first header; valid until exit.
    static const LightweightString<char>& kAnonymousSection();

    /// At the first section in map order.
    SectionIterator getSectionIterator();
    ConstSectionIterator getSectionIterator() const;

    /// The first of \p pairs whose name begins with \p prefix, or their end. The empty
    /// prefix finds the first pair.
    ///
    /// Deliberate: \p start is not used, every search begins at the front.
    Pairs::iterator findBeginsWith(const LightweightString<char>& prefix, Pairs& pairs,
                                   bool caseSensitive, Pairs::iterator start);
    Pairs::const_iterator findBeginsWith(const LightweightString<char>& prefix, const Pairs& pairs,
                                         bool caseSensitive, Pairs::const_iterator start) const;

    /// Deliberate: not implemented.
    /// \throws Vx::Exception::LogicError always
    Pairs::iterator findContains(const LightweightString<char>& text, Pairs& pairs,
                                 bool caseSensitive, Pairs::iterator start);
    Pairs::const_iterator findContains(const LightweightString<char>& text, const Pairs& pairs,
                                       bool caseSensitive, Pairs::const_iterator start) const;

    // Files. A path that is not empty replaces the remembered one, whatever comes of the
    // call; an empty path means the remembered one.

    /// Reads a file and merges it into the document: pairs of a section that is there
    /// already, or comes again in the same file, go behind the old ones.
    ///
    /// Lines end at \p lineSeparator. Bytes at the end of a line that are not printable go
    /// (isprint in the character-type locale of the process), and those at the beginning of
    /// every line but the first, then blanks at both ends; a line of nothing else is left out.
    /// So CR LF files load as they should.
    /// Deliberate: outside an 8-bit locale a non-ASCII character there is not printable either,
    /// and is lost.
    /// A line `[name]` starts a section, whose name is taken with its blanks; it does not
    /// create it: that takes a line inside. Every other line is a pair, split at '='.
    ///
    /// \returns true when the file has been read. Otherwise (no path, no file, an empty
    ///   file, a read error) the sections are as they were, and so they are after an
    ///   exception.
    bool load(LightweightString<wchar_t> path, char lineSeparator);

    /// Writes the document piece by piece: each empty line between sections, header and
    /// pair is one write, ended by CR LF. Sections come in map order. What the writes
    /// answer is not looked at.
    ///
    /// Deliberate: never returns when there is an anonymous section, even an empty one.
    /// It writes the anonymous section's first pair without a line end, once for that
    /// section and once for each behind it, then the sections before it, then nothing
    /// more: it sleeps for ever with the file open, and a platform that replaces files
    /// whole leaves the old one in place. Use saveAll().
    ///
    /// \returns false when the file cannot be opened
    bool save(LightweightString<wchar_t> path);

    /// Writes the document with one write: the pairs of the anonymous section at the top
    /// without a header and an empty line behind them, then the other sections as save()
    /// writes them. Ends for every document.
    ///
    /// A document that was loaded from lines ending in '\n' and saved comes back equal.
    /// For that, a text that would lose bytes at its ends when it is loaded gets a blank
    /// there, which loading removes. What cannot come back: sections without pairs, blanks
    /// at the ends of a text, empty texts, texts and names with a '\n' inside, and a pair
    /// of one's own making that reads as a header, `[...]`.
    /// A document without any text makes an empty file, which load() refuses.
    ///
    /// \returns true when the file could be opened and everything was written
    bool saveAll(LightweightString<wchar_t> path);

    LightweightString<wchar_t> path; ///< what an empty path means to load and save
    /// Fixed at construction; the map has its own copy.
    bool sectionNameCaseSensitive;
    Sections sections; ///< the content; change it as any map of vectors
};
static_assert(sizeof(VxIniFile) == 72 && sizeof(VxIniFile::SectionIterator) == 16,
              "path, flag and map, and two map positions, are part of the binary interface");
