// Image/VideoSample.h - Metadata of an image or video stream: the signal properties of a sample.
//
//     Vx::Image::VideoSample::Data sample(polarity, colorimetry, gamutScaling, true);
//     save(sample.asString());
//     Vx::Image::VideoSample::Data same(loaded);   // the defaults if parsing fails
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
namespace VideoSample {

/// The signal properties of the samples of a video.
///
/// Each getter returns its field and each setter stores its argument: nothing is validated. The
/// flag tells whether the record has been set.
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

/// The record itself. asString() returns its text form, one line:
///
///     Metadata::VideoSample,1,polarity,colorimetry,gamutScaling,set,
///
/// Errors: only memory exhaustion throws, as in LightweightString.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API Data : public Interface {
public:
    /// All zero, not set.
    VX_API Data();
    /// Stores the fields as they are.
    VX_API Data(Polarity polarity, Colorimetry colorimetry, GamutScaling gamutScaling, bool set);
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Parses the text form. Any string but a VideoSample record of version 1 with 6 pieces gives
    /// the defaults, with the flag false. Numbers are parsed by `strtol`, 0 without a number, and
    /// cut to the width of their field.
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

    /// References to all fields, in order of declaration, valid as long as the record.
    auto fields() const noexcept
    {
        return std::tie(polarity, colorimetry, gamutScaling, videoSampleDataSet);
    }

private:
    Polarity polarity{};
    Colorimetry colorimetry{};
    GamutScaling gamutScaling{};
    bool videoSampleDataSet = false;
};
static_assert(sizeof(Data) == 24, "the record's layout is part of the binary interface");

/// Records compare field by field, in order of declaration.
inline bool operator==(const Data& a, const Data& b) noexcept { return a.fields() == b.fields(); }
inline bool operator!=(const Data& a, const Data& b) noexcept { return a.fields() != b.fields(); }
inline bool operator<(const Data& a, const Data& b) noexcept { return a.fields() < b.fields(); }
inline bool operator>(const Data& a, const Data& b) noexcept { return a.fields() > b.fields(); }
inline bool operator<=(const Data& a, const Data& b) noexcept { return a.fields() <= b.fields(); }
inline bool operator>=(const Data& a, const Data& b) noexcept { return a.fields() >= b.fields(); }

} // namespace VideoSample
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <> struct std::hash<Vx::Image::VideoSample::Data> {
    std::size_t operator()(const Vx::Image::VideoSample::Data& record) const noexcept
    {
        return Vx::detail::hashFields(record.fields());
    }
};
