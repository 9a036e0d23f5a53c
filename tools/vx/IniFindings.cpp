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
        if (text_.lines().empty())
            findings_.push_back(
                {1, 1, true, "empty-file", "the file is empty: load() returns false"});
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
        std::map<LightweightString<char>, std::size_t> keys; ///< key to its first line
    };

    void warn(std::size_t column, const char* code, std::string message)
    {
        findings_.push_back({number_, column, true, code, std::move(message)});
    }
    void note(std::size_t line, const char* code, std::string message)
    {
        findings_.push_back({line, 1, false, code, std::move(message)});
    }
    std::size_t keptColumn() const { return line_->head().size() + 1; }

    void checkHeader()
    {
        endSection();
        inSection_ = true;
        current_ = line_->name;
        headerLine_ = number_;
        if (hasOuterBlanks(view(current_)))
            warn(keptColumn() + 1, "blanks-around-section",
                 fmt::format("the section name includes the blanks: {}", inQuotes(view(current_))));
        const auto less = sections_.key_comp();
        if (!less(current_, VxIniFile::kAnonymousSection()) &&
            !less(VxIniFile::kAnonymousSection(), current_))
            warn(keptColumn(), "reserved-name",
                 "reserved section name: its lines join those before the first section");
        Section& section = sections_[current_];
        if (section.firstHeader == 0) {
            section.firstHeader = number_;
            section.spelling = current_;
            return;
        }
        warn(
            keptColumn(), "duplicate-section",
            fmt::format("duplicate section {} (merged with {}line {})", sectionTitle(current_),
                        section.spelling != current_ ? sectionTitle(section.spelling) + " in " : "",
                        section.firstHeader));
    }

    void endSection()
    {
        if (headerLine_ != 0)
            note(headerLine_, "empty-section", "empty section: it does not exist after loading");
        headerLine_ = 0;
    }

    void checkPair()
    {
        headerLine_ = 0; // the section is not empty
        if (!inSection_ && !topReported_) {
            topReported_ = true;
            note(number_, "top-lines",
                 "lines before the first section: the application must save with saveAll(),"
                 " since save() never returns");
        }
        if (line_->kept.front() == '[')
            warn(keptColumn(), "unclosed-header",
                 fmt::format("{} ']': loads as a line {}, not as a header",
                             line_->kept.find(']') == std::string_view::npos ? "missing"
                                                                             : "text after",
                             place()));
        else if (looksLikeComment(line_->pair))
            return;
        else if (!isSplit(line_->pair))
            warn(keptColumn(), "stray-line", "neither key=value nor a comment");
        else
            checkKey();
    }

    void checkKey()
    {
        const LightweightString<char>& key = line_->pair.name;
        const std::string_view value(line_->pair.value);
        if (!inSection_)
            warn(keptColumn(), "top-key",
                 fmt::format("key {} before the first section", inQuotes(view(key))));
        if (key.empty())
            warn(keptColumn(), "no-key", "value without a key");
        else if (hasOuterBlanks(view(key)))
            warn(keptColumn(), "blanks-around-key",
                 fmt::format("the blanks count: the key is {}, the value {}", inQuotes(view(key)),
                             inQuotes(value)));
        else if (!value.empty() && isBlank(value.front()))
            warn(keptColumn() + key.length() + 1, "blanks-before-value",
                 fmt::format("the value includes the blanks: {}", inQuotes(value)));
        const auto [first, isNew] = sections_[current_].keys.emplace(key, number_);
        if (!isNew)
            warn(
                keptColumn(), "duplicate-key",
                fmt::format("duplicate key {} (line {} wins)", inQuotes(view(key)), first->second));
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
