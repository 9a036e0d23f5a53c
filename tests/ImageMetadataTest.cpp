#include <Vx/Image/BufferFormat.h>
#include <Vx/Image/Core.h>
#include <Vx/Image/Video.h>
#include <Vx/Image/VideoSample.h>
#include <Vx/Image/VideoSequence.h>

#include <climits>

#include <Texts.h>
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

template <class Data>
void expectForm(const Data& data, const std::string& text, const std::string& defaults)
{
    EXPECT_EQ(str(data.asString()), text);
    EXPECT_EQ(str(Data().asString()), defaults);
    const auto read = [](const std::string& from) { return Data(make<char>(from)); };
    const std::string open = text.substr(0, text.size() - 1);
    for (const std::string& same : {text, open, "," + text}) // outer commas make no pieces
        EXPECT_EQ(read(same), data) << same;
    EXPECT_EQ(read(defaults), Data()) << "flags, too";
    for (const std::string& refused :
         {text + ",", text + "9,", open.substr(0, open.rfind(',') + 1)})
        EXPECT_EQ(read(refused), Data()) << refused;
}

} // namespace

TEST(ImageMetadata, WritesItsTextFormAndReadsItBack)
{
    Core::Data core(kCore);
    core.setLayout(eLayout{});
    EXPECT_EQ(str(kCore.asString()), "Metadata::Core,1,1920,1080,7,3,10,20,1,");
    EXPECT_EQ(Core::Data(kCore.asString()), core) << "the layout is deliberately not parsed";
    expectForm(core, "Metadata::Core,1,1920,1080,7,0,10,20,1,", "Metadata::Core,1,0,0,-1,0,0,0,0,");
    expectForm(kBufferFormat, "Metadata::BufferFormat,1,0,7680,1,1,",
               "Metadata::BufferFormat,1,1,0,1,0,");
    EXPECT_EQ(BufferFormat::Data(Text("Metadata::BufferFormat,1,0,7680,7,1,")), kBufferFormat)
        << "the constant is deliberately ignored";
    expectForm(kVideo, "Metadata::Video,1,1,2,abc,1,", "Metadata::Video,1,0,0,0,0,");
    expectForm(kVideoSample, "Metadata::VideoSample,1,1,-2,3,1,",
               "Metadata::VideoSample,1,0,0,0,0,");
    expectForm(kVideoSequence, "Metadata::VideoSequence,1,25,1,", "Metadata::VideoSequence,1,0,0,");
    const Core::Data widest(UINT_MAX, UINT_MAX, as<Format>(INT_MIN), USHRT_MAX, USHRT_MAX,
                            as<eLayout>(INT_MAX), false);
    EXPECT_EQ(str(widest.asString()),
              "Metadata::Core,1,4294967295,4294967295,-2147483648,2147483647,65535,65535,0,");
}

TEST(ImageMetadata, RejectedTextGivesTheDefaults)
{
    for (const char* text :
         {"", "Metadata::VideoSequence", "Metadata::VideoSequence,2,25,1,",
          "Metadata::VideoSequence,4294967297,25,1,", // version 1 in its low 32 bits
          "metadata::VideoSequence,1,25,1,", "Metadata::Video,1,25,1,",
          ",,Metadata::VideoSequence,1,25,1,", " Metadata::VideoSequence,1,25,1,"})
        EXPECT_EQ(VideoSequence::Data(Text(text)), VideoSequence::Data()) << text;
}

TEST(ImageMetadata, NumbersAreCutToTheirFields)
{
    const Core::Data core(Text("Metadata::Core, 1x,-5,99999999999999999999,12z,,65537,-1,2"));
    EXPECT_EQ(core.getWidth(), 4294967291u);
    EXPECT_EQ(core.getHeight(), UINT_MAX) << "strtol saturates, the field cuts";
    EXPECT_EQ(core.getDataFormat(), as<Format>(12));
    EXPECT_EQ(core.getBitsPerComponent(), 1);
    EXPECT_EQ(core.getBitsPerPixel(), 65535);
    EXPECT_TRUE(core.getCoreDataSet());

    const struct {
        const char* piece;
        bool set;
    } flags[] = {{"2", true}, {"x", false}, {"", false}, {"-1", true}, {"4294967296", true}};
    for (const auto& flag : flags) {
        SCOPED_TRACE(flag.piece);
        const Text text =
            Text("Metadata::VideoSample,1,,x,3,") + flag.piece + (*flag.piece != 0 ? "" : ",");
        const VideoSample::Data read(text);
        EXPECT_EQ(read.getGamutScaling(), as<GamutScaling>(3));
        EXPECT_EQ(read.getPolarity(), as<Polarity>(0));
        EXPECT_EQ(read.getVideoSampleDataSet(), flag.set);
    }
}

TEST(ImageMetadata, TextsEndAtAnEmbeddedZero)
{
    const char text[] = "Metadata::Video\0,1\0x,1,2,ab\0c,1";
    const Video::Data read(Text(text, sizeof text - 1));
    EXPECT_TRUE(read.getVideoDataSet());
    EXPECT_EQ(read.getVideoFormatUID().text(), Text("ab\0c", 4)) << "not validated";
    const Text equalToTheDefault("Metadata::Video,1,1,2,0\0x,1", 27);
    EXPECT_EQ(Video::Data(equalToTheDefault).getVideoFormatUID().text(), Text("0\0x", 3));
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
