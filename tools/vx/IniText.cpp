#include "IniText.h"

#include "Files.h"
#include "Strings.h"
#include "Terminal.h"
#include "Tool.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>

namespace tool {
namespace {

bool isPrintable(char c) { return std::isprint(static_cast<signed char>(c)) != 0; }

/// The part of \p raw that load() keeps. On the first line load() skips no leading bytes.
std::string_view keptPart(std::string_view raw, bool first)
{
    std::size_t begin = 0;
    std::size_t end = raw.size();
    while (end > 0 && !isPrintable(raw[end - 1]))
        --end;
    while (!first && begin < end && !isPrintable(raw[begin]))
        ++begin;
    while (begin < end && raw[begin] == ' ')
        ++begin;
    while (end > begin && raw[end - 1] == ' ')
        --end;
    return raw.substr(begin, end - begin);
}

IniLine makeLine(std::string_view raw, bool ended, bool first)
{
    const std::string_view kept = keptPart(raw, first);
    IniLine line{raw, kept, ended, IniLine::Kind::pair};
    if (isEssentiallyEmpty(vxString(kept)))
        line.kind = IniLine::Kind::blank;
    else if (kept.front() == '[' && kept.back() == ']')
        line.kind = IniLine::Kind::header;
    return line;
}

} // namespace

bool isSplit(const Vx::AttribValuePair& pair)
{
    // The library finds '=' with strchr, so not after a NUL.
    return std::strchr(pair.text.c_str(), '=') != nullptr;
}

bool looksLikeComment(const Vx::AttribValuePair& pair)
{
    return !pair.text.empty() && (pair.text[0] == ';' || pair.text[0] == '#');
}

bool isConflictMark(const IniLine& line)
{
    for (const std::string_view mark : {"<<<<<<< ", "||||||| ", ">>>>>>> "})
        if (line.kept.substr(0, mark.size()) == mark)
            return true;
    return line.kept == "=======";
}

std::string_view IniLine::head() const
{
    return raw.substr(0, static_cast<std::size_t>(kept.data() - raw.data()));
}

std::string_view IniLine::tail() const { return raw.substr(head().size() + kept.size()); }

LightweightString<char> IniLine::name() const
{
    return kept.size() > 1 ? vxString(kept.substr(1, kept.size() - 2)) : LightweightString<char>();
}

bool IniLine::isSplit() const
{
    // The library finds '=' with strchr, so not after a NUL.
    const std::size_t at = kept.find('=');
    return at != kept.npos && kept.substr(0, at).find('\0') == kept.npos;
}

std::string_view IniLine::key() const
{
    return isSplit() ? kept.substr(0, kept.find('=')) : std::string_view();
}

std::string_view IniLine::value() const
{
    return isSplit() ? kept.substr(kept.find('=') + 1) : std::string_view();
}

bool IniLine::isComment() const
{
    return !kept.empty() && (kept.front() == ';' || kept.front() == '#');
}

std::string lineEnd(const IniText& text)
{
    if (text.lines().empty() || !text.lines().front().ended)
        return "\r\n";
    const std::string_view raw = text.lines().front().raw;
    return !raw.empty() && raw.back() == '\r' ? "\r\n" : "\n";
}

IniText::IniText(std::string bytes) : bytes_(std::make_shared<const std::string>(std::move(bytes)))
{
    const std::string_view all(*bytes_);
    lines_.reserve(1 + static_cast<std::size_t>(std::count(all.begin(), all.end(), '\n')));
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = std::min(all.find('\n', begin), all.size());
        lines_.push_back(makeLine(all.substr(begin, end - begin), end < all.size(), begin == 0));
        begin = end + 1;
    }
}

VxIniFile::Sections IniText::sections(bool caseSensitive) const
{
    VxIniFile::Sections result(VxIniFile_Private::StringLT_Fancy{caseSensitive});
    LightweightString<char> current = VxIniFile::kAnonymousSection();
    for (const IniLine& line : lines_) {
        if (line.kind == IniLine::Kind::header)
            current = line.name();
        else if (line.kind == IniLine::Kind::pair)
            result[current].push_back(Vx::AttribValuePair(vxString(line.kept), '='));
    }
    return result;
}

bool IniText::loadsAs(const VxIniFile::Sections& sections) const
{
    // The pair that the next line of each section must be. No second document is made: it would
    // need as much memory as the first.
    std::map<const VxIniFile::Pairs*, VxIniFile::Pairs::const_iterator> next;
    LightweightString<char> name = VxIniFile::kAnonymousSection();
    auto section = sections.find(name);
    for (const IniLine& line : lines_) {
        if (line.kind == IniLine::Kind::header)
            section = sections.find(name = line.name());
        if (line.kind != IniLine::Kind::pair)
            continue;
        if (section == sections.end())
            return false;
        const auto [expected, isFirst] =
            next.try_emplace(&section->second, section->second.begin());
        // A section is spelled as it was first.
        if ((isFirst && section->first != name) || expected->second == section->second.end())
            return false;
        const Vx::AttribValuePair& pair = *expected->second++;
        if (view(pair.text) != line.kept || view(pair.name) != line.key() ||
            view(pair.value) != line.value())
            return false;
    }
    return next.size() == sections.size() &&
           std::all_of(next.begin(), next.end(),
                       [](const auto& place) { return place.second == place.first->end(); });
}

bool isUtf16(std::string_view bytes)
{
    const std::string_view start = bytes.substr(0, std::min<std::size_t>(bytes.size(), 64));
    if (start.substr(0, 2) == "\xFF\xFE" || start.substr(0, 2) == "\xFE\xFF")
        return true;
    bool little = start.size() >= 4, big = little;
    for (std::size_t i = 0; i < start.size(); ++i) {
        const bool odd = i % 2 == 1, zero = start[i] == 0;
        little = little && zero == odd;
        big = big && zero != odd;
    }
    return little || big;
}

VxIniFile loadIni(const std::string& path, bool caseSensitive)
{
    const LoadableFile file(path);
    if (isUtf16(file.bytes()))
        throw Failure("utf-16-file", {inQuotes(path)});
    VxIniFile ini(caseSensitive);
    if (ini.load(file.path(), '\n'))
        return ini;
    if (file.bytes().empty())
        throw Failure("no-lines", {inQuotes(path)});
    throw Failure("read-failed", {inQuotes(path), "the library cannot load it"});
}

IniText readAnyIni(const std::string& path, bool caseSensitive)
{
    LoadableFile file(path);
    IniText lines(file.takeBytes());
    VxIniFile ini(caseSensitive);
    ini.load(file.path(), '\n'); // fails for an empty file, which has no lines either
    if (lines.loadsAs(ini.sections))
        return lines;
    if (lines.bytes() != readFile(path))
        throw Failure("changed", {inQuotes(path)});
    throw std::logic_error(path + " loads differently than vx reads its lines");
}

IniText readIni(const std::string& path, bool caseSensitive)
{
    IniText text = readAnyIni(path, caseSensitive);
    if (isUtf16(text.bytes()))
        throw Failure("utf-16-file", {inQuotes(path)});
    return text;
}

IniText readTextIni(const std::string& path, bool caseSensitive)
{
    IniText text = readIni(path, caseSensitive);
    if (text.bytes().find('\0') != std::string::npos)
        throw Failure("binary-file", {inQuotes(path)});
    return text;
}

LightweightString<char> sectionArgument(const std::string& word)
{
    return word == "-" ? VxIniFile::kAnonymousSection() : vxString(word);
}

std::string sectionTitle(const LightweightString<char>& name)
{
    if (name == VxIniFile::kAnonymousSection())
        return "before the first section";
    return "[" + shown(view(name)) + "]";
}

std::string sectionPlace(const LightweightString<char>& name)
{
    return (name == VxIniFile::kAnonymousSection() ? "" : "in ") + sectionTitle(name);
}

} // namespace tool
