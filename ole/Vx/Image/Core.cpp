#include <Vx/Image/Core.h>

#include <Vx/detail/MetadataText.h>

namespace Vx::Image::Core {

namespace {

constexpr char kTag[] = "Metadata::Core";
constexpr std::size_t kPieces = 9;

} // namespace

Data::Data() {}

Data::Data(unsigned int width, unsigned int height, Format dataFormat,
           unsigned short bitsPerComponent, unsigned short bitsPerPixel, eLayout layout, bool set)
    : width(width),
      height(height),
      dataFormat(dataFormat),
      bitsPerComponent(bitsPerComponent),
      bitsPerPixel(bitsPerPixel),
      layout(layout),
      coreDataSet(set)
{}

Data::Data(const Data&) = default;

Data::Data(const LightweightString<char>& text) : Data()
{
    const Vx::detail::MetadataReader reader(text);
    if (!reader.accepted(kTag, kPieces))
        return;
    // Deliberate: piece 5, the layout, is ignored. In the text form it comes before the two bit
    // counts, in the constructor after them.
    reader.read(2, width);
    reader.read(3, height);
    reader.read(4, dataFormat);
    reader.read(6, bitsPerComponent);
    reader.read(7, bitsPerPixel);
    reader.read(8, coreDataSet);
}

Data::~Data() = default;

unsigned int Data::getWidth() const { return width; }
unsigned int Data::getHeight() const { return height; }
void Data::setWidth(unsigned int value) { width = value; }
void Data::setHeight(unsigned int value) { height = value; }
Format Data::getDataFormat() const { return dataFormat; }
void Data::setDataFormat(Format value) { dataFormat = value; }
unsigned short Data::getBitsPerComponent() const { return bitsPerComponent; }
void Data::setBitsPerComponent(unsigned short value) { bitsPerComponent = value; }
unsigned short Data::getBitsPerPixel() const { return bitsPerPixel; }
void Data::setBitsPerPixel(unsigned short value) { bitsPerPixel = value; }
eLayout Data::getLayout() const { return layout; }
void Data::setLayout(eLayout value) { layout = value; }
bool Data::getCoreDataSet() const { return coreDataSet; }
void Data::setCoreDataSet(bool value) { coreDataSet = value; }

LightweightString<char> Data::asString() const
{
    Vx::detail::MetadataWriter writer(kTag);
    writer << width << height << dataFormat << layout << bitsPerComponent << bitsPerPixel
           << coreDataSet;
    return writer.text();
}

} // namespace Vx::Image::Core
