#include "Commands.h"
#include "Json.h"
#include "MetaRecords.h"
#include "Strings.h"
#include "Terminal.h"

#include <fmt/format.h>

namespace tool {
namespace {

Status show(const std::string& given, bool json)
{
    const MetaReading reading = readMeta(given);
    if (json) {
        Json fields = Json::array();
        for (const MetaField& field : reading.fields)
            fields.push_back({{"piece", field.piece},
                              {"field", field.name},
                              {"text", field.text},
                              {"value", field.value},
                              {"note", field.note}});
        printJson({{"accepted", reading.reason.empty()},
                   {"record", reading.record},
                   {"reason", reading.reason},
                   {"fields", fields}});
        return reading.reason.empty() ? kYes : kNo;
    }
    if (reading.reason.empty())
        fmt::print("{}\n", paint(Colour::green, reading.record + ": accepted"));
    else
        fmt::print("{}\n", paint(Colour::red, "rejected: " + reading.reason));
    if (reading.fields.empty())
        return reading.reason.empty() ? kYes : kNo;
    Table table({{"PIECE", true}, {"FIELD"}, {"TEXT"}, {"VALUE"}, {"NOTE"}});
    for (const MetaField& field : reading.fields)
        table.add({fmt::format("{}", field.piece), field.name, shown(field.text),
                   shown(field.value), field.note});
    table.print();
    return reading.reason.empty() ? kYes : kNo;
}

} // namespace

void addMeta(Command top)
{
    Command command = top.add("meta", "Explains the string form of an image-metadata record");
    auto given = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    command.argument("TEXT", *given, "For example Metadata::VideoSequence,1,25,1,");
    command.jsonFlag(*json);
    command.footer(
        "Pieces are separated by commas; the tag is piece 0. Exit status 1 if the library"
        " rejects\nthe string.\n\nExample:\n  vx meta 'Metadata::Core,1,1920,1080,-1,0,8,24,1,'");
    command.runs([given, json] { return show(*given, *json); });
}

} // namespace tool
