#include <Vx/Image/VideoSample.h>

#include <Vx/detail/MetadataText.h>

namespace Vx::Image::VideoSample {

namespace {

constexpr char kTag[] = "Metadata::VideoSample";
constexpr std::size_t kPieces = 6;

} // namespace

Data::Data() {}

Data::Data(Polarity polarity, Colorimetry colorimetry, GamutScaling gamutScaling, bool set)
    : polarity(polarity),
      colorimetry(colorimetry),
      gamutScaling(gamutScaling),
      videoSampleDataSet(set)
{}

Data::Data(const Data&) = default;

Data::Data(const LightweightString<char>& text) : Data()
{
    const Vx::detail::MetadataReader reader(text);
    if (!reader.accepted(kTag, kPieces))
        return;
    reader.read(2, polarity);
    reader.read(3, colorimetry);
    reader.read(4, gamutScaling);
    reader.read(5, videoSampleDataSet);
}

Data::~Data() = default;

Polarity Data::getPolarity() const { return polarity; }
void Data::setPolarity(Polarity value) { polarity = value; }
Colorimetry Data::getColorimetry() const { return colorimetry; }
void Data::setColorimetry(Colorimetry value) { colorimetry = value; }
GamutScaling Data::getGamutScaling() const { return gamutScaling; }
void Data::setGamutScaling(GamutScaling value) { gamutScaling = value; }
bool Data::getVideoSampleDataSet() const { return videoSampleDataSet; }
void Data::setVideoSampleDataSet(bool value) { videoSampleDataSet = value; }

LightweightString<char> Data::asString() const
{
    Vx::detail::MetadataWriter writer(kTag);
    writer << polarity << colorimetry << gamutScaling << videoSampleDataSet;
    return writer.text();
}

} // namespace Vx::Image::VideoSample
