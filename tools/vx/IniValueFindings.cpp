// The findings about values that people write for other programs' rules.
#include "IniFindings.h"

#include "Terminal.h"

#include <optional>

namespace tool {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isQuoted(std::string_view value)
{
    return value.size() > 1 && (value.front() == '"' || value.front() == '\'') &&
           value.back() == value.front();
}

/// Where a comment seems to begin: ';' after a blank, or '#' between blanks, as "No. #2" is none.
std::optional<std::size_t> commentIn(std::string_view value)
{
    for (std::size_t i = 1; i < value.size(); ++i)
        if (isBlank(value[i - 1]) &&
            (value[i] == ';' || (value[i] == '#' && i + 1 < value.size() && isBlank(value[i + 1]))))
            return i;
    return {};
}

} // namespace

void addValueFindings(std::vector<IniFinding>& findings, std::string_view value, std::size_t number,
                      std::size_t column)
{
    const auto warn = [&](std::size_t offset, MessageRef message, MessageParts parts) {
        findings.push_back({number, column + offset, &*message, filled(message->text, parts)});
    };
    if (isQuoted(value))
        warn(0, "quoted-value", {inQuotes(value)});
    else if (const auto comment = commentIn(value))
        warn(*comment, "trailing-comment", {inQuotes(value.substr(*comment)), inQuotes(value)});
    else if (!value.empty() && value.back() == '\\')
        warn(value.size() - 1, "trailing-backslash", {});
}

} // namespace tool
