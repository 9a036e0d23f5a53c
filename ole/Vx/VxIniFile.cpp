#include <Vx/VxIniFile.h>

#include <Vx/VxException.h>
#include <Vx/detail/IniReader.h>
#include <Vx/detail/IniWriter.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>

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

// Deliberate: searches from the front, wherever the caller wanted to start.
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

// Deliberate: the line numbers of both messages are fixed.
Pairs::iterator VxIniFile::findContains(const Text&, Pairs&, bool, Pairs::iterator)
{
    throw Vx::Exception::LogicError("Not implemented yet!", kSource, 305);
}

Pairs::const_iterator VxIniFile::findContains(const Text&, const Pairs&, bool,
                                              Pairs::const_iterator) const
{
    throw Vx::Exception::LogicError("Not implemented yet!", kSource, 314);
}

// Files.

namespace {

constexpr unsigned int kMaxSize = std::numeric_limits<unsigned int>::max();

std::atomic<unsigned int> loadLimit{kMaxSize};

// The platform rejects an empty path.
Vx::Ptr<iFile> openForWriting(const LightweightString<wchar_t>& path)
{
    return OS()->fileSystem()->openFile(path, /*access=*/2, /*disposition=*/3, /*flags=*/0, 0);
}

[[noreturn]] void stall()
{
    // The call keeps the compiler from assuming that the loop ends.
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(24));
}

} // namespace

void VxIniFile::setLoadLimit(unsigned int maxBytes) { loadLimit = maxBytes; }

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
    // Deliberate: an empty file is a failure.
    if (size == 0 || size > loadLimit)
        return false;
    const std::unique_ptr<char[]> data(new char[std::size_t(size) + 1]);
    if (!file->read(data.get(), size))
        return false;
    data[size] = 0;

    // Into a map of its own first: a failure must leave the document unchanged. Above all it
    // must not leave an anonymous section, which would make save() stall.
    Sections loaded(sections.key_comp());
    if (!Vx::detail::readIniSections(data.get(), size, lineSeparator, kAnonymousSection(), loaded))
        return false;
    if (sections.empty())
        sections.swap(loaded);
    else
        Vx::detail::mergeIniSections(loaded, sections);
    return true;
}

bool VxIniFile::save(LightweightString<wchar_t> newPath)
{
    if (!newPath.empty())
        path = newPath;

    // Before the file is opened: if memory runs out, the file must be untouched.
    const Vx::detail::IniPieces pieces = Vx::detail::iniPiecesOfSave(sections, kAnonymousSection());

    const Vx::Ptr<iFile> file = openForWriting(path);
    if (!file)
        return false;
    std::size_t begin = 0;
    for (const std::size_t end : pieces.ends) {
        file->write(pieces.bytes.data() + begin, static_cast<unsigned int>(end - begin));
        begin = end;
    }
    if (sectionExists(kAnonymousSection()))
        stall();
    return true;
}

bool VxIniFile::saveAll(LightweightString<wchar_t> newPath)
{
    if (!newPath.empty())
        path = newPath;

    // Before the file is opened: if memory runs out, the file must be untouched.
    const std::string text = Vx::detail::iniTextOfSaveAll(sections, kAnonymousSection());
    if (text.size() > kMaxSize)
        return false;

    const Vx::Ptr<iFile> file = openForWriting(path);
    if (!file)
        return false;
    const bool written =
        text.empty() || file->write(text.data(), static_cast<unsigned int>(text.size()));
    return written && file->write(text.data(), 0); // the commit
}
