// Image/VideoSample.h - metadata of an image or video stream: the signal properties of a sample.
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
namespace VideoSample {

/// The signal properties of the samples of a video.
///
/// Every getter returns its field, every setter stores its argument; none validates. The
/// flag says whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// The polarity of the samples.
    virtual Polarity getPolarity() const = 0;
    virtual void setPolarity(Polarity value) = 0;
    /// The colour space of the samples.
    virtual Colorimetry getColorimetry() const = 0;
    virtual void setColorimetry(Colorimetry value) = 0;
    /// How the samples fill their range.
    virtual GamutScaling getGamutScaling() const = 0;
    virtual void setGamutScaling(GamutScaling value) = 0;
    /// Whether the record has been set.
    virtual bool getVideoSampleDataSet() const = 0;
    virtual void setVideoSampleDataSet(bool value) = 0;
};

/// The record itself.
///
/// Text form, one line, used to store and exchange the record:
///
///     Metadata::VideoSample,1,polarity,colorimetry,gamutScaling,set,
///
/// Errors: none; memory exhaustion passes through as from LightweightString.
/// Threads: a plain value; share it for reading, guard it for writing.
class VX_API Data : public Interface {
public:
    /// All zero, not set.
    VX_API Data();
    /// Takes the fields as they are.
    VX_API Data(Polarity polarity, Colorimetry colorimetry, GamutScaling gamutScaling, bool set);
    /// The same fields.
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Reads the text form. A text that is no VideoSample record of version 1 in 6 pieces gives
    /// the defaults, with the flag false. Numbers are read by `strtol` and cut to the width
    /// of their field; what is no number is 0.
    VX_API explicit Data(const LightweightString<char>& text);

    VX_API ~Data() override;

    VX_API Polarity getPolarity() const override;
    VX_API void setPolarity(Polarity value) override;
    VX_API Colorimetry getColorimetry() const override;
    VX_API void setColorimetry(Colorimetry value) override;
    VX_API GamutScaling getGamutScaling() const override;
    VX_API void setGamutScaling(GamutScaling value) override;
    VX_API bool getVideoSampleDataSet() const override;
    VX_API void setVideoSampleDataSet(bool value) override;

    /// The text form.
    VX_API LightweightString<char> asString() const;

    /// All fields in the order of their declaration, valid as long as the record.
    auto fields() const noexcept
    {
        return std::tie(polarity, colorimetry, gamutScaling, videoSampleDataSet);
    }

    /// Has the record compared and hashed as all metadata records are.
    using IsMetadata = void;

private:
    Polarity polarity{};
    Colorimetry colorimetry{};
    GamutScaling gamutScaling{};
    bool videoSampleDataSet = false;
};
static_assert(sizeof(Data) == 24, "the record's layout is part of the binary interface");

} // namespace VideoSample
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <>
struct std::hash<Vx::Image::VideoSample::Data>
    : Vx::Image::MetadataHash<Vx::Image::VideoSample::Data> {};
