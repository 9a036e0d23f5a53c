#include <Vx/VxIniFile.h>

#include <Vx/VxException.h>
#include <Vx/VxStringUtils.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
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

bool printable(char byte)
{
    // Deliberate: as a signed char, so that 0x80 to 0xFF are asked about as negative
    // numbers, of which 0xFF is the one that stands for the end of a file.
    return std::isprint(static_cast<signed char>(byte)) != 0;
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
            current_ = nullptr;
            return;
        }
        if (current_ == nullptr)
            current_ = &sections_[name_];
        current_->emplace_back(Text(begin, static_cast<unsigned int>(end - begin)), '=');
    }

private:
    Sections& sections_;
    Text name_ = VxIniFile::kAnonymousSection();
    Pairs* current_ = nullptr; // the section of that name, once it has a pair
};

// data[size] is 0 and may be read.
void readLines(const char* data, std::size_t size, char separator, Sections& sections)
{
    LineReader reader(sections);
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

void appendHeader(std::string& to, const Text& name)
{
    (to += '[').append(name.c_str(), name.length()).append("]").append(kLineEnd);
}

// The characters of a pair's text, which is only made where it is not stored.
struct PairText {
    explicit PairText(const Vx::AttribValuePair& pair)
    {
        if (pair.form == 2)
            view = made = pair.asString('=');
        else
            view = pair.text;
    }

    Text made;
    std::string_view view;
};

// A text as saveAll() writes it. Blanks at the ends keep loading away from bytes that it
// would take for the remains of a line end. Printable ASCII is safe in every locale;
// whatever else is printable now may be loaded where it is not.
void appendProtected(std::string& to, const Vx::AttribValuePair& pair)
{
    const auto safe = [](char byte) { return byte >= 0x20 && byte < 0x7F; };
    const PairText text(pair);
    // Not in front of the first line, where loading skips nothing: there may stand a
    // byte-order mark, which has to stay the first thing in the file.
    if (!text.view.empty() && !safe(text.view.front()) && !to.empty())
        to += ' ';
    to += text.view;
    if (!text.view.empty() && !safe(text.view.back()))
        to += ' ';
    to += kLineEnd;
}

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

    // The pieces first: if memory runs out, the file has not been touched.
    std::string text;
    std::vector<std::size_t> ends;
    const auto endPiece = [&] { ends.push_back(text.size()); };

    const auto anonymous = sections.find(kAnonymousSection());
    if (anonymous != sections.end() && !anonymous->second.empty()) {
        // Deliberate: the loop goes on to the next section instead of the next pair, and
        // so has one text for all of them. A section ends at that pair only if the pair
        // is its own, so the sections run out first.
        for (auto section = anonymous; section != sections.end(); ++section) {
            text += PairText(anonymous->second.front()).view;
            endPiece();
        }
    }

    Text previousName;
    auto section = sections.begin();
    // Deliberate: the anonymous entry is looked at again and again and never passed.
    for (; section != sections.end() && section != anonymous; ++section) {
        const auto& [name, pairs] = *section;
        if (!isEssentiallyEmpty(previousName)) {
            text += kLineEnd;
            endPiece();
        }
        previousName = name;
        appendHeader(text, name);
        endPiece();
        for (const Vx::AttribValuePair& pair : pairs) {
            text += PairText(pair).view;
            text += kLineEnd;
            endPiece();
        }
    }

    const Vx::Ptr<iFile> file = openForWriting(path);
    if (!file)
        return false;
    std::size_t start = 0;
    for (const std::size_t end : ends) {
        file->write(text.data() + start, static_cast<unsigned int>(end - start));
        start = end;
    }
    if (section != sections.end())
        stall();
    return true;
}

bool VxIniFile::saveAll(LightweightString<wchar_t> newPath)
{
    if (!newPath.empty())
        path = newPath;

    // The text first: if memory runs out, the file has not been touched.
    std::string text;
    const auto anonymous = sections.find(kAnonymousSection());
    Text previousName;
    if (anonymous != sections.end()) {
        for (const Vx::AttribValuePair& pair : anonymous->second)
            appendProtected(text, pair);
        if (!text.empty())
            previousName = anonymous->first;
    }
    for (auto section = sections.begin(); section != sections.end(); ++section) {
        if (section == anonymous)
            continue;
        const auto& [name, pairs] = *section;
        if (!isEssentiallyEmpty(previousName))
            text += kLineEnd;
        previousName = name;
        appendHeader(text, name);
        for (const Vx::AttribValuePair& pair : pairs)
            appendProtected(text, pair);
    }
    if (text.size() > 0xFFFFFFFFu)
        return false; // more than one write can carry

    const Vx::Ptr<iFile> file = openForWriting(path);
    return file && file->write(text.data(), static_cast<unsigned int>(text.size()));
}
