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

bool isControl(char c)
{
    const unsigned char byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// Reads the escape after the backslash at \p at, and moves \p at to its last character.
bool unescapeOne(std::string_view text, std::size_t& at, std::string& result)
{
    constexpr std::string_view kKinds = "nrt\\", kMeanings = "\n\r\t\\";
    const char kind = ++at < text.size() ? text[at] : '\0';
    const std::size_t found = kKinds.find(kind);
    if (found != std::string_view::npos) {
        result += kMeanings[found];
        return true;
    }
    if (kind != 'x' || text.size() - at < 3)
        return false;
    const int high = hexDigit(text[at + 1]), low = hexDigit(text[at + 2]);
    if (high < 0 || low < 0)
        return false;
    result += static_cast<char>(high * 16 + low);
    at += 2;
    return true;
}

std::string lineOf(const std::string& key, std::string_view value)
{
    return escapeSetting(key, "[#;", "=") + "=" + escapeSetting(value);
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF"; // some editors leave one

} // namespace

std::string escapeSetting(std::string_view text, std::string_view atStart,
                          std::string_view anywhere)
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
        else if (isControl(c) || (c == ' ' && atEnd) ||
                 (i == 0 && atStart.find(c) != std::string_view::npos) ||
                 anywhere.find(c) != std::string_view::npos)
            result.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
        else
            result += c;
    }
    return result;
}

bool unescapeSetting(std::string_view text, std::string& result)
{
    result.clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            if (!unescapeOne(text, i, result))
                return false;
        } else if (isControl(text[i]) && text[i] != '\t') {
            return false;
        } else {
            result += text[i];
        }
    }
    return true;
}

SettingsText::Unreadable SettingsText::parse(std::string_view bytes)
{
    if (bytes.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        bytes.remove_prefix(kByteOrderMark.size());
    Section section;
    Unreadable unreadable;
    for (unsigned int number = 1; !bytes.empty(); ++number) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (!parseLine(line, section) && ++unreadable.count == 1)
            unreadable.first = number;
    }
    return unreadable;
}

bool SettingsText::parseLine(std::string_view line, Section& section)
{
    const std::string_view text = trimmed(line);
    if (text.empty() || text.front() == '#' || text.front() == ';') {
        // A comment may hold anything, but a control byte means that the file is not text. It
        // does not move the section's end: it may describe the lines that follow.
        if (std::any_of(text.begin(), text.end(), [](char c) { return isControl(c) && c != '\t'; }))
            return false;
        append(line);
        return true;
    }
    if (text.front() == '[') {
        section.known = text.back() == ']' &&
                        unescapeSetting(trimmed(text.substr(1, text.size() - 2)), section.name);
        if (section.known)
            sectionEnds_[section.name] = append(line);
        return section.known;
    }
    const std::size_t equals = text.find('=');
    std::string key, value;
    if (!section.known || equals == std::string_view::npos ||
        !unescapeSetting(trimmed(text.substr(0, equals)), key) ||
        !unescapeSetting(trimmed(text.substr(equals + 1)), value))
        return false;
    const Lines::iterator at = append(line);
    entries_.insert_or_assign({section.name, std::move(key)}, Entry{at, std::move(value)});
    sectionEnds_[section.name] = at;
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
        // The line may spell the same value in another way: leave it as it was written.
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
        added.push_back("[" + escapeSetting(key.first) + "]");
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
    // parse() takes a mark away: a first line that begins with one needs another.
    if (!lines_.empty() && lines_.front().starts_with(kByteOrderMark))
        all = kByteOrderMark;
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
