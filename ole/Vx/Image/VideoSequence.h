// Image/VideoSequence.h - Metadata of an image or video stream: the frame rate.
//
//     Vx::Image::VideoSequence::Data sequence(frameRate, true);
//     save(sequence.asString());
//     Vx::Image::VideoSequence::Data same(loaded);   // the defaults if parsing fails
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
namespace VideoSequence {

/// The frame rate of a video.
///
/// Each getter returns its field and each setter stores its argument: nothing is validated. The
/// flag tells whether the record has been set.
class VX_API Interface : public virtual iVirtual {
public:
    /// The frame rate.
    virtual FrameRate getFrameRate() const = 0;
    virtual void setFrameRate(FrameRate value) = 0;
    /// Whether the record has been set.
    virtual bool getVideoSequenceDataSet() const = 0;
    virtual void setVideoSequenceDataSet(bool value) = 0;
};

/// The record itself. asString() returns its text form, one line:
///
///     Metadata::VideoSequence,1,frameRate,set,
///
/// Errors: only memory exhaustion throws, as in LightweightString.
/// Thread safety: a value type; concurrent reads are safe, writes need a lock.
class VX_API Data : public Interface {
public:
    /// Frame rate 0, not set.
    VX_API Data();
    /// Stores the fields as they are.
    VX_API Data(FrameRate frameRate, bool set);
    VX_API Data(const Data& other);
    Data& operator=(const Data&) = default;

    /// Parses the text form. Any string but a VideoSequence record of version 1 with 4 pieces
    /// gives the defaults, with the flag false. Numbers are parsed by `strtol`, 0 without a
    /// number, and cut to the width of their field.
    VX_API explicit Data(const LightweightString<char>& text);

    VX_API ~Data() override;

    VX_API FrameRate getFrameRate() const override;
    VX_API void setFrameRate(FrameRate value) override;
    VX_API bool getVideoSequenceDataSet() const override;
    VX_API void setVideoSequenceDataSet(bool value) override;

    /// The text form.
    VX_API LightweightString<char> asString() const;

    /// References to all fields, in order of declaration, valid as long as the record.
    auto fields() const noexcept { return std::tie(frameRate, videoSequenceDataSet); }

private:
    FrameRate frameRate{};
    bool videoSequenceDataSet = false;
};
static_assert(sizeof(Data) == 16, "the record's layout is part of the binary interface");

/// Records compare field by field, in order of declaration.
inline bool operator==(const Data& a, const Data& b) noexcept { return a.fields() == b.fields(); }
inline bool operator!=(const Data& a, const Data& b) noexcept { return a.fields() != b.fields(); }
inline bool operator<(const Data& a, const Data& b) noexcept { return a.fields() < b.fields(); }
inline bool operator>(const Data& a, const Data& b) noexcept { return a.fields() > b.fields(); }
inline bool operator<=(const Data& a, const Data& b) noexcept { return a.fields() <= b.fields(); }
inline bool operator>=(const Data& a, const Data& b) noexcept { return a.fields() >= b.fields(); }

} // namespace VideoSequence
} // namespace Image
} // namespace Vx

/// Equal records have equal hashes.
template <> struct std::hash<Vx::Image::VideoSequence::Data> {
    std::size_t operator()(const Vx::Image::VideoSequence::Data& record) const noexcept
    {
        return Vx::detail::hashFields(record.fields());
    }
};
