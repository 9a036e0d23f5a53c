#include <Vx/VxIniFile.h>

#include <Vx/VxException.h>
#include <Vx/VxStringUtils.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <algorithm>
#include <bit>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>

using Text = LightweightString<char>;
using Pairs = VxIniFile::Pairs;
using Sections = VxIniFile::Sections;

namespace {

constexpr const char* kSource = "ole/Vx/VxIniFile";

void requireValid(bool valid, const char* message, int line)
{
    if (!valid)
        throw Vx::Exception::RuntimeError(message, kSource, line);
}

// One search for both kinds of lists. Deliberate: it begins at the front, wherever the
// caller meant to start.
template <class List> auto firstBeginningWith(const Text& prefix, List& pairs, bool caseSensitive)
{
    const auto compare = caseSensitive ? std::strncmp : strncasecmp;
    return std::find_if(pairs.begin(), pairs.end(), [&](const Vx::AttribValuePair& pair) {
        return compare(pair.name.c_str(), prefix.c_str(), prefix.length()) == 0;
    });
}

} // namespace

// The iterators.

VxIniFile::SectionIterator::SectionIterator() : position_(), end_() {}

VxIniFile::SectionIterator::SectionIterator(Sections::iterator position, Sections::iterator end)
    : position_(position), end_(end)
{}

bool VxIniFile::SectionIterator::valid() const { return position_ != end_; }

VxIniFile::SectionIterator& VxIniFile::SectionIterator::operator++()
{
    requireValid(valid(), "Attempted to manipulate invalid iterator", __LINE__);
    ++position_;
    return *this;
}

VxIniFile::SectionIterator VxIniFile::SectionIterator::operator++(int)
{
    requireValid(valid(), "Attempted to manipulate invalid iterator", __LINE__);
    return SectionIterator(position_++, end_);
}

Text VxIniFile::SectionIterator::name() const
{
    requireValid(valid(), "Attempted to dereference invalid iterator", __LINE__);
    return position_->first;
}

Pairs& VxIniFile::SectionIterator::operator*() const
{
    requireValid(valid(), "Attempted to dereference invalid iterator", __LINE__);
    return position_->second;
}

VxIniFile::ConstSectionIterator::ConstSectionIterator() : position_(), end_() {}

VxIniFile::ConstSectionIterator::ConstSectionIterator(Sections::const_iterator position,
                                                      Sections::const_iterator end)
    : position_(position), end_(end)
{}

bool VxIniFile::ConstSectionIterator::valid() const { return position_ != end_; }

VxIniFile::ConstSectionIterator& VxIniFile::ConstSectionIterator::operator++()
{
    requireValid(valid(), "Attempted to manipulate invalid iterator", __LINE__);
    ++position_;
    return *this;
}

VxIniFile::ConstSectionIterator VxIniFile::ConstSectionIterator::operator++(int)
{
    requireValid(valid(), "Attempted to manipulate invalid iterator", __LINE__);
    return ConstSectionIterator(position_++, end_);
}

Text VxIniFile::ConstSectionIterator::name() const
{
    requireValid(valid(), "Attempted to dereference invalid iterator", __LINE__);
    return position_->first;
}

const Pairs& VxIniFile::ConstSectionIterator::operator*() const
{
    requireValid(valid(), "Attempted to dereference invalid iterator", __LINE__);
    return position_->second;
}

// The document.

VxIniFile::VxIniFile(bool sectionNameCaseSensitive)
    : sectionNameCaseSensitive(sectionNameCaseSensitive),
      sections(VxIniFile_Private::StringLT_Fancy{sectionNameCaseSensitive})
{}

VxIniFile::VxIniFile(const LightweightString<wchar_t>& path, bool loadNow,
                     bool sectionNameCaseSensitive)
    : path(path),
      sectionNameCaseSensitive(sectionNameCaseSensitive),
      sections(VxIniFile_Private::StringLT_Fancy{sectionNameCaseSensitive})
{
    if (loadNow)
        load({}, '\n');
}

VxIniFile::~VxIniFile() {}

bool VxIniFile::getSectionNameCaseSensitivity() const { return sectionNameCaseSensitive; }

unsigned int VxIniFile::getNumSections() const
{
    return static_cast<unsigned int>(sections.size());
}

Pairs& VxIniFile::getSection(const Text& name) { return sections[name]; }

Pairs& VxIniFile::operator[](const Text& name) { return sections[name]; }

const Pairs& VxIniFile::getSection(const Text& name) const
{
    static const Pairs kNoPairs;
    const auto found = sections.find(name);
    return found != sections.end() ? found->second : kNoPairs;
}

const Pairs& VxIniFile::operator[](const Text& name) const { return getSection(name); }

bool VxIniFile::sectionExists(const Text& name) const
{
    return sections.find(name) != sections.end();
}

void VxIniFile::removeSection(const Text& name) { sections.erase(name); }

const Text& VxIniFile::kAnonymousSection()
{
    static const Text kName("@@@ANONYMOUS_SECTION_RESERVED_NAME@@@");
    return kName;
}

VxIniFile::SectionIterator VxIniFile::getSectionIterator()
{
    return SectionIterator(sections.begin(), sections.end());
}

VxIniFile::ConstSectionIterator VxIniFile::getSectionIterator() const
{
    return ConstSectionIterator(sections.begin(), sections.end());
}

Pairs::iterator VxIniFile::findBeginsWith(const Text& prefix, Pairs& pairs, bool caseSensitive,
                                          Pairs::iterator)
{
    return firstBeginningWith(prefix, pairs, caseSensitive);
}

Pairs::const_iterator VxIniFile::findBeginsWith(const Text& prefix, const Pairs& pairs,
                                                bool caseSensitive, Pairs::const_iterator) const
{
    return firstBeginningWith(prefix, pairs, caseSensitive);
}

// Deliberate: the two line numbers are part of what callers see, not of this file.
Pairs::iterator VxIniFile::findContains(const Text&, Pairs&, bool, Pairs::iterator)
{
    throw Vx::Exception::LogicError("Not implemented yet!", kSource, 305);
}

Pairs::const_iterator VxIniFile::findContains(const Text&, const Pairs&, bool,
                                              Pairs::const_iterator) const
{
    throw Vx::Exception::LogicError("Not implemented yet!", kSource, 314);
}

// Loading.

namespace {

// What isprint() says of each byte, asked when a byte first comes up.
class PrintableBytes {
public:
    bool operator()(char byte)
    {
        signed char& answer = answers_[static_cast<unsigned char>(byte)];
        if (answer == 0)
            // Deliberate: as a signed char, so that 0x80 to 0xFF are asked about as negative
            // numbers, of which 0xFF is the one that stands for the end of a file.
            answer = std::isprint(static_cast<signed char>(byte)) != 0 ? 1 : -1;
        return answer > 0;
    }

private:
    signed char answers_[256] = {};
};

// A text that is empty so far becomes a copy of the characters.
void fill(Text& text, const char* begin, const char* end)
{
    // Made over the empty text, which has no block to let go of.
    if (begin != end)
        new (&text) Text(begin, static_cast<unsigned int>(end - begin));
}

// The first '=' before the first 0, or null. Names are short: a word at a time beats a call.
const char* findSeparator(const char* chars, const char* end)
{
    static_assert(std::endian::native == std::endian::little,
                  "the first character is taken for the lowest byte");
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    constexpr std::uint64_t kHighs = 0x8080808080808080;
    for (; end - chars >= 8; chars += 8) {
        std::uint64_t word;
        std::memcpy(&word, chars, sizeof word);
        // The lowest high bit marks the first byte looked for; those above it may be wrong.
        const std::uint64_t other = word ^ (kOnes * '=');
        const std::uint64_t marks =
            ((word - kOnes) & ~word & kHighs) | ((other - kOnes) & ~other & kHighs);
        if (marks != 0) {
            chars += std::countr_zero(marks) / 8;
            return *chars == '=' ? chars : nullptr;
        }
    }
    while (chars != end && *chars != '=' && *chars != 0)
        ++chars;
    return chars != end && *chars == '=' ? chars : nullptr;
}

// AttribValuePair(line, '=') at the end of the list, made in its place. `blank` is a pair of
// three empty texts, and stays one.
void append(Pairs& pairs, Vx::AttribValuePair& blank, const char* begin, const char* end)
{
    Vx::AttribValuePair& pair = pairs.emplace_back(std::move(blank));
    fill(pair.text, begin, end);
    // All from the bytes of the file: what has just been written is slow to read.
    if (const char* const found = findSeparator(begin, end); found != nullptr) {
        fill(pair.name, begin, found);
        fill(pair.value, found + 1, end);
    }
}

// Turns lines into the sections of a document, from the first line of a file on.
class LineReader {
public:
    explicit LineReader(Sections& sections) : sections_(sections) {}

    // One line, its end already cut.
    void take(const char* begin, const char* end)
    {
        // The line as a view first, so that its bytes are copied only once they are known
        // to stay: no bytes but blanks, then none in front, then none behind.
        while (begin != end && *begin == ' ')
            ++begin;
        while (begin != end && end[-1] == ' ')
            --end;
        if (begin == end)
            return;
        if (*begin == '[' && end[-1] == ']') {
            name_ = Text(begin + 1, static_cast<unsigned int>(end - begin - 2));
            usual_ = current_ != nullptr ? current_->size() - found_ : usual_;
            current_ = nullptr;
            return;
        }
        if (current_ == nullptr)
            openSection();
        append(*current_, blank_, begin, end);
    }

private:
    void openSection()
    {
        // Saved files have their sections in order: most belong at the end.
        current_ = &sections_.try_emplace(sections_.end(), std::move(name_))->second;
        found_ = current_->size();
        // Sections of one file are often alike. A wrong guess costs no more room than what
        // the lines before have taken, so all of them together no more than the file.
        if (found_ == 0)
            current_->reserve(usual_);
    }

    Sections& sections_;
    Text name_ = VxIniFile::kAnonymousSection(); // the section's, until it has a pair
    Pairs* current_ = nullptr;                   // the section, once it has a pair
    std::size_t found_ = 0;                      // pairs it had when its header came
    std::size_t usual_ = 0;                      // pairs behind the header before
    Vx::AttribValuePair blank_{Text(), '='};
};

// data[size] is 0 and may be read.
void readLines(const char* data, std::size_t size, char separator, Sections& sections)
{
    LineReader reader(sections);
    PrintableBytes printable;
    const char* const dataEnd = data + size;
    for (const char* line = data; line != dataEnd;) {
        const void* const found =
            std::memchr(line, separator, static_cast<std::size_t>(dataEnd - line));
        const char* const stop = found != nullptr ? static_cast<const char*>(found) : dataEnd;
        // From the separator backwards, itself included: a printable one stays.
        const char* end = stop;
        if (printable(*end))
            ++end;
        else
            while (end != line && !printable(end[-1]))
                --end;
        reader.take(line, end);
        if (found == nullptr)
            return;
        line = stop + 1;
        while (line != dataEnd && !printable(*line) && *line != separator)
            ++line;
    }
}

// Puts the loaded pairs behind those that are there; nothing has changed if it throws.
void merge(Sections& loaded, Sections& into)
{
    for (auto& [name, pairs] : loaded) {
        const auto found = into.find(name);
        if (found == into.end())
            continue;
        // Room first, in steps that keep loading again and again linear.
        Pairs& old = found->second;
        const std::size_t needed = old.size() + pairs.size();
        if (needed > old.capacity())
            old.reserve(std::max(needed, 2 * old.capacity()));
    }
    static_assert(std::is_nothrow_move_constructible_v<Vx::AttribValuePair>,
                  "pairs move into the room that was made without a throw in between");
    for (auto& [name, pairs] : loaded) {
        const auto found = into.find(name);
        if (found != into.end())
            found->second.insert(found->second.end(), std::make_move_iterator(pairs.begin()),
                                 std::make_move_iterator(pairs.end()));
    }
    into.merge(loaded); // the sections that are new
}

} // namespace

bool VxIniFile::load(LightweightString<wchar_t> newPath, char lineSeparator)
{
    if (!newPath.empty())
        path = newPath;
    if (path.empty())
        return false;
    const Vx::Ptr<iFile> file =
        OS()->fileSystem()->openFile(path, /*access=*/1, /*disposition=*/0, /*flags=*/1, 0);
    if (!file)
        return false;
    const unsigned int size = file->size();
    if (size == 0)
        return false; // Deliberate: an empty file is a failure.
    const std::unique_ptr<char[]> data(new char[std::size_t(size) + 1]);
    if (!file->read(data.get(), size))
        return false;
    data[size] = 0;

    // Aside first: if memory runs out the document is as it was. Above all it has not got
    // an anonymous section, which save() would stumble over.
    Sections loaded(sections.key_comp());
    readLines(data.get(), size, lineSeparator, loaded);
    if (sections.empty())
        sections.swap(loaded);
    else
        merge(loaded, sections);
    return true;
}

// Saving.

namespace {

constexpr std::string_view kLineEnd = "\r\n";

// An empty path is the platform's to refuse.
Vx::Ptr<iFile> openForWriting(const LightweightString<wchar_t>& path)
{
    return OS()->fileSystem()->openFile(path, /*access=*/2, /*disposition=*/3, /*flags=*/0, 0);
}

// How long a pair's text is, and the text itself: asString('='), not made where it is not
// stored.
std::size_t textLength(const Vx::AttribValuePair& pair)
{
    if (pair.form != 2)
        return pair.text.length();
    const std::size_t length = std::size_t(pair.name.length()) + 1 + pair.value.length();
    if (length >= 0x80000000u)
        Vx::StringDetail::throwTooLong();
    return length;
}

char* put(char* to, std::string_view chars)
{
    return static_cast<char*>(mempcpy(to, chars.data(), chars.size()));
}

char* putText(char* to, const Vx::AttribValuePair& pair)
{
    if (pair.form != 2)
        return put(to, pair.text);
    to = put(put(to, pair.name), "=");
    Vx::StringDetail::copyTextUpToZero(to, pair.value.c_str(), pair.value.length());
    return to + pair.value.length();
}

char* putHeader(char* to, const Text& name)
{
    return put(put(put(put(to, "["), name), "]"), kLineEnd);
}

// The walks below hand out a document piece by piece, once to be measured and once to be
// written, so that all memory is there before the file is touched.

// A section: an empty line behind the one before, the header, the pairs.
template <class To>
void walkSection(const Sections::value_type& section, const Text*& previousName, To& to)
{
    const auto& [name, pairs] = section;
    if (previousName != nullptr && !isEssentiallyEmpty(*previousName))
        to.lineEnd();
    previousName = &name;
    to.header(name);
    for (const Vx::AttribValuePair& pair : pairs)
        to.pair(pair);
}

// What save() writes before it ends, or does not.
template <class To> void walkAsSaved(const Sections& sections, To& to)
{
    const auto anonymous = sections.find(VxIniFile::kAnonymousSection());
    if (anonymous != sections.end() && !anonymous->second.empty()) {
        // Deliberate: the loop goes on to the next section instead of the next pair, and
        // so has one text for all of them. A section ends at that pair only if the pair
        // is its own, so the sections run out first.
        for (auto section = anonymous; section != sections.end(); ++section)
            to.bareText(anonymous->second.front());
    }
    const Text* previousName = nullptr;
    // Deliberate: the anonymous entry is looked at again and again and never passed.
    for (auto section = sections.begin(); section != anonymous; ++section)
        walkSection(*section, previousName, to);
}

// What saveAll() writes: the anonymous pairs first.
template <class To> void walkWhole(const Sections& sections, To& to)
{
    const auto anonymous = sections.find(VxIniFile::kAnonymousSection());
    const Text* previousName = nullptr;
    if (anonymous != sections.end() && !anonymous->second.empty()) {
        for (const Vx::AttribValuePair& pair : anonymous->second)
            to.pair(pair);
        previousName = &anonymous->first;
    }
    for (auto section = sections.begin(); section != sections.end(); ++section)
        if (section != anonymous)
            walkSection(*section, previousName, to);
}

// The longest piece of save().
struct LongestPiece {
    void lineEnd() { take(0); }
    void header(const Text& name) { take(std::size_t(name.length()) + 2); }
    void pair(const Vx::AttribValuePair& pair) { take(textLength(pair)); }
    void bareText(const Vx::AttribValuePair& pair) { take(textLength(pair)); }
    void take(std::size_t size) { length = std::max(length, size + kLineEnd.size()); }

    std::size_t length = 0;
};

// Writes each piece with one write.
struct PieceWriter {
    void lineEnd() { write(put(piece, kLineEnd)); }
    void header(const Text& name) { write(putHeader(piece, name)); }
    void pair(const Vx::AttribValuePair& pair) { write(put(putText(piece, pair), kLineEnd)); }
    void bareText(const Vx::AttribValuePair& pair) { write(putText(piece, pair)); }
    void write(const char* end) { file.write(piece, static_cast<unsigned int>(end - piece)); }

    iFile& file;
    char* piece; // room for the longest
};

// At least as long as the text of saveAll().
struct WholeLength {
    void lineEnd() { length += kLineEnd.size(); }
    void header(const Text& name) { length += name.length() + 2 + kLineEnd.size(); }
    void pair(const Vx::AttribValuePair& pair) { length += textLength(pair) + 2 + kLineEnd.size(); }

    std::size_t length = 0;
};

// Makes the text of saveAll(). Blanks at the ends of a line keep loading away from bytes that
// it would take for the remains of a line end. Printable ASCII is safe in every locale;
// whatever else is printable now may be loaded where it is not.
struct WholeWriter {
    void lineEnd() { end = put(end, kLineEnd); }
    void header(const Text& name) { end = putHeader(end, name); }
    void pair(const Vx::AttribValuePair& pair)
    {
        const auto safe = [](char byte) { return byte >= 0x20 && byte < 0x7F; };
        // No blank in front of the first line, where loading skips nothing: there may stand a
        // byte-order mark, which has to stay the first thing in the file.
        char* const text = end;
        end = putText(end, pair);
        if (end != text && text != begin && !safe(*text)) {
            std::memmove(text + 1, text, static_cast<std::size_t>(end - text));
            *text = ' ';
            ++end;
        }
        if (end != text && !safe(end[-1]))
            *end++ = ' ';
        lineEnd();
    }

    explicit WholeWriter(char* room) : begin(room), end(room) {}

    char* const begin;
    char* end;
};

// Sleeps until the process ends; every wake-up leads back to sleep. The compiler may not
// take the loop away: it calls into the system library.
[[noreturn]] void stall()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(24));
}

} // namespace

bool VxIniFile::save(LightweightString<wchar_t> newPath)
{
    if (!newPath.empty())
        path = newPath;

    // The room first: if memory runs out, the file has not been touched.
    LongestPiece longest;
    walkAsSaved(sections, longest);
    const std::unique_ptr<char[]> piece(new char[longest.length]);

    const Vx::Ptr<iFile> file = openForWriting(path);
    if (!file)
        return false;
    PieceWriter writer{*file, piece.get()};
    walkAsSaved(sections, writer);
    if (sectionExists(kAnonymousSection()))
        stall();
    return true;
}

bool VxIniFile::saveAll(LightweightString<wchar_t> newPath)
{
    if (!newPath.empty())
        path = newPath;

    // The text first: if memory runs out, the file has not been touched.
    WholeLength atMost;
    walkWhole(sections, atMost);
    const std::unique_ptr<char[]> text(new char[atMost.length]);
    WholeWriter writer{text.get()};
    walkWhole(sections, writer);
    const std::size_t length = static_cast<std::size_t>(writer.end - writer.begin);
    if (length > 0xFFFFFFFFu)
        return false; // more than one write can carry

    const Vx::Ptr<iFile> file = openForWriting(path);
    return file && file->write(text.get(), static_cast<unsigned int>(length));
}
