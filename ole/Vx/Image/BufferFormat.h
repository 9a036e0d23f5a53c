// Image/BufferFormat.h - Metadata of an image or video stream: how the pixels lie in memory.
//
//     Vx::Image::BufferFormat::Data buffer(/*orientation=*/false, /*stride=*/7680, true);
//     save(buffer.asString());
//     Vx::Image::BufferFormat::Data same(loaded);   // the defaults if parsing fails
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
namespace BufferFormat {

/// How the pixels of an image lie in memory.
///
/// Each getter returns its field and each setter stores its argument: nothing is validated. The
/// flag tells whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// Which way up the lines are stored.
    virtual Orientation getOrientation() const = 0;
    virtual void setOrientation(Orientation value) = 0;
    /// The distance between lines, in a unit that the applications agree on.
    virtual unsigned int getStride() const = 0;
    virtual void setStride(unsigned int value) = 0;
    /// Whether the record has been set.
    virtual bool getBufferFormatDataSet() const = 0;
    virtual void setBufferFormatDataSet(bool value) = 0;
};

/// The record itself. asString() returns its text form, one line:
///
///     Metadata::BufferFormat,1,orientation,stride,1,set,
///
/// Errors: only memory exhaustion throws, as in LightweightString.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API Data : public Interface {
public:
    /// Orientation 1, stride 0, not set.
    VX_API Data();
    /// Stores the fields; \p orientation is stored as 0 or 1.
    VX_API Data(bool orientation, unsigned int stride, bool set);
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Parses the text form. Any string but a BufferFormat record of version 1 with 6 pieces gives
    /// the defaults, with the flag false. Numbers are parsed by `strtol`, 0 without a number, and
    /// cut to the width of their field.
    ///
    /// Deliberate: the 1 before the flag is a constant, which is not parsed.
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

    /// References to all fields, in order of declaration, valid as long as the record.
    auto fields() const noexcept { return std::tie(orientation, stride, bufferFormatDataSet); }

private:
    Orientation orientation = Orientation{1};
    unsigned int stride = 0;
    bool bufferFormatDataSet = false;
};
static_assert(sizeof(Data) == 24, "the record's layout is part of the binary interface");

/// Records compare field by field, in order of declaration.
inline bool operator==(const Data& a, const Data& b) noexcept { return a.fields() == b.fields(); }
inline bool operator!=(const Data& a, const Data& b) noexcept { return a.fields() != b.fields(); }
inline bool operator<(const Data& a, const Data& b) noexcept { return a.fields() < b.fields(); }
inline bool operator>(const Data& a, const Data& b) noexcept { return a.fields() > b.fields(); }
inline bool operator<=(const Data& a, const Data& b) noexcept { return a.fields() <= b.fields(); }
inline bool operator>=(const Data& a, const Data& b) noexcept { return a.fields() >= b.fields(); }

} // namespace BufferFormat
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <> struct std::hash<Vx::Image::BufferFormat::Data> {
    std::size_t operator()(const Vx::Image::BufferFormat::Data& record) const noexcept
    {
        return Vx::detail::hashFields(record.fields());
    }
};
