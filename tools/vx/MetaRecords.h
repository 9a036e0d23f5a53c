// MetaRecords.h - what the library makes of the text of a metadata record, piece by piece.
#pragma once

#include <string>
#include <vector>

namespace tool {

struct MetaField {
    unsigned int piece; ///< its place in the text; the tag is 0
    std::string name;
    std::string text;  ///< as it stands there
    std::string value; ///< as the record has it; empty in a rejected text
    std::string note;  ///< where the two are not the same
};

struct MetaReading {
    std::string record; ///< the tag of the record that the text is, or means to be
    std::string reason; ///< why it is rejected; empty when it is not
    std::vector<MetaField> fields;
};

MetaReading readMeta(const std::string& text);

} // namespace tool
