#include <Vx/Image/VideoSequence.h>

#include <Vx/detail/MetadataText.h>

namespace Vx::Image::VideoSequence {

namespace {

constexpr char kTag[] = "Metadata::VideoSequence";
constexpr std::size_t kPieces = 4;

} // namespace

Data::Data() {}

Data::Data(FrameRate frameRate, bool set) : frameRate(frameRate), videoSequenceDataSet(set) {}

Data::Data(const Data&) = default;

Data::Data(const LightweightString<char>& text) : Data()
{
    const Vx::detail::MetadataReader reader(text);
    if (!reader.accepted(kTag, kPieces))
        return;
    reader.read(2, frameRate);
    reader.read(3, videoSequenceDataSet);
}

Data::~Data() = default;

FrameRate Data::getFrameRate() const { return frameRate; }
void Data::setFrameRate(FrameRate value) { frameRate = value; }
bool Data::getVideoSequenceDataSet() const { return videoSequenceDataSet; }
void Data::setVideoSequenceDataSet(bool value) { videoSequenceDataSet = value; }

LightweightString<char> Data::asString() const
{
    Vx::detail::MetadataWriter writer(kTag);
    writer << frameRate << videoSequenceDataSet;
    return writer.text();
}

} // namespace Vx::Image::VideoSequence
