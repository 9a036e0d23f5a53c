#include "IniText.h"

#include "Files.h"
#include "Strings.h"
#include "Terminal.h"
#include "Tool.h"

#include <algorithm>
#include <cctype>
#include <cstring>

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
    IniLine line{
        raw, kept, ended, IniLine::Kind::pair, {}, Vx::AttribValuePair(vxString(kept), '=')};
    if (isEssentiallyEmpty(vxString(kept))) {
        line.kind = IniLine::Kind::blank;
    } else if (kept.front() == '[' && kept.back() == ']') {
        line.kind = IniLine::Kind::header;
        if (kept.size() > 1)
            line.name = vxString(kept.substr(1, kept.size() - 2));
    }
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
            current = line.name;
        else if (line.kind == IniLine::Kind::pair)
            result[current].push_back(line.pair);
    }
    return result;
}

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

VxIniFile loadIni(const std::string& path, bool caseSensitive)
{
    const LoadableFile file(path);
    VxIniFile ini(caseSensitive);
    if (ini.load(file.path(), '\n'))
        return ini;
    if (file.bytes().empty())
        throw Failure("no-lines", {inQuotes(path)});
    throw Failure("read-failed", {inQuotes(path), "the library cannot load it"});
}

IniText readIni(const std::string& path, bool caseSensitive)
{
    const LoadableFile file(path);
    IniText lines(file.bytes());
    VxIniFile ini(caseSensitive);
    ini.load(file.path(), '\n'); // fails for an empty file, which has no lines either
    if (sameSections(ini.sections, lines.sections(caseSensitive)))
        return lines;
    if (file.bytes() != readFile(path))
        throw Failure("changed", {inQuotes(path)});
    throw std::logic_error(path + " loads differently than vx reads its lines");
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
