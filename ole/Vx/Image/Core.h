// Image/Core.h - metadata of an image or video stream: raster size and pixel format.
#pragma once

#include <Vx/Image/ImageTypes.h>
#include <Vx/Image/MetadataValue.h>
#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxObject.h>
#include <cstddef>
#include <functional>
#include <tuple>

namespace Vx {
namespace Image {
namespace Core {

/// The raster size and pixel format of an image.
///
/// Every getter returns its field, every setter stores its argument; none validates. The
/// flag says whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// Pixels in a line, and lines.
    virtual unsigned int getWidth() const = 0;
    virtual unsigned int getHeight() const = 0;
    virtual void setWidth(unsigned int value) = 0;
    virtual void setHeight(unsigned int value) = 0;
    /// The pixel format.
    virtual Format getDataFormat() const = 0;
    virtual void setDataFormat(Format value) = 0;
    /// Bits of one component of a pixel.
    virtual unsigned short getBitsPerComponent() const = 0;
    virtual void setBitsPerComponent(unsigned short value) = 0;
    /// Bits of a whole pixel.
    virtual unsigned short getBitsPerPixel() const = 0;
    virtual void setBitsPerPixel(unsigned short value) = 0;
    /// The arrangement of the picture.
    virtual eLayout getLayout() const = 0;
    virtual void setLayout(eLayout value) = 0;
    /// Whether the record has been set.
    virtual bool getCoreDataSet() const = 0;
    virtual void setCoreDataSet(bool value) = 0;
};

/// The record itself.
///
/// Text form, one line, used to store and exchange the record:
///
///     Metadata::Core,1,width,height,dataFormat,layout,bitsPerComponent,bitsPerPixel,set,
///
/// Errors: none; memory exhaustion passes through as from LightweightString.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API Data : public Interface {
public:
    /// All zero, the format Format::None, not set.
    VX_API Data();
    /// Takes the fields as they are.
    VX_API Data(unsigned int width, unsigned int height, Format dataFormat,
                unsigned short bitsPerComponent, unsigned short bitsPerPixel, eLayout layout,
                bool set);
    /// The same fields.
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Reads the text form. A text that is no Core record of version 1 in 9 pieces gives
    /// the defaults, with the flag false. Numbers are read by `strtol` and cut to the width
    /// of their field; what is no number is 0.
    ///
    /// Deliberate: the layout is written but not read back; it becomes 0.
    VX_API explicit Data(const LightweightString<char>& text);

    VX_API ~Data() override;

    VX_API unsigned int getWidth() const override;
    VX_API unsigned int getHeight() const override;
    VX_API void setWidth(unsigned int value) override;
    VX_API void setHeight(unsigned int value) override;
    VX_API Format getDataFormat() const override;
    VX_API void setDataFormat(Format value) override;
    VX_API unsigned short getBitsPerComponent() const override;
    VX_API void setBitsPerComponent(unsigned short value) override;
    VX_API unsigned short getBitsPerPixel() const override;
    VX_API void setBitsPerPixel(unsigned short value) override;
    VX_API eLayout getLayout() const override;
    VX_API void setLayout(eLayout value) override;
    VX_API bool getCoreDataSet() const override;
    VX_API void setCoreDataSet(bool value) override;

    /// The text form.
    VX_API LightweightString<char> asString() const;

    /// All fields in the order of their declaration, valid as long as the record.
    auto fields() const noexcept
    {
        return std::tie(width, height, dataFormat, bitsPerComponent, bitsPerPixel, layout,
                        coreDataSet);
    }

    /// Has the record compared and hashed as all metadata records are.
    using IsMetadata = void;

private:
    unsigned int width = 0;
    unsigned int height = 0;
    Format dataFormat = Format::None;
    unsigned short bitsPerComponent = 0;
    unsigned short bitsPerPixel = 0;
    eLayout layout{};
    bool coreDataSet = false;
};
static_assert(sizeof(Data) == 32, "the record's layout is part of the binary interface");

} // namespace Core
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <>
struct std::hash<Vx::Image::Core::Data> : Vx::Image::MetadataHash<Vx::Image::Core::Data> {};
