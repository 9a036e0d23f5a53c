#include "MetaRecords.h"

#include "Strings.h"
#include "Terminal.h"

#include <Vx/Image/BufferFormat.h>
#include <Vx/Image/Core.h>
#include <Vx/Image/Video.h>
#include <Vx/Image/VideoSample.h>
#include <Vx/Image/VideoSequence.h>
#include <Vx/VxStringSplit.h>
#include <cstdlib>
#include <fmt/format.h>
#include <strings.h>

namespace tool {
namespace {

using Pieces = Vx::StringToVec<LightweightString<char>>::VecT;
using Values = std::vector<std::string>;

template <class Number> std::string number(Number value)
{
    if constexpr (std::is_enum_v<Number>)
        return fmt::format("{}", static_cast<int>(value));
    else
        return fmt::format("{}", value);
}

// Each returns the parsed value of every piece after the version.

Values readCore(const LightweightString<char>& text)
{
    const Vx::Image::Core::Data data(text);
    return {number(data.getWidth()),
            number(data.getHeight()),
            number(data.getDataFormat()),
            number(data.getLayout()),
            number(data.getBitsPerComponent()),
            number(data.getBitsPerPixel()),
            number(data.getCoreDataSet())};
}

Values readBufferFormat(const LightweightString<char>& text)
{
    const Vx::Image::BufferFormat::Data data(text);
    return {number(data.getOrientation()), number(data.getStride()), "",
            number(data.getBufferFormatDataSet())};
}

Values readVideo(const LightweightString<char>& text)
{
    const Vx::Image::Video::Data data(text);
    return {number(data.getScanMode()), number(data.getAspectRatio()),
            std::string(view(data.getVideoFormatUID().text())), number(data.getVideoDataSet())};
}

Values readVideoSample(const LightweightString<char>& text)
{
    const Vx::Image::VideoSample::Data data(text);
    return {number(data.getPolarity()), number(data.getColorimetry()),
            number(data.getGamutScaling()), number(data.getVideoSampleDataSet())};
}

Values readVideoSequence(const LightweightString<char>& text)
{
    const Vx::Image::VideoSequence::Data data(text);
    return {number(data.getFrameRate()), number(data.getVideoSequenceDataSet())};
}

struct Record {
    const char* tag;
    std::vector<std::string> fields; ///< the pieces after tag and version, in order
    Values (*read)(const LightweightString<char>& text);
};

// The last field of each record is its flag. "layout" and "(constant)" are written, not read.
const Record kRecords[] = {
    {"Metadata::Core",
     {"width", "height", "dataFormat", "layout", "bitsPerComponent", "bitsPerPixel", "set"},
     readCore},
    {"Metadata::BufferFormat", {"orientation", "stride", "(constant)", "set"}, readBufferFormat},
    {"Metadata::Video", {"scanMode", "aspectRatio", "videoFormatUID", "set"}, readVideo},
    {"Metadata::VideoSample", {"polarity", "colorimetry", "gamutScaling", "set"}, readVideoSample},
    {"Metadata::VideoSequence", {"frameRate", "set"}, readVideoSequence},
};

std::string piecesOf(std::size_t count)
{
    return fmt::format("{} {}", count, count == 1 ? "piece" : "pieces");
}

const Record* findRecord(const LightweightString<char>& tag, bool anyCase)
{
    for (const Record& record : kRecords)
        if (anyCase ? strcasecmp(tag.c_str(), record.tag) == 0 : tag == record.tag)
            return &record;
    return nullptr;
}

/// The library's checks, in its order.
std::string reasonAgainst(const Pieces& pieces, const Record* record)
{
    if (pieces.size() <= 2)
        return fmt::format("{}; every record has more than 2", piecesOf(pieces.size()));
    if (record == nullptr || pieces[0] != record->tag) {
        const std::string why = "unknown record " + inQuotes(view(pieces[0]));
        return record != nullptr ? why + fmt::format("; did you mean '{}'?", record->tag) : why;
    }
    const long version = std::strtol(pieces[1].c_str(), nullptr, 10);
    if (version != 1)
        return fmt::format("version {} parses as {}; only 1 is supported",
                           inQuotes(view(pieces[1])), version);
    const std::size_t wanted = record->fields.size() + 2;
    if (pieces.size() != wanted)
        return fmt::format("{}; {} has {}", piecesOf(pieces.size()), record->tag, wanted);
    return {};
}

std::string noteOn(const Record& record, std::size_t field, const MetaField& read)
{
    const std::string& name = record.fields[field];
    if (name == "(constant)")
        return "ignored";
    if (name == "layout")
        return read.text == "0" ? "" : "ignored, always 0";
    if (field + 1 == record.fields.size())
        return read.text == "0" || read.text == "1" ? "" : "nonzero means true";
    if (read.text == read.value)
        return {};
    return read.text.empty() ? "an empty piece parses as 0" : "not a plain number in range";
}

} // namespace

MetaReading readMeta(const std::string& given)
{
    const LightweightString<char> whole = vxString(given);
    Pieces pieces;
    Vx::splitIf(whole, Vx::IsMatchingChar<char>(','), pieces, 0);
    const Record* record = findRecord(pieces[0], true);
    MetaReading reading;
    reading.reason = reasonAgainst(pieces, record);
    if (record == nullptr)
        return reading;
    reading.record = record->tag;
    const bool accepted = reading.reason.empty();
    const Values values = accepted ? record->read(whole) : Values(record->fields.size());
    for (std::size_t i = 2; i < pieces.size(); ++i) {
        const bool known = i - 2 < record->fields.size();
        MetaField field{static_cast<unsigned int>(i), known ? record->fields[i - 2] : "(too many)",
                        std::string(view(pieces[i])), known ? values[i - 2] : "", ""};
        if (accepted)
            field.note = noteOn(*record, i - 2, field);
        reading.fields.push_back(std::move(field));
    }
    return reading;
}

} // namespace tool
