#include "Commands.h"
#include "Json.h"
#include "Strings.h"
#include "Terminal.h"

#include <Vx/Image/UUID.h>
#include <cctype>
#include <fmt/format.h>

namespace tool {
namespace {

std::string canonical(const Vx::UUID& id) { return std::string(view(id.asString())); }

Status makeNew(unsigned int count, bool json)
{
    Json list = Json::array();
    for (unsigned int i = 0; i < count; ++i) {
        Vx::UUID id;
        id.generate();
        if (json)
            list.push_back(canonical(id));
        else
            fmt::print("{}\n", canonical(id));
    }
    if (json)
        printJson(list);
    return kYes;
}

/// Why the library reads \p given as the invalid UUID.
std::string reason(const std::string& given)
{
    if (given.size() != 36 && given.size() != 38)
        return fmt::format("{} bytes instead of 36, or 38 with braces", given.size());
    if (given.size() == 38 && (given.front() != '{' || given.back() != '}'))
        return "38 characters without enclosing braces";
    return given.substr(given.size() == 38, 36) == canonical(Vx::UUID())
               ? "all zeros is the invalid UUID"
               : "not 8-4-4-4-12 hexadecimal digits";
}

std::string variantOf(unsigned char byte)
{
    if ((byte & 0x80) == 0)
        return "NCS";
    if ((byte & 0x40) == 0)
        return "RFC 4122";
    return (byte & 0x20) == 0 ? "Microsoft" : "reserved";
}

Status show(const std::string& given, bool json)
{
    const Vx::UUID id(vxString(given));
    if (!id.valid()) {
        const std::string why = reason(given);
        if (json)
            printJson({{"text", given}, {"valid", false}, {"reason", why}});
        else
            complain("invalid-uuid", {inQuotes(given), why});
        return kNo;
    }
    const unsigned char* bytes = id.data();
    std::string stored;
    for (int i = 0; i < 16; ++i)
        stored += fmt::format("{}{:02x}", i == 0 ? "" : " ", bytes[i]);
    // The third group is a little-endian number, so its high byte comes second.
    const int version = bytes[7] >> 4;
    const std::string variant = variantOf(bytes[8]);
    std::string plain = given.size() == 38 ? given.substr(1, 36) : given;
    for (char& c : plain)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool lenient = plain != canonical(id);
    if (json) {
        printJson({{"text", canonical(id)},
                   {"valid", true},
                   {"bytes", stored},
                   {"version", version},
                   {"variant", variant},
                   {"readLeniently", lenient}});
        return kYes;
    }
    fmt::print("{}\n  stored bytes  {}\n  version       {} ({})\n", canonical(id), stored, version,
               variant);
    if (lenient)
        complain("lenient-uuid", {inQuotes(given)});
    return kYes;
}

} // namespace

void addUuid(Command top)
{
    Command uuid = top.add("uuid", "Generates and parses UUIDs");
    uuid.footer("Examples:\n  vx uuid\n  vx uuid new --count 3\n"
                "  vx uuid show '{0123ABCD-4567-89EF-0123-456789ABCDEF}'");
    auto json = std::make_shared<bool>(false);
    auto count = std::make_shared<unsigned int>(1);
    const auto makes = [json, count](Command command) {
        command.option("-n,--count", *count, 1000000, "NUMBER", "How many");
        command.jsonFlag(*json);
        command.runs([json, count] { return makeNew(*count, *json); });
    };
    makes(uuid);
    makes(uuid.add("new", "Generates random UUIDs"));

    Command read = uuid.add("show", "Parses a UUID as the library does");
    auto given = std::make_shared<std::string>();
    read.argument("TEXT", *given, "36 characters, or 38 with braces");
    read.jsonFlag(*json);
    read.footer("Exit status 1 if it is not valid.");
    read.runs([json, given] { return show(*given, *json); });
}

} // namespace tool
