#include <Vx/Image/BufferFormat.h>
#include <Vx/Image/Core.h>
#include <Vx/Image/Video.h>
#include <Vx/Image/VideoSample.h>
#include <Vx/Image/VideoSequence.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

using namespace Vx::Image;
using Vx::FrameRate;
using Text = LightweightString<char>;

template <class Enum> constexpr Enum as(int number) { return static_cast<Enum>(number); }

const Core::Data kCore(1920, 1080, as<Format>(7), 10, 20, as<eLayout>(3), true);
const BufferFormat::Data kBufferFormat(false, 7680, true);
const Video::Data kVideo(as<ScanMode>(1), as<AspectRatio>(2), FormatUID(Text("abc")), true);
const VideoSample::Data kVideoSample(as<Polarity>(1), as<Colorimetry>(-2), as<GamutScaling>(3),
                                     true);
const VideoSequence::Data kVideoSequence(as<FrameRate>(25), true);

/// The members in order, each followed by a blank.
template <class... Member> std::string listed(const Member&... member)
{
    std::ostringstream list;
    const auto number = [](auto value) { return static_cast<long>(value); };
    ((list << number(member) << ' '), ...);
    return list.str();
}

} // namespace

// The fuzz target "metadata" tests the text forms.

TEST(ImageMetadata, GettersReturnWhatTheConstructorStores)
{
    EXPECT_EQ(listed(kCore.getWidth(), kCore.getHeight(), kCore.getDataFormat(), kCore.getLayout(),
                     kCore.getBitsPerComponent(), kCore.getBitsPerPixel(), kCore.getCoreDataSet()),
              "1920 1080 7 3 10 20 1 ");
    EXPECT_EQ(listed(kBufferFormat.getOrientation(), kBufferFormat.getStride(),
                     kBufferFormat.getBufferFormatDataSet()),
              "0 7680 1 ");
    EXPECT_EQ(listed(kVideo.getScanMode(), kVideo.getAspectRatio(), kVideo.getVideoDataSet()),
              "1 2 1 ");
    EXPECT_EQ(kVideo.getVideoFormatUID(), Text("abc"));
    EXPECT_EQ(listed(kVideoSample.getPolarity(), kVideoSample.getColorimetry(),
                     kVideoSample.getGamutScaling(), kVideoSample.getVideoSampleDataSet()),
              "1 -2 3 1 ");
    EXPECT_EQ(listed(kVideoSequence.getFrameRate(), kVideoSequence.getVideoSequenceDataSet()),
              "25 1 ");
}

TEST(ImageMetadata, DeliberatelyParsesNeitherTheLayoutNorTheConstant)
{
    EXPECT_EQ(kCore.asString(), "Metadata::Core,1,1920,1080,7,3,10,20,1,");
    Core::Data core(kCore);
    core.setLayout(eLayout{});
    EXPECT_EQ(Core::Data(kCore.asString()), core);
    EXPECT_EQ(BufferFormat::Data(Text("Metadata::BufferFormat,1,0,7680,7,1,")), kBufferFormat);
}

TEST(ImageMetadata, SettersMakeTheRecordThatTheConstructorMakes)
{
    Core::Data core;
    core.setWidth(1920), core.setHeight(1080), core.setDataFormat(as<Format>(7));
    core.setBitsPerComponent(10), core.setBitsPerPixel(20), core.setLayout(as<eLayout>(3));
    core.setCoreDataSet(true);
    EXPECT_EQ(core, kCore);
    BufferFormat::Data buffer;
    buffer.setOrientation(as<Orientation>(0)), buffer.setStride(7680);
    buffer.setBufferFormatDataSet(true);
    EXPECT_EQ(buffer, kBufferFormat);
    Video::Data video;
    video.setScanMode(as<ScanMode>(1)), video.setAspectRatio(as<AspectRatio>(2));
    video.setVideoFormatUID(FormatUID(Text("abc"))), video.setVideoDataSet(true);
    EXPECT_EQ(video, kVideo);
    VideoSample::Data sample;
    sample.setPolarity(as<Polarity>(1)), sample.setColorimetry(as<Colorimetry>(-2));
    sample.setGamutScaling(as<GamutScaling>(3)), sample.setVideoSampleDataSet(true);
    EXPECT_EQ(sample, kVideoSample);
    VideoSequence::Data sequence;
    sequence.setFrameRate(as<FrameRate>(25)), sequence.setVideoSequenceDataSet(true);
    EXPECT_EQ(sequence, kVideoSequence);
}

TEST(ImageMetadata, RecordsAreKeys)
{
    const Video::Data earlier(as<ScanMode>(1), as<AspectRatio>(1), FormatUID(Text("z")), true);
    expectOrder(earlier, kVideo, 1, 2);
    expectOrder(kVideo, kVideo, 2, 2);
    const std::map<Video::Data, int> ordered{{kVideo, 2}, {earlier, 1}};
    EXPECT_EQ(ordered.begin()->second, 1);
    const std::unordered_set<Core::Data> hashed{kCore, Core::Data(), kCore};
    EXPECT_EQ(hashed.size(), 2u);
    EXPECT_EQ(hashed.count(Core::Data(kCore)), 1u);
    EXPECT_NE(std::hash<Video::Data>()(kVideo), std::hash<Video::Data>()(earlier));
    Video::Data later(kVideo);
    later.setVideoFormatUID(FormatUID(Text("abd")));
    expectOrder(kVideo, later, 0, 1);
    EXPECT_EQ(later.getVideoFormatUID(), Text("abd"));
}
