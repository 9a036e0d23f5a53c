#include "settings/SettingsText.h"

#include <algorithm>

namespace {

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// \p atStart and \p anywhere: what else would be mistaken there.
std::string escaped(std::string_view text, std::string_view atStart, std::string_view anywhere)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const unsigned char byte = static_cast<unsigned char>(c);
        const bool atEnd = i == 0 || i + 1 == text.size();
        if (c == '\n')
            result += "\\n";
        else if (c == '\r')
            result += "\\r";
        else if (c == '\t')
            result += "\\t";
        else if (c == '\\')
            result += "\\\\";
        else if (byte < 0x20 || byte == 0x7F || (c == ' ' && atEnd) ||
                 (i == 0 && atStart.find(c) != std::string_view::npos) ||
                 anywhere.find(c) != std::string_view::npos)
            result.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
        else
            result += c;
    }
    return result;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// \returns false when \p text holds a control byte or an escape that is none
bool unescape(std::string_view text, std::string& result)
{
    result.clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if ((byte < 0x20 && byte != '\t') || byte == 0x7F)
            return false;
        if (byte != '\\') {
            result += text[i];
            continue;
        }
        const char kind = ++i < text.size() ? text[i] : '\0';
        if (kind == 'n') {
            result += '\n';
        } else if (kind == 'r') {
            result += '\r';
        } else if (kind == 't') {
            result += '\t';
        } else if (kind == '\\') {
            result += '\\';
        } else if (kind == 'x' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
                   hexDigit(text[i + 2]) >= 0) {
            result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            return false;
        }
    }
    return true;
}

std::string lineOf(const std::string& key, std::string_view value)
{
    return escaped(key, "[#;", "=") + "=" + escaped(value, "", "");
}

} // namespace

unsigned int SettingsText::parse(std::string_view bytes)
{
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF"; // some editors leave one
    if (bytes.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        bytes.remove_prefix(kByteOrderMark.size());
    std::string section;
    for (unsigned int number = 1; !bytes.empty(); ++number) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (!parseLine(line, section))
            return number;
    }
    return 0;
}

bool SettingsText::parseLine(std::string_view line, std::string& section)
{
    const Lines::iterator at = lines_.insert(lines_.end(), std::string(line));
    const std::string_view text = trimmed(line);
    if (text.empty())
        return true;
    std::string ignored;
    if (text.front() == '#' || text.front() == ';') {
        // Not the end of its section: it may speak of what follows.
        // Any text is a comment, but a control byte means that this is no text.
        return std::none_of(text.begin(), text.end(), [](char c) {
            return static_cast<unsigned char>(c) < 0x20 && c != '\t';
        });
    }
    if (text.front() == '[') {
        if (text.back() != ']' || !unescape(trimmed(text.substr(1, text.size() - 2)), section))
            return false;
        sectionEnds_[section] = at;
        return true;
    }
    const std::size_t equals = text.find('=');
    Entry entry{at, {}};
    std::string key;
    if (equals == std::string_view::npos || !unescape(trimmed(text.substr(0, equals)), key) ||
        !unescape(trimmed(text.substr(equals + 1)), entry.value))
        return false;
    entries_.insert_or_assign({section, std::move(key)}, std::move(entry));
    sectionEnds_[section] = at;
    return true;
}

const std::string* SettingsText::find(const SettingsKey& key) const
{
    const auto found = entries_.find(key);
    return found != entries_.end() ? &found->second.value : nullptr;
}

void SettingsText::set(const SettingsKey& key, std::string_view value)
{
    std::string line = lineOf(key.second, value);
    const auto found = entries_.find(key);
    if (found != entries_.end()) {
        // A line that says the same in its own way stays as somebody wrote it.
        if (found->second.value == value)
            return;
        std::string copy(value);
        found->second.value.swap(copy);
        found->second.line->swap(line);
        return;
    }
    Lines added;
    const auto end = sectionEnds_.find(key.first);
    const bool newSection = end == sectionEnds_.end();
    if (newSection) {
        if (!lines_.empty() && !lines_.back().empty())
            added.emplace_back();
        added.push_back("[" + escaped(key.first, "", "") + "]");
    }
    added.push_back(std::move(line));
    const Lines::iterator at = std::prev(added.end());
    const auto entry = entries_.emplace(key, Entry{at, std::string(value)}).first;
    try {
        sectionEnds_[key.first];
    } catch (...) {
        entries_.erase(entry);
        throw;
    }
    // From here on nothing throws.
    lines_.splice(newSection ? lines_.end() : std::next(end->second), added);
    sectionEnds_[key.first] = at;
}

std::string SettingsText::bytes() const
{
    std::string all;
    for (const std::string& line : lines_)
        all.append(line).append(1, '\n');
    return all;
}

void SettingsText::swap(SettingsText& other) noexcept
{
    lines_.swap(other.lines_);
    entries_.swap(other.entries_);
    sectionEnds_.swap(other.sectionEnds_);
}
