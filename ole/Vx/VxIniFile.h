// VxIniFile.h - A configuration document: named sections of pairs, read from and written to a file.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <Vx/detail/IniSections.h>

/// A configuration document in memory: sections ordered by name, each a list of pairs.
///
///     VxIniFile ini(L"editor.ini", /*loadNow=*/true, /*sectionNameCaseSensitive=*/false);
///     for (const Vx::AttribValuePair& pair : ini["Video"]) show(pair.name, pair.value);
///     ini["Video"].emplace_back("codec", "ProRes", '=');
///     if (!ini.saveAll(L"")) warn();
///
/// Lines before the first header belong to the anonymous section, an ordinary entry of the map
/// under the reserved name kAnonymousSection(). Comments and other lines that are not pairs are
/// kept as pairs that have only a text.
///
/// Saving: use saveAll(). It works for every document, writes once, and returns true only if
///   the file was replaced. save() exists for hosts that depend on its exact sequence of
///   writes; deliberately, it never returns if there is an anonymous section.
/// Errors: lookups never fail. load(), save() and saveAll() return false and throw nothing,
///   except that memory exhaustion propagates, with the file closed and nothing written to it.
///   The library prints nothing; the reference platform reports on standard error a path that
///   it refuses and a file that it could not replace.
/// Memory: a loaded pair of 38 characters takes about 250 bytes, or 190 if the section before it
///   has the same name in the same place. A line of one letter takes about 90, which is 45 times
///   its size in the file; see setLoadLimit().
/// Thread safety: one thread at a time may use a document, also while it loads or saves.
class VX_API VxIniFile {
public:
    /// The pairs of a section, in the order of their lines.
    using Pairs = VxIniFile_Private::Pairs;

    /// All sections by name.
    using Sections = VxIniFile_Private::Sections;

    /// Visits the sections in map order.
    ///
    ///     for (auto it = ini.getSectionIterator(); it.valid(); ++it) show(it.name(), *it);
    ///
    /// Valid until its section is removed or the document is destroyed.
    /// \throws Vx::Exception::RuntimeError from all operations but valid() if it is not valid()
    class VX_API SectionIterator {
    public:
        /// Constructs an iterator that is not valid().
        SectionIterator();
        SectionIterator(Sections::iterator position, Sections::iterator end);

        /// Returns whether there is a section at this position.
        bool valid() const;
        SectionIterator& operator++();
        SectionIterator operator++(int);
        /// Returns the name of the section.
        LightweightString<char> name() const;
        /// Returns the pairs of the section.
        Pairs& operator*() const;

    private:
        Sections::iterator position_;
        Sections::iterator end_;
    };

    /// The same for a const document.
    class VX_API ConstSectionIterator {
    public:
        /// As for SectionIterator.
        ConstSectionIterator();
        ConstSectionIterator(Sections::const_iterator position, Sections::const_iterator end);

        /// As for SectionIterator.
        bool valid() const;
        ConstSectionIterator& operator++();
        ConstSectionIterator operator++(int);
        LightweightString<char> name() const;
        const Pairs& operator*() const;

    private:
        Sections::const_iterator position_;
        Sections::const_iterator end_;
    };

    /// Creates an empty document without a path. With \p sectionNameCaseSensitive false, "Video"
    /// and "video" are one section, spelled as it was first.
    explicit VxIniFile(bool sectionNameCaseSensitive);

    /// A path alone does not say whether to load it: write `VxIniFile ini(path, true, false)`.
    template <class T> explicit VxIniFile(const T* path) = delete;

    /// Stores \p path and, if \p loadNow, loads it with lines separated by '\n'. The result of
    /// the load is dropped: a missing or empty file gives an empty document.
    VxIniFile(const LightweightString<wchar_t>& path, bool loadNow, bool sectionNameCaseSensitive);

    VxIniFile(const VxIniFile&) = default;
    /// Leaves this document unchanged if memory runs out.
    VxIniFile& operator=(const VxIniFile& other) { return *this = VxIniFile(other); }
    /// Leaves \p other empty.
    VxIniFile(VxIniFile&& other) = default;
    VxIniFile& operator=(VxIniFile&& other) = default;

    ~VxIniFile();

    // Sections.

    /// Returns what the constructor was given.
    bool getSectionNameCaseSensitivity() const;

    /// Returns the number of sections, the anonymous one included.
    unsigned int getNumSections() const;

    /// Returns the section named \p name, creating an empty one if there is none. The
    /// reference is valid until the section is removed.
    Pairs& getSection(const LightweightString<char>& name);
    Pairs& operator[](const LightweightString<char>& name);

    /// Returns the section named \p name, or an empty list that all documents share. Never
    /// creates a section.
    const Pairs& getSection(const LightweightString<char>& name) const;
    const Pairs& operator[](const LightweightString<char>& name) const;

    /// Returns whether the section exists, even if it is empty.
    bool sectionExists(const LightweightString<char>& name) const;

    /// Removes a section. Does nothing if it does not exist.
    void removeSection(const LightweightString<char>& name);

    /// Returns the reserved name of the section before the first header; valid until exit.
    static const LightweightString<char>& kAnonymousSection();

    /// Returns an iterator at the first section in map order.
    SectionIterator getSectionIterator();
    ConstSectionIterator getSectionIterator() const;

    /// Returns the first of \p pairs whose name begins with \p prefix, or their end. An empty
    /// prefix matches the first pair.
    ///
    /// Deliberate: \p start is ignored, every search begins at the front.
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

    // Files. A non-empty path argument replaces the stored path, whether or not the call
    // succeeds; an empty one stands for the stored path.

    /// Reads a file and merges it into the document: pairs of a section that exists already, or
    /// that the file contains twice, are appended to it.
    ///
    /// Lines end at \p lineSeparator. Unprintable bytes (by isprint in the process's
    /// character-type locale) are removed from the end of every line and from the beginning of
    /// all lines but the first, then blanks from both ends; lines that are empty after that are
    /// dropped. CR LF files therefore load as expected.
    /// Deliberate: outside an 8-bit locale, a non-ASCII character at the end or beginning of a
    /// line is unprintable too, and is lost. A printable \p lineSeparator, such as ';', stays at
    /// the end of its line.
    /// A line `[name]` starts a section. Blanks inside the brackets belong to the name. A header
    /// without lines creates no section. Every other line becomes a pair, split at the first '='.
    ///
    /// \returns true if the file was read; false if there is no path or no file, if the file is
    ///   empty (deliberately), cannot be read, exceeds the load limit, or has a line of 2^31 or
    ///   more characters. The sections are then unchanged, as they are after an exception.
    bool load(LightweightString<wchar_t> path, char lineSeparator);

    /// Makes load() refuse files of more than \p maxBytes bytes, in all documents. The initial
    /// limit, 2^32 - 1, is the largest size that a platform can report. A host that opens files
    /// of unknown origin should lower it.
    /// Thread safety: may be called from any thread at any time.
    static void setLoadLimit(unsigned int maxBytes);

    /// Writes the document in pieces, one write() each: a line break between sections (none after
    /// a name that is empty or blank), a header, a pair. Lines end with CR LF; sections come in
    /// map order. The results of the writes are ignored, and the file is not committed.
    ///
    /// Deliberate: never returns if there is an anonymous section, even an empty one. It writes
    /// the first anonymous pair without a line end, once for that section and once for each
    /// section after it, then the sections before it; then it sleeps for ever with the file
    /// open, so a platform that replaces files as a whole keeps the old one. Use saveAll().
    ///
    /// \returns true if the file could be opened
    bool save(LightweightString<wchar_t> path);

    /// Writes the document with one write() and commits it: the anonymous pairs at the top
    /// without a header, then a line break and the other sections as save() writes them.
    ///
    /// A document loaded from lines that end in '\n' is equal after saving and loading it. To
    /// achieve that, a text whose ends load() would strip gets a blank there, which load()
    /// removes. Not preserved: sections without pairs, blanks at the ends of a text, empty texts,
    /// texts and names that contain '\n', and pairs added by the program that read as a header,
    /// `[...]`. A document without any text produces an empty file, which load() refuses.
    ///
    /// \returns true if the file now has this content; false if it could not be opened, written
    ///   or replaced, or if the text is longer than 2^32 - 1 bytes. A platform that does not
    ///   implement the commit of iFile::write() reports success before it has replaced the file.
    bool saveAll(LightweightString<wchar_t> path);

    LightweightString<wchar_t> path; ///< what an empty path argument stands for
    /// Fixed at construction; the map has its own copy.
    bool sectionNameCaseSensitive;
    Sections sections; ///< the content; may be changed like any map of vectors
};
static_assert(sizeof(VxIniFile) == 72 && sizeof(VxIniFile::SectionIterator) == 16,
              "path, flag and map, and two map positions, are part of the binary interface, which "
              "-D_GLIBCXX_DEBUG changes");
