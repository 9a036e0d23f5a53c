#include "IniFindings.h"

#include "Terminal.h"
#include "Text.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <tuple>

namespace tool {
namespace {

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

bool isControl(char c)
{
    const unsigned char byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool hasBlankEnd(std::string_view name)
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
            warn(1, 1, "empty-file", "the file is empty: load() answers false");
        for (number_ = 1; number_ <= text_.lines().size(); ++number_) {
            line_ = &text_.lines()[number_ - 1];
            bytes();
            ends();
            switch (line_->kind) {
            case IniLine::Kind::blank: break;
            case IniLine::Kind::header: header(); break;
            case IniLine::Kind::pair: pair(); break;
            }
        }
        lastHeader();
        std::stable_sort(findings_.begin(), findings_.end(),
                         [](const IniFinding& a, const IniFinding& b) {
                             return std::tie(a.line, a.column) < std::tie(b.line, b.column);
                         });
        return std::move(findings_);
    }

private:
    /// What has been seen of a section.
    struct Section {
        std::size_t firstHeader = 0;
        LightweightString<char> spelling;
        std::map<LightweightString<char>, std::size_t> names; ///< name to its first line
    };

    void add(std::size_t line, std::size_t column, bool warning, const char* code,
             std::string message)
    {
        findings_.push_back({line, column, warning, code, std::move(message)});
    }
    void warn(std::size_t line, std::size_t column, const char* code, std::string message)
    {
        add(line, column, true, code, std::move(message));
    }
    void warn(std::size_t column, const char* code, std::string message)
    {
        warn(number_, column, code, std::move(message));
    }
    std::size_t keptColumn() const { return line_->head().size() + 1; }

    std::string whatIsKept() const
    {
        return line_->kept.empty() ? "nothing is left" : "it loads as " + inQuotes(line_->kept);
    }

    void bytes()
    {
        const std::string_view raw = line_->raw;
        if (number_ == 1 && raw.substr(0, 3) == "\xEF\xBB\xBF") {
            const bool header = raw.size() > 3 && raw[3] == '[';
            warn(1, "byte-order-mark",
                 header ? "a byte-order mark stands before the header: the line is no header, and"
                          " what follows goes above the first header"
                        : "a byte-order mark stands before the text and becomes part of it");
        }
        if (number_ == 1 && (raw.substr(0, 2) == "\xFF\xFE" || raw.substr(0, 2) == "\xFE\xFF"))
            warn(1, "utf-16", "the file looks like UTF-16: Vx reads bytes, UTF-8 in practice");
        const std::size_t zero = line_->kept.find('\0');
        if (zero != std::string_view::npos)
            warn(keptColumn() + zero, "zero-byte",
                 "a zero byte: names, values and sections are compared only up to it");
        const std::string_view kept = line_->kept;
        const auto control =
            std::find_if(kept.begin(), kept.end(), [](char c) { return c != 0 && isControl(c); });
        if (control != kept.end()) {
            const std::size_t column =
                keptColumn() + static_cast<std::size_t>(control - kept.begin());
            if (*control == '\r')
                warn(column, "carriage-return",
                     "a carriage return inside the line: only line feeds end lines");
            else
                warn(column, "control-character", "a control character inside the line");
        }
        if (zero == std::string_view::npos && !std::all_of(kept.begin(), kept.end(), isAscii))
            letters();
    }

    /// What stands beyond ASCII; the mark at the beginning of the file has been told.
    void letters()
    {
        std::string_view kept = line_->kept;
        std::size_t column = keptColumn();
        if (number_ == 1 && kept.substr(0, 3) == "\xEF\xBB\xBF") {
            kept.remove_prefix(3);
            column += 3;
        }
        const LightweightString<wchar_t> wide = fromUtf8(kept);
        const LightweightString<char> again = toUtf8(wide);
        const auto broken = std::mismatch(kept.begin(), kept.end(), again.begin(), again.end());
        if (broken.first != kept.end())
            warn(column + static_cast<std::size_t>(broken.first - kept.begin()), "not-utf-8",
                 "no UTF-8: as wide text this becomes U+FFFD");
        const auto hidden = std::find_if(wide.begin(), wide.end(), isInvisible);
        if (hidden == wide.end())
            return;
        const auto before = static_cast<unsigned int>(hidden - wide.begin());
        warn(column + toUtf8(LightweightString<wchar_t>(wide.c_str(), before)).length(),
             "invisible-character",
             fmt::format("{} is not seen in most editors, or turns the text around",
                         inQuotes(view(toUtf8(LightweightString<wchar_t>(hidden, 1))))));
    }

    void ends()
    {
        const auto lost = [](std::string_view part) {
            return std::find_if_not(part.begin(), part.end(), isAscii) != part.end();
        };
        // Read from the first letter that is gone, not from the middle of it.
        if (lost(line_->head()))
            warn(1, "lost-beginning",
                 fmt::format("{} at the beginning of the line is lost: {}", inQuotes(line_->head()),
                             whatIsKept()));
        if (lost(line_->tail()))
            warn(keptColumn() + line_->kept.size(), "lost-ending",
                 fmt::format("{} at the end of the line is lost: {}", inQuotes(trimmedTail()),
                             whatIsKept()));
    }

    std::string_view trimmedTail() const
    {
        std::string_view tail = line_->tail();
        while (!tail.empty() && (isBlank(tail.back()) || tail.back() == '\r'))
            tail.remove_suffix(1);
        return tail;
    }

    void header()
    {
        lastHeader();
        topIsOver_ = true;
        current_ = line_->name;
        headerLine_ = number_;
        headerHasLines_ = false;
        if (hasBlankEnd(view(current_)))
            warn(keptColumn() + 1, "blanks-around-section",
                 fmt::format("the blanks belong to the section's name, {}",
                             inQuotes(view(current_))));
        const auto before = sections_.key_comp();
        if (!before(current_, VxIniFile::kAnonymousSection()) &&
            !before(VxIniFile::kAnonymousSection(), current_))
            warn(keptColumn(), "reserved-name",
                 "this is the reserved name of the lines above the first header");
        Section& section = sections_[current_];
        if (section.firstHeader == 0) {
            section.firstHeader = number_;
            section.spelling = current_;
            return;
        }
        const bool respelt = section.spelling != current_;
        warn(keptColumn(), "duplicate-section",
             fmt::format("this section began in line {}{}: the two are one", section.firstHeader,
                         respelt ? " as " + sectionTitle(section.spelling) : std::string()));
    }

    /// A header is judged when its section is over.
    void lastHeader()
    {
        if (headerLine_ != 0 && !headerHasLines_)
            add(headerLine_, 1, false, "empty-section",
                "a header without lines: the section does not exist when loaded");
        headerLine_ = 0;
    }

    void pair()
    {
        headerHasLines_ = true;
        const std::string_view kept = line_->kept;
        if (!topIsOver_ && !topReported_) {
            topReported_ = true;
            add(number_, 1, false, "top-lines",
                "lines above the first header: an application must save this with saveAll();"
                " its save() never ends");
        }
        if (kept.front() == '[') {
            const std::size_t close = kept.find(']');
            warn(keptColumn(), "unclosed-header",
                 close == std::string_view::npos
                     ? fmt::format("a header without ']': it loads as a line of {}", place())
                     : fmt::format("text behind the ']': the line is no header but one of {}",
                                   place()));
            return;
        }
        if (looksLikeComment(line_->pair))
            return;
        if (!isSplit(line_->pair)) {
            warn(keptColumn(), "stray-line", "neither a name and a value nor a comment");
            return;
        }
        if (!topIsOver_)
            warn(keptColumn(), "top-name",
                 fmt::format("{} stands above the first header, in no section of the file",
                             inQuotes(view(line_->pair.name))));
        names();
    }

    void names()
    {
        const LightweightString<char>& name = line_->pair.name;
        const std::string_view value(line_->pair.value);
        if (name.empty())
            warn(keptColumn(), "no-name", "a value without a name");
        else if (hasBlankEnd(view(name)))
            warn(keptColumn(), "blanks-around-name",
                 fmt::format("the blanks belong to them: the name is {}, the value {}",
                             inQuotes(view(name)), inQuotes(value)));
        else if (!value.empty() && isBlank(value.front()))
            warn(keptColumn() + name.length() + 1, "blanks-before-value",
                 fmt::format("the blanks belong to the value, {}", inQuotes(value)));
        const auto [first, isNew] = sections_[current_].names.emplace(name, number_);
        if (!isNew)
            warn(keptColumn(), "duplicate-name",
                 fmt::format("{} stands in line {} already: that one is found, this one never is",
                             inQuotes(view(name)), first->second));
    }

    std::string place() const
    {
        return current_ == VxIniFile::kAnonymousSection() ? "those above the first header"
                                                          : sectionTitle(current_);
    }

    const IniText& text_;
    std::map<LightweightString<char>, Section, VxIniFile_Private::StringLT_Fancy> sections_;
    std::vector<IniFinding> findings_;
    const IniLine* line_ = nullptr;
    std::size_t number_ = 0;
    LightweightString<char> current_ = VxIniFile::kAnonymousSection();
    bool topIsOver_ = false;
    bool topReported_ = false;
    std::size_t headerLine_ = 0;
    bool headerHasLines_ = true;
};

} // namespace

std::vector<IniFinding> findingsIn(const IniText& text, bool caseSensitive)
{
    return Checker(text, caseSensitive).run();
}

} // namespace tool
