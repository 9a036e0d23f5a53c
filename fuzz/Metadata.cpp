// The text form of the five metadata records: parsing any string, printing, parsing again.
#include "Fuzz.h"
#include "Pieces.h"

#include <Reference.h>
#include <Vx/Image/BufferFormat.h>
#include <Vx/Image/Core.h>
#include <Vx/Image/Video.h>
#include <Vx/Image/VideoSample.h>
#include <Vx/Image/VideoSequence.h>

namespace {

// What a record prints that was parsed from \p text. \p items has a letter per item after the tag
// and the version: u and h are numbers of 32 and 16 bits, i is a signed one, t a string, f a flag;
// 0 and 1 are constants, which are not parsed.
std::string printed(const std::string& text, const char* tag, const char* items,
                    const char* otherwise)
{
    const std::size_t count = 2 + std::strlen(items);
    const std::vector<std::string> pieces = reference::pieces(text, ',', 0);
    const auto number = [&](std::size_t i) { return std::strtol(pieces[i].c_str(), nullptr, 10); };
    std::string result = tag + std::string(",1,");
    if (pieces.size() != count || std::strcmp(pieces[0].c_str(), tag) != 0 || number(1) != 1)
        return result + otherwise;
    for (std::size_t i = 2; i < count; ++i) {
        switch (const char item = items[i - 2]) {
        case 'u': result += std::to_string(static_cast<std::uint32_t>(number(i))); break;
        case 'h': result += std::to_string(static_cast<std::uint16_t>(number(i))); break;
        case 'i': result += std::to_string(static_cast<std::int32_t>(number(i))); break;
        case 't': result += reference::appended(pieces[i]); break;
        case 'f': result += number(i) != 0 ? '1' : '0'; break;
        default: result += item;
        }
        result += ',';
    }
    return result;
}

template <class Record>
void check(const std::string& text, const char* tag, const char* items, const char* otherwise)
{
    const Record record(ours(text));
    const LightweightString<char> form = record.asString();
    FUZZ_CLAIM(plain(form) == printed(text, tag, items, otherwise));
    FUZZ_CLAIM(Record(form) == record);
    FUZZ_CLAIM(plain(Record(form).asString()) == plain(form));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    namespace Image = Vx::Image;
    const std::string text = Input(data, size).rest();
    check<Image::Core::Data>(text, "Metadata::Core", "uui0hhf", "0,0,-1,0,0,0,0,");
    check<Image::BufferFormat::Data>(text, "Metadata::BufferFormat", "iu1f", "1,0,1,0,");
    check<Image::Video::Data>(text, "Metadata::Video", "iitf", "0,0,0,0,");
    check<Image::VideoSample::Data>(text, "Metadata::VideoSample", "iiif", "0,0,0,0,");
    check<Image::VideoSequence::Data>(text, "Metadata::VideoSequence", "if", "0,0,");
    return 0;
}
