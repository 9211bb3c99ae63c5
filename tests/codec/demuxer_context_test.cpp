#include <gtest/gtest.h>

#include <thread>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

#include "codec/QVDemuxerContext.h"
#include "codec/QVTimebase.h"
#include "support/MediaFileWriter.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using test::MediaFileSpec;

test::RGB colourAt(const Bitmap& picture, int x, int y) {
    const uint8_t* p = picture.data() + static_cast<size_t>(y) * picture.bytesPerRow() + static_cast<size_t>(x) * 4;
    return {p[0], p[1], p[2]};
}

bool isDark(test::RGB c) { return c.r < 40 && c.g < 40 && c.b < 40; }

class DemuxerContextTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const MediaFileSpec& recipe) {
        const std::string path = _directory.file(name);
        const std::string error = test::writeMediaFile(path, recipe);
        EXPECT_EQ(error, "");
        return path;
    }

    std::shared_ptr<QVDemuxerContext> open(const std::string& path) {
        std::string error;
        auto context = QVDemuxerContext::createWithFilename(path, &error);
        EXPECT_NE(context, nullptr) << error;
        return context;
    }

    test::TemporaryDirectory _directory;
};

TEST_F(DemuxerContextTest, MovieWithBFramesComesOutInPresentationOrderWithItsFacts) {
    MediaFileSpec recipe;
    recipe.video = test::VideoTrackSpec{.width = 64, .height = 48, .frameCount = 30, .maxBFrames = 3};
    recipe.audio = test::AudioTrackSpec{.codec = "aac", .sampleRate = 44100, .seconds = 1.2};
    auto context = open(write("movie.mp4", recipe));
    ASSERT_NE(context, nullptr);

    EXPECT_TRUE(context->audioStreamExist());
    EXPECT_EQ(context->audioSampleRate(), 44100);
    EXPECT_EQ(context->audioSampleFormat(), AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(context->channelLayout(), static_cast<int64_t>(AV_CH_LAYOUT_STEREO));
    EXPECT_NEAR(static_cast<double>(context->audioStreamLength()) / QVTimebase, 1.2, 0.05);
    EXPECT_DOUBLE_EQ(context->frameRate(), 25.0);
    EXPECT_EQ(context->videoDisplaySize().width, 64);
    EXPECT_NEAR(static_cast<double>(context->videoStreamLength()) / QVTimebase, 1.2, 0.05);
    EXPECT_EQ(context->attachPicture(), nullptr);

    int index = 0;
    for (auto frame = context->decodeNextVideoFrame(); frame; frame = context->decodeNextVideoFrame(), ++index) {
        EXPECT_EQ(frame->timeStamp(), index * (QVTimebase / 25)) << "frame " << index;
        auto picture = frame->cgImage();
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(test::nearestFrameIndex(colourAt(*picture, 40, 30), 30), index);
        EXPECT_TRUE(isDark(colourAt(*picture, 2, 2)));
    }
    EXPECT_EQ(index, 30);

    int64_t samples = 0;
    int64_t lastTimestamp = -1;
    for (auto frame = context->decodeNextAudioFrame(); frame; frame = context->decodeNextAudioFrame()) {
        EXPECT_TRUE(frame->isPlanarFormat());
        EXPECT_GT(frame->timeStamp(), lastTimestamp);
        lastTimestamp = frame->timeStamp();
        samples += frame->numberOfSamples();
    }
    EXPECT_NEAR(samples, 44100 * 1.2, 1024 * 2);
}

TEST_F(DemuxerContextTest, VariableFrameRateKeepsEachFramesOwnTime) {
    const std::vector<int64_t> times{0, 40000, 50000, 200000, 210000, 700000, 733000};
    MediaFileSpec recipe;
    recipe.video = test::VideoTrackSpec{.frameCount = 7, .ptsMicroseconds = times};
    auto context = open(write("vfr.mp4", recipe));
    ASSERT_NE(context, nullptr);
    size_t index = 0;
    for (auto frame = context->decodeNextVideoFrame(); frame; frame = context->decodeNextVideoFrame(), ++index) {
        ASSERT_LT(index, times.size());
        EXPECT_NEAR(static_cast<double>(frame->timeStamp()), QMMultiplyDivide(times[index], QVTimebase, 1000000),
                    QVTimebase / 1000.0);
    }
    EXPECT_EQ(index, times.size());
}

TEST_F(DemuxerContextTest, PhoneRotationAndSampleAspectGiveTheUprightDisplayPicture) {
    MediaFileSpec rotated;
    rotated.video = test::VideoTrackSpec{.width = 64, .height = 48, .frameCount = 3, .rotationDegrees = 90};
    auto context = open(write("rotated.mp4", rotated));
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->videoDisplaySize().width, 48);
    EXPECT_EQ(context->videoDisplaySize().height, 64);
    auto frame = context->decodeNextVideoFrame();
    ASSERT_NE(frame, nullptr);
    auto picture = frame->cgImage();
    ASSERT_EQ(picture->height(), 64);
    // The stored top-left marker turns to the top-right corner.
    EXPECT_TRUE(isDark(colourAt(*picture, 45, 2)));
    EXPECT_FALSE(isDark(colourAt(*picture, 2, 2)));

    MediaFileSpec wide;
    wide.video = test::VideoTrackSpec{.width = 64, .height = 48, .frameCount = 2, .sampleAspect = {2, 1}};
    context = open(write("anamorphic.mp4", wide));
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->videoDisplaySize().width, 128);
    frame = context->decodeNextVideoFrame();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->cvImageBuffer()->width(), 128);
}

TEST_F(DemuxerContextTest, OddSizesSurroundSoundAndCoverArtComeInAsWritten) {
    MediaFileSpec odd;
    odd.video = test::VideoTrackSpec{.width = 33, .height = 17, .frameCount = 4, .codec = "mpeg4"};
    auto context = open(write("odd.mkv", odd));
    ASSERT_NE(context, nullptr);
    auto frame = context->decodeNextVideoFrame();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->cvImageBuffer()->width(), 33);
    EXPECT_EQ(frame->cvImageBuffer()->height(), 17);
    EXPECT_EQ(test::nearestFrameIndex(colourAt(*frame->cgImage(), 20, 10), 4), 0);

    MediaFileSpec surround;
    surround.audio = test::AudioTrackSpec{.codec = "flac", .channelLayout = AV_CH_LAYOUT_5POINT1, .seconds = 0.5};
    context = open(write("surround.flac", surround));
    ASSERT_NE(context, nullptr);
    EXPECT_FALSE(context->videoStreamExist());
    EXPECT_EQ(context->channelLayout(), static_cast<int64_t>(AV_CH_LAYOUT_5POINT1));
    auto audio = context->decodeNextAudioFrame();
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->numberOfChannel(), 6);

    MediaFileSpec song;
    song.audio = test::AudioTrackSpec{.codec = "libmp3lame", .seconds = 0.5};
    song.coverArtJPEGorPNG = test::solidJPEG(32, 32, {200, 40, 40});
    context = open(write("song.mp3", song));
    ASSERT_NE(context, nullptr);
    ASSERT_NE(context->attachPicture(), nullptr);
    auto cover = context->attachPicture()->cgImage();
    ASSERT_NE(cover, nullptr);
    EXPECT_NEAR(colourAt(*cover, 16, 16).r, 200, 6);
    EXPECT_NEAR(colourAt(*cover, 16, 16).g, 40, 6);
}

TEST_F(DemuxerContextTest, AudioAndVideoDecodeAtOnceFromTwoThreads) {
    MediaFileSpec recipe;
    recipe.video = test::VideoTrackSpec{.frameCount = 50, .maxBFrames = 2};
    recipe.audio = test::AudioTrackSpec{.seconds = 2.0};
    const std::string path = write("both.mkv", recipe);
    auto context = open(path);
    ASSERT_NE(context, nullptr);
    int videoFrames = 0;
    int64_t samples = 0;
    std::thread video([&] {
        while (context->decodeNextVideoFrame()) ++videoFrames;
    });
    std::thread audio([&] {
        while (auto frame = context->decodeNextAudioFrame()) samples += frame->numberOfSamples();
    });
    video.join();
    audio.join();
    EXPECT_EQ(videoFrames, 50);
    EXPECT_NEAR(samples, 96000, 2048);

    context->seekToTime(0);
    EXPECT_NE(context->decodeNextAudioFrame(), nullptr);
    context->disableVideoStream(true);
    EXPECT_EQ(context->decodeNextVideoFrame(), nullptr);
}

}  // namespace
}  // namespace qm
