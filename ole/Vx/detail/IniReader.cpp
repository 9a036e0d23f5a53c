#include <Vx/detail/IniReader.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Vx::detail {

namespace {

using Text = LightweightString<char>;
using VxIniFile_Private::Pairs;
using VxIniFile_Private::Sections;

constexpr std::size_t kLongestLine = 0x7FFFFFFF;

bool isPrintable(char byte)
{
    // Printable in every locale, and most bytes of most files.
    if (byte >= 0x20 && byte < 0x7F)
        return true;
    // Deliberate: passed as a signed char, so the bytes 0x80 to 0xFF are negative numbers, of
    // which 0xFF is EOF.
    return std::isprint(static_cast<signed char>(byte)) != 0;
}

// Makes the empty \p text a copy. Documents live long and rarely change, so their strings have no
// spare room.
void copyExactly(const char* begin, const char* end, Text& text)
{
    if (begin == end)
        return;
    text.createImpl(static_cast<unsigned int>(end - begin), /*powerOfTwo=*/false);
    std::memcpy(text.mutableChars(), begin, static_cast<std::size_t>(end - begin));
}

// Returns the first \p byte, or null.
const char* find(const char* begin, const char* end, char byte)
{
    return static_cast<const char*>(
        std::memchr(begin, byte, static_cast<std::size_t>(end - begin)));
}

// Makes room for \p count more pairs. Doubling keeps sections that grow in many steps linear.
void reserveMore(Pairs& pairs, std::size_t count)
{
    const std::size_t needed = pairs.size() + count;
    if (needed > pairs.capacity())
        pairs.reserve(std::max(needed, 2 * pairs.capacity()));
}

// Positions in the file, which take half the memory of pointers.
struct Line {
    unsigned int begin;
    unsigned int length;
};

// The lines after one header, in a list of the lines of many. Names may repeat.
struct Section {
    std::string_view name; // with a NUL after it
    std::size_t firstLine;
    std::size_t lineCount;
    std::uint64_t start; // of the name, see setStarts()
};

// Makes the pairs of each section when it ends, while its lines are in the processor's cache, as
// long as the sections come in map order, as saved files have them. Only notes where the lines of
// the others are, and makes their pairs once it has seen them all: in map order again, so that
// sections enter the map without a search and lie in memory as they will be visited.
class SectionReader {
public:
    /// \p sections is empty.
    SectionReader(char* data, const Text& firstName, Sections& sections)
        : data_(data), name_(firstName), sections_(sections)
    {}

    /// \returns false if the line is too long
    bool take(char* begin, char* end)
    {
        while (begin != end && *begin == ' ')
            ++begin;
        while (begin != end && end[-1] == ' ')
            --end;
        if (begin == end)
            return true;
        const auto length = static_cast<std::size_t>(end - begin);
        if (length > kLongestLine)
            return false;
        if (*begin == '[' && end[-1] == ']') {
            finishSection();
            end[-1] = 0; // The order of sections is that of C strings.
            name_ = {begin + 1, length - 2};
        } else {
            lines_.push_back(
                {static_cast<unsigned int>(begin - data_), static_cast<unsigned int>(length)});
        }
        return true;
    }

    /// Makes everything that was read and not made yet.
    void finish()
    {
        finishSection();
        setStarts();
        std::stable_sort(later_.begin(), later_.end(), [this](const Section& a, const Section& b) {
            return a.start != b.start ? a.start < b.start : before(a.name, b.name);
        });
        auto position = sections_.begin();
        for (const Section& section : later_) {
            while (position != sections_.end() && before(position->first, section.name))
                ++position;
            if (position == sections_.end() || before(section.name, position->first))
                position = addSection(position, section.name);
            const auto first = laterLines_.begin() + static_cast<std::ptrdiff_t>(section.firstLine);
            makePairs(first, section.lineCount, position->second);
        }
    }

private:
    // Of names with a NUL after them.
    bool before(std::string_view a, std::string_view b) const
    {
        return sections_.key_comp().before(a.data(), b.data());
    }

    // Stores the eight characters after the prefix that all names have, as a number of the same
    // order. Sorting by them seldom has to fetch a name, each from another place in the file.
    void setStarts()
    {
        const char* const first = later_.empty() ? "" : later_.front().name.data();
        const char* prefixEnd = first + std::strlen(first);
        for (const Section& section : later_)
            prefixEnd = std::mismatch(first, prefixEnd, section.name.data()).first;
        for (Section& section : later_) {
            const char* at = section.name.data() + (prefixEnd - first);
            for (std::size_t i = 0; i < sizeof section.start; ++i) {
                const auto byte = static_cast<unsigned char>(*at);
                const int order = sections_.key_comp().caseSensitive ? byte : std::tolower(byte);
                section.start = section.start << 8 | static_cast<unsigned char>(order);
                at += byte != 0;
            }
        }
    }

    // A header without lines creates no section.
    void finishSection()
    {
        if (lines_.empty())
            return;
        if (later_.empty() && (sections_.empty() || before(sections_.rbegin()->first, name_)))
            makePairs(lines_.begin(), lines_.size(), addSection(sections_.end(), name_)->second);
        else {
            later_.push_back({name_, laterLines_.size(), lines_.size(), 0});
            laterLines_.insert(laterLines_.end(), lines_.begin(), lines_.end());
        }
        lines_.clear();
    }

    Sections::iterator addSection(Sections::iterator position, std::string_view chars)
    {
        Text name;
        copyExactly(chars.data(), chars.data() + chars.size(), name);
        return sections_.try_emplace(position, std::move(name));
    }

    // Appends \p count lines to the section \p pairs.
    template <class Lines> void makePairs(Lines line, std::size_t count, Pairs& pairs)
    {
        if (&pairs != current_)
            previous_ = std::exchange(current_, &pairs);
        reserveMore(pairs, count);
        for (; count != 0; --count, ++line)
            makePair(data_ + line->begin, line->length, pairs);
    }

    // Sections of a list often have the same names, and some of the same values, in the same
    // lines: those share their blocks.
    void makePair(const char* begin, std::size_t length, Pairs& pairs) const
    {
        const std::size_t number = pairs.size();
        const AttribValuePair& model = number < previous_->size() ? (*previous_)[number] : blank_;
        if (std::string_view(model.text) == std::string_view(begin, length)) {
            pairs.push_back(model);
            return;
        }
        AttribValuePair& pair = pairs.emplace_back(blank_);
        const char* const end = begin + length;
        copyExactly(begin, end, pair.text);
        const char* const separator = find(begin, end, '=');
        if (separator == nullptr)
            return;
        if (std::string_view(model.name) ==
            std::string_view(begin, static_cast<std::size_t>(separator - begin)))
            pair.name = model.name;
        else if (find(begin, separator, 0) != nullptr)
            return; // Pairs are split before their first NUL.
        else
            copyExactly(begin, separator, pair.name);
        copyExactly(separator + 1, end, pair.value);
    }

    const char* const data_;
    std::string_view name_;      // of the section that is being read
    std::vector<Line> lines_;    // of this section
    std::vector<Section> later_; // since the first section that came out of order
    // Of those. In many small parts: a large block raises the limit up to which malloc keeps
    // memory, so that the memory of the document would not be returned when it is dropped.
    std::deque<Line> laterLines_;
    Sections& sections_;
    const AttribValuePair blank_{Text(), '='};
    const Pairs noPairs_;
    const Pairs* current_ = &noPairs_;  // the section that was made last
    const Pairs* previous_ = &noPairs_; // the section that was made before it
};

} // namespace

bool readIniSections(char* data, std::size_t size, char separator, const Text& firstName,
                     Sections& sections)
{
    SectionReader reader(data, firstName, sections);
    char* const dataEnd = data + size;
    for (char* line = data; line != dataEnd;) {
        void* const found = std::memchr(line, separator, static_cast<std::size_t>(dataEnd - line));
        char* const stop = found != nullptr ? static_cast<char*>(found) : dataEnd;
        // Trims from the separator inclusive; keeps it if printable.
        char* end = stop;
        if (isPrintable(*end))
            ++end;
        else
            while (end != line && !isPrintable(end[-1]))
                --end;
        if (!reader.take(line, end))
            return false;
        if (found == nullptr)
            break;
        line = stop + 1;
        while (line != dataEnd && !isPrintable(*line) && *line != separator)
            ++line;
    }
    reader.finish();
    return true;
}

void mergeIniSections(Sections& loaded, Sections& into)
{
    if (into.empty())
        return into.swap(loaded);
    for (const auto& [name, pairs] : loaded) {
        const auto found = into.find(name);
        if (found != into.end())
            reserveMore(found->second, pairs.size());
    }
    // All memory is allocated; nothing below can fail.
    static_assert(std::is_nothrow_move_constructible_v<AttribValuePair>,
                  "moving pairs into reserved room must not throw");
    for (auto& [name, pairs] : loaded) {
        const auto found = into.find(name);
        if (found != into.end())
            std::move(pairs.begin(), pairs.end(), std::back_inserter(found->second));
    }
    into.merge(loaded);
}

} // namespace Vx::detail
