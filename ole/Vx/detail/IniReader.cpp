#include <Vx/detail/IniReader.h>

#include <algorithm>
#include <cctype>
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

// Returns the first '=' before the first NUL, or null.
const char* findSeparator(const char* begin, const char* end)
{
    const void* const found = std::memchr(begin, '=', static_cast<std::size_t>(end - begin));
    const char* const separator = static_cast<const char*>(found);
    if (found == nullptr ||
        std::memchr(begin, 0, static_cast<std::size_t>(separator - begin)) != nullptr)
        return nullptr;
    return separator;
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

// The lines after one header. Names may repeat.
struct Section {
    std::string_view name; // with a NUL after it
    std::vector<Line> lines;
};

// Notes where the lines of the sections are, and makes the pairs once it has seen them all: made in
// map order, sections enter the map without a search and lie in memory as they will be visited.
class SectionReader {
public:
    SectionReader(char* data, const Text& firstName) : data_(data), name_(firstName) {}

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

    /// Makes everything that was read. \p sections is empty.
    void finish(Sections& sections)
    {
        finishSection();
        const auto before = [less = sections.key_comp()](const Section& a, const Section& b) {
            return less.before(a.name.data(), b.name.data());
        };
        // Saved files are in order already.
        if (!std::is_sorted(sections_.begin(), sections_.end(), before))
            std::stable_sort(sections_.begin(), sections_.end(), before);
        const Pairs* previous = &noPairs_;
        for (auto first = sections_.begin(); first != sections_.end();) {
            const auto last = std::find_if(first + 1, sections_.end(), [&](const Section& section) {
                return before(*first, section);
            });
            Text name;
            copyExactly(first->name.data(), first->name.data() + first->name.size(), name);
            Pairs& pairs = sections.try_emplace(sections.end(), std::move(name))->second;
            makePairs(first, last, *previous, pairs);
            previous = &pairs;
            first = last;
        }
    }

private:
    using Position = std::vector<Section>::iterator;

    // A header without lines creates no section.
    void finishSection()
    {
        if (lines_.empty())
            return;
        sections_.push_back({name_, lines_});
        lines_.clear();
    }

    // Makes the pairs of sections that have one name. Frees the lines, whose memory then serves
    // the next sections.
    void makePairs(Position first, Position last, const Pairs& previous, Pairs& pairs) const
    {
        std::size_t count = 0;
        for (auto section = first; section != last; ++section)
            count += section->lines.size();
        pairs.reserve(count);
        for (; first != last; ++first) {
            for (const Line& line : first->lines) {
                const char* const begin = data_ + line.begin;
                const char* const end = begin + line.length;
                AttribValuePair& pair = pairs.emplace_back(blank_);
                copyExactly(begin, end, pair.text);
                if (const char* const separator = findSeparator(begin, end)) {
                    takeName(begin, separator, previous, pairs.size() - 1, pair.name);
                    copyExactly(separator + 1, end, pair.value);
                }
            }
            std::vector<Line>().swap(first->lines);
        }
    }

    // Sections of a list often have the same names in the same lines: those share their block.
    static void takeName(const char* begin, const char* end, const Pairs& previous,
                         std::size_t line, Text& name)
    {
        const std::string_view chars(begin, static_cast<std::size_t>(end - begin));
        if (line < previous.size() && previous[line].name == chars)
            name = previous[line].name;
        else
            copyExactly(begin, end, name);
    }

    const char* const data_;
    std::string_view name_;   // of the section that is being read
    std::vector<Line> lines_; // of this section
    std::vector<Section> sections_;
    const AttribValuePair blank_{Text(), '='};
    const Pairs noPairs_;
};

} // namespace

bool readIniSections(char* data, std::size_t size, char separator, const Text& firstName,
                     Sections& sections)
{
    SectionReader reader(data, firstName);
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
    reader.finish(sections);
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
