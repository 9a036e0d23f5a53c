#include "IniFindings.h"

#include "Strings.h"
#include "Terminal.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <tuple>

namespace tool {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool hasOuterBlanks(std::string_view name)
{
    return !name.empty() && (isBlank(name.front()) || isBlank(name.back()));
}

class Checker {
public:
    Checker(const IniText& text, bool caseSensitive)
        : text_(text), sections_(VxIniFile_Private::StringLT_Fancy{caseSensitive})
    {}

    std::vector<IniFinding> run()
    {
        number_ = 1;
        // Every line of a UTF-16 file would have findings, which all mean the same.
        if (isUtf16(text_.bytes())) {
            warn(1, "utf-16");
            return std::move(findings_);
        }
        if (text_.lines().empty())
            warn(1, "empty-file");
        for (number_ = 1; number_ <= text_.lines().size(); ++number_) {
            line_ = &text_.lines()[number_ - 1];
            addByteFindings(findings_, *line_, number_);
            switch (line_->kind) {
            case IniLine::Kind::blank: break;
            case IniLine::Kind::header: checkHeader(); break;
            case IniLine::Kind::pair: checkPair(); break;
            }
        }
        endSection();
        std::stable_sort(findings_.begin(), findings_.end(),
                         [](const IniFinding& a, const IniFinding& b) {
                             return std::tie(a.line, a.column) < std::tie(b.line, b.column);
                         });
        return std::move(findings_);
    }

private:
    struct Section {
        std::size_t firstHeader = 0;
        LightweightString<char> spelling;
        std::map<std::string_view, std::size_t> keys; ///< key to its first line
    };

    void find(std::size_t line, std::size_t column, MessageRef message, MessageParts parts)
    {
        findings_.push_back({line, column, &*message, filled(message->text, parts)});
    }
    void warn(std::size_t column, MessageRef message, MessageParts parts = {})
    {
        find(number_, column, message, parts);
    }
    std::size_t keptColumn() const { return line_->head().size() + 1; }

    void checkHeader()
    {
        endSection();
        inSection_ = true;
        current_ = line_->name();
        headerLine_ = number_;
        checkName(view(current_));
        Section& section = sections_[current_];
        if (section.firstHeader == 0) {
            section.firstHeader = number_;
            section.spelling = current_;
            return;
        }
        warn(keptColumn(), "duplicate-section",
             {sectionTitle(current_),
              section.spelling != current_ ? sectionTitle(section.spelling) + " in " : "",
              fmt::format("{}", section.firstHeader)});
    }

    void checkName(std::string_view name)
    {
        const std::size_t column = keptColumn() + 1;
        if (name.empty())
            warn(column, "nameless-section");
        else if (name.front() == '[' || name.back() == ']')
            warn(column, "nested-brackets", {inQuotes(name)});
        if (hasOuterBlanks(name))
            warn(column, "blanks-around-section", {inQuotes(name)});
        const auto less = sections_.key_comp();
        if (!less(current_, VxIniFile::kAnonymousSection()) &&
            !less(VxIniFile::kAnonymousSection(), current_))
            warn(keptColumn(), "reserved-name");
    }

    void endSection()
    {
        if (headerLine_ != 0)
            find(headerLine_, 1, "empty-section", {});
        headerLine_ = 0;
    }

    void checkPair()
    {
        headerLine_ = 0; // the section is not empty
        if (!inSection_ && !topReported_) {
            topReported_ = true;
            find(number_, 1, "top-lines", {});
        }
        if (isConflictMark(*line_))
            warn(keptColumn(), "conflict-mark");
        else if (line_->kept.front() == '[')
            warn(keptColumn(), "unclosed-header",
                 {line_->kept.find(']') == std::string_view::npos ? "missing" : "text after",
                  place()});
        else if (line_->isComment())
            return;
        else if (!line_->isSplit())
            warn(keptColumn(), "stray-line");
        else
            checkKey();
    }

    void checkKey()
    {
        const std::string_view key = line_->key(), value = line_->value();
        const std::size_t valueColumn = keptColumn() + key.size() + 1;
        if (!inSection_)
            warn(keptColumn(), "top-key", {inQuotes(key)});
        if (key.empty())
            warn(keptColumn(), "no-key");
        else if (hasOuterBlanks(key))
            warn(keptColumn(), "blanks-around-key", {inQuotes(key), inQuotes(value)});
        else if (!value.empty() && isBlank(value.front()))
            warn(valueColumn, "blanks-before-value", {inQuotes(value)});
        const std::size_t blanks = std::min(value.find_first_not_of(" \t"), value.size());
        addValueFindings(findings_, value.substr(blanks), number_, valueColumn + blanks);
        const auto [first, isNew] = sections_[current_].keys.emplace(key, number_);
        if (!isNew)
            warn(keptColumn(), "duplicate-key", {inQuotes(key), fmt::format("{}", first->second)});
    }

    std::string place() const
    {
        const bool top = current_ == VxIniFile::kAnonymousSection();
        return (top ? "" : "of ") + sectionTitle(current_);
    }

    const IniText& text_;
    std::map<LightweightString<char>, Section, VxIniFile_Private::StringLT_Fancy> sections_;
    std::vector<IniFinding> findings_;
    const IniLine* line_ = nullptr;
    std::size_t number_ = 0;
    LightweightString<char> current_ = VxIniFile::kAnonymousSection();
    bool inSection_ = false;
    bool topReported_ = false;
    std::size_t headerLine_ = 0; // of the current section, while it is empty
};

} // namespace

std::vector<IniFinding> findingsIn(const IniText& text, bool caseSensitive)
{
    return Checker(text, caseSensitive).run();
}

} // namespace tool
