#include "Terminal.h"

#include "Strings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool {
namespace {

bool colourful = false;

bool isSet(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value != 0;
}

bool terminalTakesColour()
{
    const char* kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && !isSet("NO_COLOR") && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

/// Whether a terminal acts on the code: C0, DEL and C1.
bool isControl(unsigned int code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

} // namespace

bool isInvisible(wchar_t code)
{
    return code == 0xFEFF || code == 0xAD || (code >= 0x200B && code <= 0x200F) ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x206F);
}

void chooseColour(const std::string& when)
{
    colourful = when == "always" || (when == "auto" && terminalTakesColour());
}

std::string paint(Colour colour, std::string_view text)
{
    static constexpr const char* kCodes[] = {"0", "1", "2", "31", "32", "33", "34"};
    if (!colourful || colour == Colour::plain)
        return std::string(text);
    return fmt::format("\x1b[{}m{}\x1b[0m", kCodes[static_cast<int>(colour)], text);
}

std::string shown(std::string_view bytes)
{
    const auto isPlain = [](char c) { return c >= 0x20 && c < 0x7F; };
    if (std::all_of(bytes.begin(), bytes.end(), isPlain)) // most are, and files may be large
        return std::string(bytes);
    std::string result;
    for (const wchar_t c : fromUtf8(bytes)) {
        const unsigned int code = static_cast<unsigned int>(c);
        if (isControl(code))
            result += fmt::format("\\x{:02x}", code);
        else if (isInvisible(c))
            result += fmt::format("\\u{{{:x}}}", code);
        else
            result += view(toUtf8(LightweightString<wchar_t>(&c, 1)));
    }
    return result;
}

std::string inQuotes(std::string_view bytes) { return "'" + shown(bytes) + "'"; }

std::size_t displayWidth(const std::string& text)
{
    // fmt knows display widths but exposes them only through its padding.
    const std::size_t wide = text.size() + 1;
    return wide - (fmt::format("{:<{}}", text, wide).size() - text.size());
}

std::size_t terminalColumns()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

bool utf8Terminal()
{
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const set = std::getenv(variable);
        if (set == nullptr || *set == 0)
            continue;
        const std::string_view value(set);
        for (const char* name : {"UTF-8", "utf-8", "UTF8", "utf8"})
            if (value.find(name) != std::string_view::npos)
                return true;
        return false; // the first variable that is set decides
    }
    return false;
}

void Table::print() const
{
    std::vector<std::size_t> widths;
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        std::size_t widest = columns_[c].heading.size();
        for (const auto& row : rows_)
            widest = std::max(widest, displayWidth(row[c]));
        widths.push_back(widest);
    }
    const auto line = [&](auto&& cell, Colour colour) {
        std::string text;
        for (std::size_t c = 0; c < columns_.size(); ++c) {
            const bool last = c + 1 == columns_.size();
            if (columns_[c].right)
                text += fmt::format("{:>{}}", cell(c), widths[c]);
            else
                text += fmt::format("{:<{}}", cell(c), last ? 0 : widths[c]);
            text += last ? "" : "  ";
        }
        text.erase(text.find_last_not_of(' ') + 1);
        fmt::print("{}\n", paint(colour, text));
    };
    line([&](std::size_t c) { return columns_[c].heading; }, Colour::bold);
    for (const auto& row : rows_)
        line([&](std::size_t c) { return row[c]; }, Colour::plain);
}

} // namespace tool
