// MetaRecords.h - How the library parses the string form of a metadata record.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct MetaField {
    unsigned int piece; ///< index of the comma-separated piece; the tag is 0
    std::string name;
    std::string text;  ///< the piece
    std::string value; ///< as parsed; empty if the string is rejected
    std::string note;  ///< why text and value differ
};

struct MetaReading {
    std::string record; ///< the tag of the record, whatever its case
    std::string reason; ///< why the string is rejected; empty if accepted
    std::vector<MetaField> fields;
};

MetaReading readMeta(const std::string& text);

} // namespace tool
