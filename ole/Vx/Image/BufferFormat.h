// Image/BufferFormat.h - metadata of an image or video stream: how the pixels lie in memory.
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
namespace BufferFormat {

/// How the pixels of an image lie in memory.
///
/// Every getter returns its field, every setter stores its argument; none validates. The
/// flag says whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// Which way up the lines are stored.
    virtual Orientation getOrientation() const = 0;
    virtual void setOrientation(Orientation value) = 0;
    /// The distance of two lines, in a unit that the applications agree on.
    virtual unsigned int getStride() const = 0;
    virtual void setStride(unsigned int value) = 0;
    /// Whether the record has been set.
    virtual bool getBufferFormatDataSet() const = 0;
    virtual void setBufferFormatDataSet(bool value) = 0;
};

/// The record itself.
///
/// Text form, one line, used to store and exchange the record:
///
///     Metadata::BufferFormat,1,orientation,stride,1,set,
///
/// Errors: none; memory exhaustion passes through as from LightweightString.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API Data : public Interface {
public:
    /// Orientation 1, stride 0, not set.
    VX_API Data();
    /// Takes the fields as they are; \p orientation is stored as 0 or 1.
    VX_API Data(bool orientation, unsigned int stride, bool set);
    /// The same fields.
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Reads the text form. A text that is no BufferFormat record of version 1 in 6 pieces gives
    /// the defaults, with the flag false. Numbers are read by `strtol` and cut to the width
    /// of their field; what is no number is 0.
    ///
    /// Deliberate: the 1 before the flag is a constant, ignored when read.
    VX_API explicit Data(const LightweightString<char>& text);

    VX_API ~Data() override;

    VX_API Orientation getOrientation() const override;
    VX_API void setOrientation(Orientation value) override;
    VX_API unsigned int getStride() const override;
    VX_API void setStride(unsigned int value) override;
    VX_API bool getBufferFormatDataSet() const override;
    VX_API void setBufferFormatDataSet(bool value) override;

    /// The text form.
    VX_API LightweightString<char> asString() const;

    /// All fields in the order of their declaration, valid as long as the record.
    auto fields() const noexcept { return std::tie(orientation, stride, bufferFormatDataSet); }

    /// Has the record compared and hashed as all metadata records are.
    using IsMetadata = void;

private:
    Orientation orientation = Orientation{1};
    unsigned int stride = 0;
    bool bufferFormatDataSet = false;
};
static_assert(sizeof(Data) == 24, "the record's layout is part of the binary interface");

} // namespace BufferFormat
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <>
struct std::hash<Vx::Image::BufferFormat::Data>
    : Vx::Image::MetadataHash<Vx::Image::BufferFormat::Data> {};
