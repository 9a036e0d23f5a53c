// Image/ImageTypes.h - The enumerations of the metadata records.
//
// The applications that store the records agree on the meaning of the numbers. Vx carries any
// number unchanged.
#pragma once

namespace Vx {

/// The frame rate of a sequence.
enum class FrameRate : int {};

namespace Image {

/// The pixel format of an image.
enum class Format : int {
    None = -1, ///< unknown
};

/// The arrangement of an image.
enum class eLayout : int {};

/// Which way up the lines of a buffer are stored.
enum class Orientation : int {};

/// How the lines of a frame were scanned.
enum class ScanMode : int {};

/// The shape of the picture.
enum class AspectRatio : int {};

/// The polarity of the samples.
enum class Polarity : int {};

/// The colour space of the samples.
enum class Colorimetry : int {};

/// How the samples fill their range.
enum class GamutScaling : int {};

} // namespace Image

static_assert(sizeof(FrameRate) == 4 && sizeof(Image::Format) == 4 && sizeof(Image::eLayout) == 4 &&
                  sizeof(Image::Orientation) == 4 && sizeof(Image::ScanMode) == 4 &&
                  sizeof(Image::AspectRatio) == 4 && sizeof(Image::Polarity) == 4 &&
                  sizeof(Image::Colorimetry) == 4 && sizeof(Image::GamutScaling) == 4,
              "the layout of the records depends on enumerations of 32 bits");

} // namespace Vx
