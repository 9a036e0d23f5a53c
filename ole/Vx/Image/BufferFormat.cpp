#include <Vx/Image/BufferFormat.h>

#include <Vx/detail/MetadataText.h>

namespace Vx::Image::BufferFormat {

namespace {

constexpr char kTag[] = "Metadata::BufferFormat";
constexpr std::size_t kPieces = 6;

} // namespace

Data::Data() {}

Data::Data(bool orientation, unsigned int stride, bool set)
    : orientation(static_cast<Orientation>(orientation)), stride(stride), bufferFormatDataSet(set)
{}

Data::Data(const Data&) = default;

Data::Data(const LightweightString<char>& text) : Data()
{
    const Vx::detail::MetadataReader reader(text);
    if (!reader.accepted(kTag, kPieces))
        return;
    // Deliberate: piece 4, a constant, is ignored.
    reader.read(2, orientation);
    reader.read(3, stride);
    reader.read(5, bufferFormatDataSet);
}

Data::~Data() = default;

Orientation Data::getOrientation() const { return orientation; }
void Data::setOrientation(Orientation value) { orientation = value; }
unsigned int Data::getStride() const { return stride; }
void Data::setStride(unsigned int value) { stride = value; }
bool Data::getBufferFormatDataSet() const { return bufferFormatDataSet; }
void Data::setBufferFormatDataSet(bool value) { bufferFormatDataSet = value; }

LightweightString<char> Data::asString() const
{
    Vx::detail::MetadataWriter writer(kTag);
    writer << orientation << stride << /*constant=*/1 << bufferFormatDataSet;
    return writer.text();
}

} // namespace Vx::Image::BufferFormat
