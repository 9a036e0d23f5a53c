// Image/Video.h - Metadata of an image or video stream: scan mode, aspect ratio and format.
//
//     Vx::Image::Video::Data video(scanMode, aspectRatio, Vx::Image::FormatUID(7u), true);
//     save(video.asString());
//     Vx::Image::Video::Data same(loaded);   // the defaults if parsing fails
#pragma once

#include <Vx/Image/FormatUID.h>
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
namespace Video {

/// The scan mode, aspect ratio and format of a video.
///
/// Each getter returns its field and each setter stores its argument: nothing is validated. The
/// flag tells whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// How the lines of a frame were scanned.
    virtual ScanMode getScanMode() const = 0;
    virtual void setScanMode(ScanMode value) = 0;
    /// The shape of the picture.
    virtual AspectRatio getAspectRatio() const = 0;
    virtual void setAspectRatio(AspectRatio value) = 0;
    /// The video format. The reference is valid as long as the record.
    virtual const FormatUID& getVideoFormatUID() const = 0;
    virtual void setVideoFormatUID(FormatUID value) = 0;
    /// Whether the record has been set.
    virtual bool getVideoDataSet() const = 0;
    virtual void setVideoDataSet(bool value) = 0;
};

/// The record itself. asString() returns its text form, one line:
///
///     Metadata::Video,1,scanMode,aspectRatio,videoFormatUID,set,
///
/// Errors: only memory exhaustion throws, as in LightweightString.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API Data : public Interface {
public:
    /// All zero, the format "0", not set.
    VX_API Data();
    /// Stores the fields as they are.
    VX_API Data(ScanMode scanMode, AspectRatio aspectRatio, FormatUID videoFormatUID, bool set);
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Parses the text form. Any string but a Video record of version 1 with 6 pieces gives
    /// the defaults, with the flag false. Numbers are parsed by `strtol`, 0 without a number, and
    /// cut to the width of their field.
    /// The identifier is not validated.
    VX_API explicit Data(const LightweightString<char>& text);

    VX_API ~Data() override;

    VX_API ScanMode getScanMode() const override;
    VX_API void setScanMode(ScanMode value) override;
    VX_API AspectRatio getAspectRatio() const override;
    VX_API void setAspectRatio(AspectRatio value) override;
    VX_API const FormatUID& getVideoFormatUID() const override;
    VX_API void setVideoFormatUID(FormatUID value) override;
    VX_API bool getVideoDataSet() const override;
    VX_API void setVideoDataSet(bool value) override;

    /// The text form.
    VX_API LightweightString<char> asString() const;

    /// References to all fields, in order of declaration, valid as long as the record.
    auto fields() const noexcept
    {
        return std::tie(scanMode, aspectRatio, videoFormatUID, videoDataSet);
    }

private:
    ScanMode scanMode{};
    AspectRatio aspectRatio{};
    FormatUID videoFormatUID;
    bool videoDataSet = false;
};
static_assert(sizeof(Data) == 40, "the record's layout is part of the binary interface");

/// Records compare field by field, in order of declaration.
inline bool operator==(const Data& a, const Data& b) noexcept { return a.fields() == b.fields(); }
inline bool operator!=(const Data& a, const Data& b) noexcept { return a.fields() != b.fields(); }
inline bool operator<(const Data& a, const Data& b) noexcept { return a.fields() < b.fields(); }
inline bool operator>(const Data& a, const Data& b) noexcept { return a.fields() > b.fields(); }
inline bool operator<=(const Data& a, const Data& b) noexcept { return a.fields() <= b.fields(); }
inline bool operator>=(const Data& a, const Data& b) noexcept { return a.fields() >= b.fields(); }

} // namespace Video
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <> struct std::hash<Vx::Image::Video::Data> {
    std::size_t operator()(const Vx::Image::Video::Data& record) const noexcept
    {
        return Vx::detail::hashFields(record.fields());
    }
};
