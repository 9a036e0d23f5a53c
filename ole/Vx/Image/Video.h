// Image/Video.h - metadata of an image or video stream: scan mode, aspect ratio and format.
#pragma once

#include <Vx/Image/FormatUID.h>
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
namespace Video {

/// The scan mode, aspect ratio and format of a video.
///
/// Every getter returns its field, every setter stores its argument; none validates. The
/// flag says whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// How the lines of a frame were scanned.
    virtual ScanMode getScanMode() const = 0;
    virtual void setScanMode(ScanMode value) = 0;
    /// The shape of the picture.
    virtual AspectRatio getAspectRatio() const = 0;
    virtual void setAspectRatio(AspectRatio value) = 0;
    /// The video format; valid until the record changes or goes.
    virtual const FormatUID& getVideoFormatUID() const = 0;
    virtual void setVideoFormatUID(FormatUID value) = 0;
    /// Whether the record has been set.
    virtual bool getVideoDataSet() const = 0;
    virtual void setVideoDataSet(bool value) = 0;
};

/// The record itself.
///
/// Text form, one line, used to store and exchange the record:
///
///     Metadata::Video,1,scanMode,aspectRatio,videoFormatUID,set,
///
/// Errors: none; memory exhaustion passes through as from LightweightString.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API Data : public Interface {
public:
    /// All zero, the format "0", not set.
    VX_API Data();
    /// Takes the fields as they are.
    VX_API Data(ScanMode scanMode, AspectRatio aspectRatio, FormatUID videoFormatUID, bool set);
    /// The same fields.
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Reads the text form. A text that is no Video record of version 1 in 6 pieces gives
    /// the defaults, with the flag false. Numbers are read by `strtol` and cut to the width
    /// of their field; what is no number is 0.
    ///
    /// The identifier is taken as it stands.
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

    /// All fields in the order of their declaration, valid as long as the record.
    auto fields() const noexcept
    {
        return std::tie(scanMode, aspectRatio, videoFormatUID, videoDataSet);
    }

    /// Has the record compared and hashed as all metadata records are.
    using IsMetadata = void;

private:
    ScanMode scanMode{};
    AspectRatio aspectRatio{};
    FormatUID videoFormatUID;
    bool videoDataSet = false;
};
static_assert(sizeof(Data) == 40, "the record's layout is part of the binary interface");

} // namespace Video
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <>
struct std::hash<Vx::Image::Video::Data> : Vx::Image::MetadataHash<Vx::Image::Video::Data> {};
