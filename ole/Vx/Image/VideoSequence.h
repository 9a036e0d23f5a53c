// Image/VideoSequence.h - metadata of an image or video stream: the frame rate.
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
namespace VideoSequence {

/// The frame rate of a video.
///
/// Every getter returns its field, every setter stores its argument; none validates. The
/// flag says whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// The frame rate.
    virtual FrameRate getFrameRate() const = 0;
    virtual void setFrameRate(FrameRate value) = 0;
    /// Whether the record has been set.
    virtual bool getVideoSequenceDataSet() const = 0;
    virtual void setVideoSequenceDataSet(bool value) = 0;
};

/// The record itself.
///
/// Text form, one line, used to store and exchange the record:
///
///     Metadata::VideoSequence,1,frameRate,set,
///
/// Errors: none; memory exhaustion passes through as from LightweightString.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API Data : public Interface {
public:
    /// Frame rate 0, not set.
    VX_API Data();
    /// Takes the fields as they are.
    VX_API Data(FrameRate frameRate, bool set);
    /// The same fields.
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Reads the text form. A text that is no VideoSequence record of version 1 in 4 pieces
    /// gives the defaults, with the flag false. Numbers are read by `strtol` and cut to the width
    /// of their field; what is no number is 0.
    VX_API explicit Data(const LightweightString<char>& text);

    VX_API ~Data() override;

    VX_API FrameRate getFrameRate() const override;
    VX_API void setFrameRate(FrameRate value) override;
    VX_API bool getVideoSequenceDataSet() const override;
    VX_API void setVideoSequenceDataSet(bool value) override;

    /// The text form.
    VX_API LightweightString<char> asString() const;

    /// All fields in the order of their declaration, valid as long as the record.
    auto fields() const noexcept { return std::tie(frameRate, videoSequenceDataSet); }

    /// Has the record compared and hashed as all metadata records are.
    using IsMetadata = void;

private:
    FrameRate frameRate{};
    bool videoSequenceDataSet = false;
};
static_assert(sizeof(Data) == 16, "the record's layout is part of the binary interface");

} // namespace VideoSequence
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <>
struct std::hash<Vx::Image::VideoSequence::Data>
    : Vx::Image::MetadataHash<Vx::Image::VideoSequence::Data> {};
