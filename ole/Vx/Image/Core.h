// Image/Core.h - Metadata of an image or video stream: raster size and pixel format.
//
//     Vx::Image::Core::Data core(1920, 1080, format, 10, 20, layout, true);
//     save(core.asString());
//     Vx::Image::Core::Data same(loaded);   // the defaults if parsing fails
#pragma once

#include <Vx/Image/ImageTypes.h>
#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <Vx/VxObject.h>
#include <Vx/detail/FieldHash.h>
#include <cstddef>
#include <functional>
#include <tuple>

namespace Vx {
namespace Image {
namespace Core {

/// The raster size and pixel format of an image.
///
/// Each getter returns its field and each setter stores its argument: nothing is validated. The
/// flag tells whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// Pixels per line, and the number of lines.
    virtual unsigned int getWidth() const = 0;
    virtual unsigned int getHeight() const = 0;
    virtual void setWidth(unsigned int value) = 0;
    virtual void setHeight(unsigned int value) = 0;
    /// The pixel format.
    virtual Format getDataFormat() const = 0;
    virtual void setDataFormat(Format value) = 0;
    /// Bits per component of a pixel.
    virtual unsigned short getBitsPerComponent() const = 0;
    virtual void setBitsPerComponent(unsigned short value) = 0;
    /// Bits per pixel.
    virtual unsigned short getBitsPerPixel() const = 0;
    virtual void setBitsPerPixel(unsigned short value) = 0;
    /// The arrangement of the picture.
    virtual eLayout getLayout() const = 0;
    virtual void setLayout(eLayout value) = 0;
    /// Whether the record has been set.
    virtual bool getCoreDataSet() const = 0;
    virtual void setCoreDataSet(bool value) = 0;
};

/// The record itself. asString() returns its text form, one line:
///
///     Metadata::Core,1,width,height,dataFormat,layout,bitsPerComponent,bitsPerPixel,set,
///
/// Errors: only memory exhaustion throws, as in LightweightString.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API Data : public Interface {
public:
    /// All zero, the format Format::None, not set.
    VX_API Data();
    /// Stores the fields as they are.
    VX_API Data(unsigned int width, unsigned int height, Format dataFormat,
                unsigned short bitsPerComponent, unsigned short bitsPerPixel, eLayout layout,
                bool set);
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Parses the text form. Any string but a Core record of version 1 with 9 pieces gives
    /// the defaults, with the flag false. Numbers are parsed by `strtol`, 0 without a number, and
    /// cut to the width of their field.
    ///
    /// Deliberate: the layout is written but not parsed; it becomes 0.
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

    /// References to all fields, in order of declaration, valid as long as the record.
    auto fields() const noexcept
    {
        return std::tie(width, height, dataFormat, bitsPerComponent, bitsPerPixel, layout,
                        coreDataSet);
    }

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

/// Records compare field by field, in order of declaration.
inline bool operator==(const Data& a, const Data& b) noexcept { return a.fields() == b.fields(); }
inline bool operator!=(const Data& a, const Data& b) noexcept { return a.fields() != b.fields(); }
inline bool operator<(const Data& a, const Data& b) noexcept { return a.fields() < b.fields(); }
inline bool operator>(const Data& a, const Data& b) noexcept { return a.fields() > b.fields(); }
inline bool operator<=(const Data& a, const Data& b) noexcept { return a.fields() <= b.fields(); }
inline bool operator>=(const Data& a, const Data& b) noexcept { return a.fields() >= b.fields(); }

} // namespace Core
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <> struct std::hash<Vx::Image::Core::Data> {
    std::size_t operator()(const Vx::Image::Core::Data& record) const noexcept
    {
        return Vx::detail::hashFields(record.fields());
    }
};
