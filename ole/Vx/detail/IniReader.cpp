#include <Vx/detail/IniReader.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <type_traits>
#include <utility>

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

struct Line {
    const char* begin;
    const char* end;
};

// Collects the lines of a section, so that its pairs are allocated at once.
class SectionReader {
public:
    explicit SectionReader(const Text& firstName) : name_(firstName) {}

    /// \returns false if the line is too long
    bool take(const char* begin, const char* end)
    {
        while (begin != end && *begin == ' ')
            ++begin;
        while (begin != end && end[-1] == ' ')
            --end;
        if (begin == end)
            return true;
        if (static_cast<std::size_t>(end - begin) > kLongestLine)
            return false;
        if (*begin == '[' && end[-1] == ']') {
            finishSection();
            name_.clear();
            copyExactly(begin + 1, end - 1, name_);
        } else {
            lines_.push_back({begin, end});
        }
        return true;
    }

    /// Moves everything that was read to \p sections, which is empty.
    void finish(Sections& sections)
    {
        finishSection();
        const auto before = [less = sections.key_comp()](const Section& a, const Section& b) {
            return less(a.name, b.name);
        };
        // Entering sections in order is several times faster than searching each one's place.
        // Saved files are in order already.
        if (!std::is_sorted(sections_.begin(), sections_.end(), before))
            std::stable_sort(sections_.begin(), sections_.end(), before);
        for (auto& [name, pairs] : sections_) {
            Pairs& to = sections.try_emplace(sections.end(), name)->second;
            if (to.empty()) {
                to = std::move(pairs);
            } else {
                reserveMore(to, pairs.size());
                std::move(pairs.begin(), pairs.end(), std::back_inserter(to));
            }
        }
    }

private:
    struct Section {
        Text name;
        Pairs pairs;
    };

    // A header without lines creates no section.
    void finishSection()
    {
        if (lines_.empty())
            return;
        Pairs pairs;
        pairs.reserve(lines_.size());
        for (const auto& [begin, end] : lines_) {
            AttribValuePair& pair = pairs.emplace_back(blank_);
            copyExactly(begin, end, pair.text);
            if (const char* const separator = findSeparator(begin, end)) {
                takeName(begin, separator, pairs.size() - 1, pair.name);
                copyExactly(separator + 1, end, pair.value);
            }
        }
        lines_.clear();
        sections_.push_back({name_, std::move(pairs)});
    }

    // Sections of a list often have the same names in the same lines: those share their block.
    void takeName(const char* begin, const char* end, std::size_t line, Text& name)
    {
        const std::string_view chars(begin, static_cast<std::size_t>(end - begin));
        if (!sections_.empty() && line < sections_.back().pairs.size() &&
            sections_.back().pairs[line].name == chars)
            name = sections_.back().pairs[line].name;
        else
            copyExactly(begin, end, name);
    }

    std::vector<Section> sections_; // in the order of the file; names may repeat
    Text name_;
    std::vector<Line> lines_;
    const AttribValuePair blank_{Text(), '='};
};

} // namespace

bool readIniSections(const char* data, std::size_t size, char separator, const Text& firstName,
                     Sections& sections)
{
    SectionReader reader(firstName);
    const char* const dataEnd = data + size;
    for (const char* line = data; line != dataEnd;) {
        const void* const found =
            std::memchr(line, separator, static_cast<std::size_t>(dataEnd - line));
        const char* const stop = found != nullptr ? static_cast<const char*>(found) : dataEnd;
        // Trims from the separator inclusive; keeps it if printable.
        const char* end = stop;
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
