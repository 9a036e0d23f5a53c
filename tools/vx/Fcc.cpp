#include "Commands.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <Vx/Image/PlayoutFCC.h>
#include <Vx/detail/PlayoutTable.h>
#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <map>
#include <optional>

namespace tool {
namespace {

bool isCode(unsigned int code)
{
    for (int i = 0; i < 4; ++i) {
        const unsigned int byte = code >> 8 * i & 0xFF;
        if (byte < 0x20 || byte > 0x7E)
            return false;
    }
    return true;
}

std::string nameOf(unsigned int code)
{
    if (!isCode(code))
        return fmt::format("{}", code);
    std::string name;
    for (int i = 0; i < 4; ++i)
        name += static_cast<char>(code >> 8 * i & 0xFF);
    return name;
}

/// The name in quotes if it contains blanks.
std::string shownName(unsigned int code)
{
    const std::string name = nameOf(code);
    return name.find(' ') != std::string::npos ? "'" + name + "'" : name;
}

Json jsonOf(unsigned int code)
{
    if (isCode(code))
        return {{"number", code}, {"code", nameOf(code)}};
    return {{"number", code}};
}

/// Parses a number, decimal or with 0x, or a code of up to four characters, padded with blanks.
/// Digits are a number unless \p asCode.
std::optional<unsigned int> read(const std::string& given, bool asCode)
{
    const bool hex = given.size() > 2 && given[0] == '0' && (given[1] == 'x' || given[1] == 'X');
    const char* begin = given.data() + (hex ? 2 : 0);
    const char* end = given.data() + given.size();
    unsigned int number = 0;
    const auto [rest, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (!asCode && rest == end) {
        if (error != std::errc())
            return {};
        return number;
    }
    if (given.empty() || given.size() > 4)
        return {};
    return Vx::detail::fourcc(given + std::string(4 - given.size(), ' '));
}

/// The codes that the library translates, by their playout code.
std::map<unsigned int, std::vector<unsigned int>> wholeTable()
{
    std::map<unsigned int, std::vector<unsigned int>> table;
    Vx::detail::forEachPlayoutCode(
        [&](unsigned int source, unsigned int playout) { table[playout].push_back(source); });
    return table;
}

std::string listed(const std::vector<unsigned int>& codes)
{
    std::string list;
    for (const unsigned int code : codes)
        list += (list.empty() ? "" : " ") + shownName(code);
    return list;
}

Json jsonOf(const std::vector<unsigned int>& codes)
{
    Json list = Json::array();
    for (const unsigned int code : codes)
        list.push_back(jsonOf(code));
    return list;
}

Status showAll(bool json)
{
    const auto table = wholeTable();
    std::vector<unsigned int> playouts;
    for (const auto& entry : table)
        playouts.push_back(entry.first);
    std::sort(playouts.begin(), playouts.end(),
              [](unsigned int a, unsigned int b) { return nameOf(a) < nameOf(b); });
    Json list = Json::array();
    Table rows({{"PLAYOUT"}, {"STORED"}});
    for (const unsigned int playout : playouts) {
        list.push_back({{"playout", jsonOf(playout)}, {"stored", jsonOf(table.at(playout))}});
        rows.add({shownName(playout), listed(table.at(playout))});
    }
    if (json)
        printJson(list);
    else
        rows.print();
    return kYes;
}

Status showOne(const std::string& given, bool asCode, bool json)
{
    const std::optional<unsigned int> code = read(given, asCode);
    if (!code)
        return complain("bad-code", {inQuotes(given)});
    const unsigned int playout = Vx::lookupPlayoutFCC(*code);
    const auto table = wholeTable();
    const auto sources = table.find(*code);
    const std::vector<unsigned int> stored =
        sources != table.end() ? sources->second : std::vector<unsigned int>();
    if (json) {
        printJson({{"stored", jsonOf(*code)},
                   {"playout", jsonOf(playout)},
                   {"translated", playout != *code},
                   {"storedAs", jsonOf(stored)}});
        return kYes;
    }
    if (playout != *code)
        fmt::print("{} (0x{:08x}) plays out as {} (0x{:08x})\n", shownName(*code), *code,
                   paint(Colour::bold, shownName(playout)), playout);
    else
        fmt::print("{} (0x{:08x}) is not translated\n", shownName(*code), *code);
    if (!stored.empty())
        fmt::print("codes that play out as {}: {}\n", shownName(*code), listed(stored));
    return kYes;
}

} // namespace

void addFcc(Command top)
{
    Command command = top.add("fcc", "Translates stored essence codes to playout codes");
    auto given = std::make_shared<std::optional<std::string>>();
    auto asCode = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    command.argument("CODE|NUMBER", *given,
                     "Four characters, or a compression identifier; default: all codes");
    command.flag("--code", *asCode, "Treat digits as characters");
    command.jsonFlag(*json);
    command.footer(
        "Case counts. A shorter code is padded with blanks. Shows what a code plays out as,"
        "\nand which codes play out as this one.\n\nExamples:\n"
        "  vx fcc\n  vx fcc mjpa\n  vx fcc MJPG\n  vx fcc 1235\n  vx fcc 0x61706a6d");
    command.runs([=] { return *given ? showOne(**given, *asCode, *json) : showAll(*json); });
}

} // namespace tool
