#include <Vx/Image/Video.h>

#include <Vx/detail/MetadataText.h>

namespace Vx::Image::Video {

namespace {

constexpr char kTag[] = "Metadata::Video";
constexpr std::size_t kPieces = 6;

// Constructs the identifier: assigning it would keep the default "0" where the string is equal up
// to its first NUL.
Data read(const LightweightString<char>& text)
{
    const Vx::detail::MetadataReader reader(text);
    if (!reader.accepted(kTag, kPieces))
        return Data();
    ScanMode scanMode{};
    AspectRatio aspectRatio{};
    bool set = false;
    reader.read(2, scanMode);
    reader.read(3, aspectRatio);
    reader.read(5, set);
    return Data(scanMode, aspectRatio, FormatUID(reader.text(4)), set);
}

} // namespace

Data::Data() {}

Data::Data(ScanMode scanMode, AspectRatio aspectRatio, FormatUID videoFormatUID, bool set)
    : scanMode(scanMode),
      aspectRatio(aspectRatio),
      videoFormatUID(videoFormatUID),
      videoDataSet(set)
{}

Data::Data(const Data&) = default;

Data::Data(const LightweightString<char>& text) : Data(read(text)) {}

Data::~Data() = default;

ScanMode Data::getScanMode() const { return scanMode; }
void Data::setScanMode(ScanMode value) { scanMode = value; }
AspectRatio Data::getAspectRatio() const { return aspectRatio; }
void Data::setAspectRatio(AspectRatio value) { aspectRatio = value; }
const FormatUID& Data::getVideoFormatUID() const { return videoFormatUID; }
void Data::setVideoFormatUID(FormatUID value) { videoFormatUID = value; }
bool Data::getVideoDataSet() const { return videoDataSet; }
void Data::setVideoDataSet(bool value) { videoDataSet = value; }

LightweightString<char> Data::asString() const
{
    Vx::detail::MetadataWriter writer(kTag);
    writer << scanMode << aspectRatio << videoFormatUID.text() << videoDataSet;
    return writer.text();
}

} // namespace Vx::Image::Video
