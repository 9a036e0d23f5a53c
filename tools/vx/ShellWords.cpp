#include "ShellWords.h"

#include <cctype>
#include <string_view>
#include <utility>

namespace tool {
namespace {

bool isOneOf(std::string_view characters, char c) { return characters.find(c) != characters.npos; }

constexpr std::string_view kSpecialInQuotes = "\"\\$`";

/// Reads a line character by character.
class Splitter {
public:
    explicit Splitter(const std::string& line) : line_(line) {}

    ShellWords run()
    {
        while (next_ < line_.size())
            read();
        result_.words.erase(result_.words.begin()); // the command's name
        if (result_.words.empty())
            result_.words.emplace_back();
        return std::move(result_);
    }

private:
    void read()
    {
        const char c = line_[next_++];
        const bool bare = result_.quote == 0;
        if (bare && isOneOf(" \t\n", c))
            return endWord();
        inWord_ = true;
        if (c == '\\' && escapesNext())
            result_.words.back() += line_[next_++];
        else if (c == result_.quote)
            result_.quote = 0;
        else if (bare && isOneOf("'\"", c))
            result_.quote = c;
        else
            add(c);
    }

    bool escapesNext() const
    {
        if (next_ == line_.size() || result_.quote == '\'')
            return false;
        return result_.quote == 0 || isOneOf(kSpecialInQuotes, line_[next_]);
    }

    void add(char c)
    {
        result_.words.back() += c;
        if (result_.quote == 0 && isOneOf("=:", c))
            result_.kept = result_.words.back().size();
    }

    void endWord()
    {
        if (inWord_)
            result_.words.emplace_back();
        inWord_ = false;
        result_.kept = 0;
    }

    const std::string& line_;
    ShellWords result_{{""}};
    std::size_t next_ = 0;
    bool inWord_ = false;
};

} // namespace

std::string ShellWords::quoted(const std::string& word) const
{
    std::string result;
    for (const char c : word.substr(kept)) {
        const unsigned char byte = static_cast<unsigned char>(c);
        const bool plain = std::isalnum(byte) != 0 || byte >= 0x80 || isOneOf("_./:=@%+,-", c);
        if (quote == '\'')
            result += c == '\'' ? "'\\''" : std::string(1, c);
        else if (quote == '"' ? isOneOf(kSpecialInQuotes, c) : !plain)
            result += {'\\', c};
        else
            result += c;
    }
    return result;
}

ShellWords splitAsBash(const std::string& line) { return Splitter(line).run(); }

} // namespace tool
