// The findings that look at the bytes of a single line.
#include "IniFindings.h"

#include "Strings.h"
#include "Terminal.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

bool isControl(char c)
{
    const unsigned char byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

class ByteChecker {
public:
    ByteChecker(std::vector<IniFinding>& findings, const IniLine& line, std::size_t number)
        : findings_(findings),
          line_(line),
          number_(number),
          hasMark_(number == 1 && line.raw.substr(0, 3) == kUtf8Mark)
    {}

    void run()
    {
        if (number_ == 1)
            checkMark();
        checkControls();
        if (!contains(line_.kept, '\0') && !isAllAscii(line_.kept))
            checkLetters();
        checkLosses();
    }

private:
    static bool contains(std::string_view part, char c) { return part.find(c) != part.npos; }
    static bool isAllAscii(std::string_view part)
    {
        return std::all_of(part.begin(), part.end(), isAscii);
    }

    void warn(std::size_t column, MessageRef message, MessageParts parts = {})
    {
        findings_.push_back({number_, column, &*message, filled(message->text, parts)});
    }
    std::size_t keptColumn() const { return line_.head().size() + 1; }

    void checkMark()
    {
        if (hasMark_)
            warn(1, "byte-order-mark",
                 {line_.raw.substr(3, 1) == "[" ? ", which does not load as a header" : ""});
    }

    void checkControls()
    {
        const std::string_view kept = line_.kept;
        // load() drops NUL bytes at the ends; after a power failure a file may end with many.
        if (contains(line_.raw, '\0'))
            warn(line_.raw.find('\0') + 1, "zero-byte");
        const auto control =
            std::find_if(kept.begin(), kept.end(), [](char c) { return c != 0 && isControl(c); });
        if (control == kept.end())
            return;
        const std::size_t column = keptColumn() + static_cast<std::size_t>(control - kept.begin());
        if (*control == '\r')
            warn(column, "carriage-return");
        else
            warn(column, "control-character");
    }

    void checkLetters()
    {
        std::string_view kept = line_.kept;
        std::size_t column = keptColumn();
        if (hasMark_) { // already reported
            kept.remove_prefix(3);
            column += 3;
        }
        const LightweightString<wchar_t> wide = fromUtf8(kept);
        const LightweightString<char> again = toUtf8(wide);
        const auto broken = std::mismatch(kept.begin(), kept.end(), again.begin(), again.end());
        if (broken.first != kept.end())
            warn(column + static_cast<std::size_t>(broken.first - kept.begin()), "not-utf-8");
        const auto hidden = std::find_if(wide.begin(), wide.end(), isInvisible);
        if (hidden == wide.end())
            return;
        const auto before = static_cast<unsigned int>(hidden - wide.begin());
        warn(column + toUtf8(LightweightString<wchar_t>(wide.c_str(), before)).length(),
             "invisible-character",
             {inQuotes(view(toUtf8(LightweightString<wchar_t>(hidden, 1))))});
    }

    void checkLosses()
    {
        const std::string result = line_.kept.empty() ? "nothing remains of the line"
                                                      : "the line loads as " + inQuotes(line_.kept);
        if (!isAllAscii(line_.head()))
            warn(1, "lost-start", {inQuotes(line_.head()), result});
        if (!isAllAscii(line_.tail())) {
            std::string_view lost = line_.tail();
            lost.remove_suffix(lost.size() - 1 - lost.find_last_not_of(" \t\r"));
            warn(keptColumn() + line_.kept.size(), "lost-end", {inQuotes(lost), result});
        }
    }

    std::vector<IniFinding>& findings_;
    const IniLine& line_;
    const std::size_t number_;
    const bool hasMark_;
};

} // namespace

void addByteFindings(std::vector<IniFinding>& findings, const IniLine& line, std::size_t number)
{
    ByteChecker(findings, line, number).run();
}

} // namespace tool
