#include "IniEdit.h"

#include "Files.h"
#include "Strings.h"
#include "Terminal.h"
#include "Tool.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>

namespace tool {
namespace {

bool sameSection(const LightweightString<char>& a, const LightweightString<char>& b,
                 bool caseSensitive)
{
    const VxIniFile_Private::StringLT_Fancy less{caseSensitive};
    return !less(a, b) && !less(b, a);
}

/// The lines that an edit is about, by index.
struct Found {
    std::vector<std::size_t> withKey;    ///< lines with the wanted key
    std::optional<std::size_t> lastPair; ///< last key=value line of the section
    std::optional<std::size_t> header;   ///< first header of the section
    std::optional<std::size_t> lastTop;  ///< last line before the first section
};

Found find(const IniText& text, const IniPlace& place)
{
    Found found;
    LightweightString<char> current = VxIniFile::kAnonymousSection();
    bool top = true;
    for (std::size_t i = 0; i < text.lines().size(); ++i) {
        const IniLine& line = text.lines()[i];
        if (line.kind == IniLine::Kind::header) {
            top = false;
            current = line.name();
            if (!found.header && sameSection(current, place.section, place.caseSensitive))
                found.header = i;
        }
        if (line.kind != IniLine::Kind::pair)
            continue;
        if (top)
            found.lastTop = i;
        if (!line.isSplit() || !sameSection(current, place.section, place.caseSensitive))
            continue;
        // New lines are not added after a comment that contains '='.
        if (!line.isComment())
            found.lastPair = i;
        if (line.key() == view(place.key))
            found.withKey.push_back(i);
    }
    return found;
}

/// Builds the edited file from lines of the old one and new lines.
class Writer {
public:
    explicit Writer(const IniText& source) : source_(source), end_(lineEnd(source)) {}

    void copy(std::size_t from, std::size_t to)
    {
        for (std::size_t i = from; i < to; ++i) {
            const IniLine& line = source_.lines()[i];
            result_ += line.raw;
            if (line.ended)
                result_ += '\n';
        }
    }
    void add(std::string_view line)
    {
        // The last line of the source may lack a line ending.
        if (!result_.empty() && result_.back() != '\n')
            result_ += end_;
        result_ += line;
        result_ += end_;
    }
    void raw(std::string_view bytes) { result_ += bytes; }
    std::string take() { return std::move(result_); }

private:
    const IniText& source_;
    std::string end_;
    std::string result_;
};

std::string edited(const IniText& before, const IniPlace& place, const std::string& value)
{
    const Found found = find(before, place);
    const std::size_t count = before.lines().size();
    const std::string line = std::string(view(place.key)) + "=" + value;
    const bool top = place.section == VxIniFile::kAnonymousSection();
    Writer writer(before);
    if (!found.withKey.empty()) {
        const std::size_t at = found.withKey.front();
        const IniLine& old = before.lines()[at];
        writer.copy(0, at);
        writer.raw(std::string(old.head()) + line);
        // Keep only the line ending of the tail; the rest belonged to the old value.
        if (!old.raw.empty() && old.raw.back() == '\r')
            writer.raw("\r");
        writer.raw(old.ended ? "\n" : "");
        writer.copy(at + 1, count);
        return writer.take();
    }
    std::optional<std::size_t> previous = found.lastPair;
    if (!previous)
        previous = top ? found.lastTop : found.header;
    if (previous || top) {
        const std::size_t at = previous ? *previous + 1 : 0;
        writer.copy(0, at);
        writer.add(line);
        writer.copy(at, count);
        return writer.take();
    }
    writer.copy(0, count);
    if (count != 0 && before.lines().back().kind != IniLine::Kind::blank)
        writer.add("");
    writer.add("[" + std::string(view(place.section)) + "]");
    writer.add(line);
    return writer.take();
}

/// Whether two documents have equal sections with equal lines in the same order.
bool sameSections(const VxIniFile::Sections& a, const VxIniFile::Sections& b)
{
    const auto sameText = [](const Vx::AttribValuePair& x, const Vx::AttribValuePair& y) {
        return x.text == y.text && x.name == y.name && x.value == y.value;
    };
    const auto same = [&](const auto& x, const auto& y) {
        return x.first == y.first && std::equal(x.second.begin(), x.second.end(), y.second.begin(),
                                                y.second.end(), sameText);
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

/// Removes and returns the first pair with the wanted key.
std::optional<Vx::AttribValuePair> takeFirst(VxIniFile::Sections& sections, const IniPlace& place)
{
    const auto section = sections.find(place.section);
    if (section == sections.end())
        return {};
    for (auto pair = section->second.begin(); pair != section->second.end(); ++pair) {
        if (!isSplit(*pair) || pair->name != place.key)
            continue;
        Vx::AttribValuePair taken = *pair;
        section->second.erase(pair);
        if (section->second.empty())
            sections.erase(section);
        return taken;
    }
    return {};
}

/// Why the line for \p value would not read back unchanged.
std::string reason(const IniPlace& place, const std::string& value)
{
    const std::string line = std::string(view(place.key)) + "=" + value;
    if ((line + std::string(view(place.section))).find('\n') != std::string::npos)
        return "a line cannot contain a line break";
    const IniText alone("first\n" + line + "\n");
    const IniLine& read = alone.lines()[1];
    if (read.kind == IniLine::Kind::header)
        return "the line would load as a section header";
    if (read.kind == IniLine::Kind::pair && read.isSplit())
        return fmt::format("the line would load as key {} with value {}", inQuotes(read.key()),
                           inQuotes(read.value()));
    return "the line would not load as a key and a value";
}

} // namespace

std::string withValue(const IniText& before, const IniPlace& place, const std::string& value)
{
    std::string after = edited(before, place, value);
    VxIniFile::Sections was = before.sections(place.caseSensitive);
    VxIniFile::Sections is = IniText(after).sections(place.caseSensitive);
    takeFirst(was, place);
    const auto taken = takeFirst(is, place);
    if (!taken || view(taken->value) != value || !sameSections(was, is))
        throw Failure("not-read-back",
                      {shown(view(place.key)) + "=" + shown(value), reason(place, value)});
    return after;
}

std::size_t removeKey(const IniText& before, const IniPlace& place, std::string& after)
{
    const Found found = find(before, place);
    Writer writer(before);
    std::size_t next = 0;
    for (const std::size_t line : found.withKey) {
        writer.copy(next, line);
        next = line + 1;
    }
    writer.copy(next, before.lines().size());
    after = writer.take();
    return found.withKey.size();
}

void replaceIni(const std::string& path, const IniText& before, const std::string& after,
                bool dryRun)
{
    if (dryRun || isStandardInput(path))
        return writeOutput("-", after);
    if (after == before.bytes())
        return;
    if (fileExists(path) ? readFile(path) != before.bytes() : !before.bytes().empty())
        throw Failure("changed", {inQuotes(path)});
    replaceFile(path, after);
}

} // namespace tool
