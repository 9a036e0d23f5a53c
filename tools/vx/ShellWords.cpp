#include "ShellWords.h"

#include <cctype>

namespace tool {

std::string ShellWords::quoted(const std::string& word) const
{
    std::string result;
    for (const char c : word.substr(kept)) {
        const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                           static_cast<unsigned char>(c) >= 0x80 ||
                           std::string("_./:=@%+,-").find(c) != std::string::npos;
        if (quote == '\'')
            result += c == '\'' ? "'\\''" : std::string(1, c);
        else if (quote == '"' ? std::string("\"\\$`").find(c) != std::string::npos : !plain)
            result += {'\\', c};
        else
            result += c;
    }
    return result;
}

ShellWords splitAsBash(const std::string& line)
{
    ShellWords result{{""}};
    bool inWord = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        std::string& word = result.words.back();
        if (result.quote == 0 && (c == ' ' || c == '\t' || c == '\n')) {
            if (inWord)
                result.words.emplace_back();
            inWord = false;
            result.kept = 0;
            continue;
        }
        inWord = true;
        const bool escapes =
            c == '\\' && result.quote != '\'' && i + 1 < line.size() &&
            (result.quote == 0 || std::string("\"\\$`").find(line[i + 1]) != std::string::npos);
        if (escapes) {
            word += line[++i];
        } else if (c == result.quote) {
            result.quote = 0;
        } else if (result.quote == 0 && (c == '\'' || c == '"')) {
            result.quote = c;
        } else {
            word += c;
            if (result.quote == 0 && (c == '=' || c == ':'))
                result.kept = word.size();
        }
    }
    result.words.erase(result.words.begin());
    if (result.words.empty()) // only the command's name
        result.words.emplace_back();
    return result;
}

} // namespace tool
