#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "DecodedMedia.h"
#include "ExportFakes.h"
#include "codec/MovieWriter.h"
#include "codec/PixelBufferPool.h"
#include "platform/Log.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using test::SampleType;

constexpr const char* kChannelRefusal = "Can not support channel above 2 channels";

std::vector<uint8_t> sine(const AudioStreamBasicDescription& description, int64_t count) {
    return test::makePCM(description, 0, count, [](int64_t i) { return 0.5 * std::sin(i * 0.06); });
}

class AssetWriterTest : public ::testing::Test {
protected:
    std::shared_ptr<FMAssetWriter> startedSoundWriter(std::string_view fileType, const std::string& name,
                                                      const AudioStreamBasicDescription& description) {
        auto writer = FMAssetWriter::createWithFileType(fileType, _directory.file(name));
        writer->addAudioStreamWithAudioStreamDescription(description);
        EXPECT_TRUE(writer->startWriter());
        return writer;
    }

    test::TemporaryDirectory _directory;
    const AudioStreamBasicDescription _stereo = test::describePCM(44100, 2, SampleType::Int16);
};

TEST_F(AssetWriterTest, FileTypesChooseTheirAudioFormatAndWhetherVideoIsAllowed) {
    EXPECT_EQ(FMAssetWriter::audioFormatForFileType(AVFileTypeMPEG4), 0x61616320u);
    EXPECT_EQ(FMAssetWriter::audioFormatForFileType(AVFileTypeAppleM4A), 0x61616320u);
    EXPECT_EQ(FMAssetWriter::audioFormatForFileType(AVFileTypeQuickTimeMovie), 0x61616320u);
    EXPECT_EQ(FMAssetWriter::audioFormatForFileType(AVFileTypeMPEGLayer3), 0x2E6D7033u);
    EXPECT_EQ(FMAssetWriter::audioFormatForFileType(AVFileTypeWAVE), 0x696D6134u);
    EXPECT_EQ(FMAssetWriter::audioFormatForFileType("com.apple.coreaudio-format"), 0x6C70636Du);

    EXPECT_TRUE(FMAssetWriter::allowVideoStreamForFileType(AVFileTypeMPEG4));
    EXPECT_TRUE(FMAssetWriter::allowVideoStreamForFileType(AVFileTypeQuickTimeMovie));
    EXPECT_FALSE(FMAssetWriter::allowVideoStreamForFileType(AVFileTypeAppleM4A));
    EXPECT_FALSE(FMAssetWriter::allowVideoStreamForFileType(AVFileTypeWAVE));
}

TEST_F(AssetWriterTest, VideoBitrateIsSixBitsPerPixel) {
    auto writer = FMAssetWriter::createWithFileType(AVFileTypeMPEG4, _directory.file("a.mp4"));
    EXPECT_FALSE(writer->addVideoStreamWithWidth(1920, 1080));
    EXPECT_TRUE(writer->videoValidate());
    EXPECT_EQ(writer->videoBitrate(), 12441600);
    EXPECT_EQ(writer->frameRate(), 30.0);
    EXPECT_EQ(FMAssetWriter::audioBitrate(), 160000);
}

TEST_F(AssetWriterTest, ConfigurationChecksFollowTheFileType) {
    auto movie = FMAssetWriter::createWithFileType(AVFileTypeMPEG4, _directory.file("a.mp4"));
    movie->addAudioStreamWithAudioStreamDescription(_stereo);
    EXPECT_FALSE(movie->checkConfig());
    movie->addVideoStreamWithWidth(64, 48);
    EXPECT_TRUE(movie->checkConfig());

    // An audio file stores nothing of a video stream it is offered.
    auto sound = FMAssetWriter::createWithFileType(AVFileTypeAppleM4A, _directory.file("a.m4a"));
    sound->addVideoStreamWithWidth(64, 48, 25.0);
    EXPECT_FALSE(sound->videoValidate());
    EXPECT_EQ(sound->width(), 0);
    EXPECT_EQ(sound->frameRate(), 30.0);
    EXPECT_TRUE(sound->checkConfig());

    auto wave = FMAssetWriter::createWithFileType(AVFileTypeWAVE, _directory.file("a.wav"));
    wave->setFormatID(kAudioFormatMPEG4AAC);
    EXPECT_FALSE(wave->checkConfig());
    wave->setFormatID(kAudioFormatLinearPCM);
    EXPECT_TRUE(wave->checkConfig());

    EXPECT_FALSE(FMAssetWriter::createWithFileType("com.apple.coreaudio-format", "x.caf")->checkConfig());
}

TEST_F(AssetWriterTest, SixChannelsAreRefusedOnEveryAppendAndLeaveTheClock) {
    auto writer = startedSoundWriter(AVFileTypeWAVE, "six.wav", _stereo);
    const AudioStreamBasicDescription six = test::describePCM(44100, 6, SampleType::Int16);
    LogCapture log;
    for (int attempt = 0; attempt < 3; ++attempt) EXPECT_FALSE(writer->appendPCMData(sine(six, 100), six));
    EXPECT_EQ(log.count(kChannelRefusal), 3u);
    EXPECT_EQ(writer->totalSampleInput(), 0);
    EXPECT_TRUE(writer->finishWriter());
}

TEST_F(AssetWriterTest, TheAudioClockMovesOnlyWithAppendsThatSucceed) {
    auto writer = startedSoundWriter(AVFileTypeAppleM4A, "clock.m4a", _stereo);
    EXPECT_TRUE(writer->appendPCMData(sine(_stereo, 1000), _stereo));
    EXPECT_EQ(writer->totalSampleInput(), 1000);

    LogCapture log;
    AudioStreamBasicDescription broken = _stereo;
    broken.mBytesPerFrame = 3;
    EXPECT_FALSE(writer->appendPCMData(sine(_stereo, 1000), broken));
    EXPECT_EQ(log.count("Failed to create audio format description"), 1u);
    EXPECT_FALSE(writer->appendPCMData({}, _stereo));
    EXPECT_EQ(log.count("Failed to allocate sample buffer"), 1u);
    // The caller's own bad data leaves the writer sound; a refusal by the input does not.
    EXPECT_FALSE(writer->failed());
    // Mono into the stereo stream: the input refuses it.
    const AudioStreamBasicDescription mono = test::describePCM(44100, 1, SampleType::Int16);
    EXPECT_FALSE(writer->appendPCMData(sine(mono, 1000), mono));
    EXPECT_EQ(writer->totalSampleInput(), 1000);
    EXPECT_TRUE(writer->failed());

    EXPECT_TRUE(writer->appendPCMData(sine(_stereo, 500), _stereo));
    EXPECT_EQ(writer->totalSampleInput(), 1500);
    EXPECT_TRUE(writer->finishWriter());

    const test::DecodedMedia media = test::decodeMedia(_directory.file("clock.m4a"));
    ASSERT_TRUE(media.audio);
    EXPECT_GE(media.audio->sampleCount, 1500);
    EXPECT_LE(media.audio->sampleCount, 1500 + 1024);
}

TEST_F(AssetWriterTest, AnExistingTargetIsReplaced) {
    const std::string path = _directory.file("old.wav");
    std::ofstream(path) << std::string(100000, 'x');
    auto writer = startedSoundWriter(AVFileTypeWAVE, "old.wav", _stereo);
    ASSERT_TRUE(writer->appendPCMData(sine(_stereo, 2034), _stereo));
    ASSERT_TRUE(writer->finishWriter());

    const test::DecodedMedia media = test::decodeMedia(path);
    ASSERT_EQ(media.error, "");
    ASSERT_TRUE(media.audio);
    EXPECT_EQ(media.audio->codec, "adpcm_ima_wav");
    EXPECT_EQ(media.audio->sampleCount, 2034);  // two whole IMA ADPCM blocks of 1017
    EXPECT_LT(std::filesystem::file_size(path), 100000u);
}

TEST_F(AssetWriterTest, TargetsThatCannotBeWrittenFailTheStartWithOneLine) {
    const std::string occupied = _directory.file("occupied.wav");
    std::filesystem::create_directories(occupied + "/inside");
    auto blocked = FMAssetWriter::createWithFileType(AVFileTypeWAVE, occupied);
    blocked->addAudioStreamWithAudioStreamDescription(_stereo);
    LogCapture log;
    EXPECT_FALSE(blocked->startWriter());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].rfind("The file(" + occupied + ") allready exists, can not remove(", 0), 0u);

    log.clear();
    auto unreachable = FMAssetWriter::createWithFileType(AVFileTypeWAVE, _directory.file("missing/dir/a.wav"));
    unreachable->addAudioStreamWithAudioStreamDescription(_stereo);
    EXPECT_FALSE(unreachable->startWriter());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("No such file or directory"), std::string::npos) << log.lines()[0];
    EXPECT_FALSE(unreachable->appendPCMData(sine(_stereo, 100), _stereo));
    EXPECT_FALSE(unreachable->finishWriter());
}

TEST_F(AssetWriterTest, AnInputThatIsNeverReadyFailsTheWaitAndAReadyOneDoesNotWait) {
    std::string error;
    auto writer = MovieWriter::create(_directory.file("wait.wav"), MovieContainer::WAVE, &error);
    auto input =
        writer->addAudioInput({.codec = MovieAudioCodec::LinearPCM, .sampleRate = 44100, .channelCount = 2}, 20);
    ASSERT_NE(input, nullptr) << writer->errorDescription();
    // Before the header is written the input takes nothing: all eleven waits run out.
    EXPECT_FALSE(FMAssetWriter::waitWriteInputReady(*input));
    ASSERT_TRUE(writer->startWriting());
    EXPECT_TRUE(FMAssetWriter::waitWriteInputReady(*input));
    EXPECT_TRUE(writer->finishWriting());
}

TEST_F(AssetWriterTest, PooledPixelBuffersComeBackWhenReleased) {
    auto pool = PixelBufferPool::create(64, 48, AV_PIX_FMT_YUV420P, 2);
    ASSERT_NE(pool, nullptr);
    auto first = pool->createPixelBuffer();
    auto second = pool->createPixelBuffer();
    auto third = pool->createPixelBuffer();  // beyond the minimum: a new buffer
    ASSERT_TRUE(first && second && third);
    EXPECT_EQ(third->width(), 64);
    EXPECT_EQ(third->pixelFormat(), AV_PIX_FMT_YUV420P);
    const PixelBuffer* released = second.get();
    second.reset();
    EXPECT_EQ(pool->createPixelBuffer().get(), released);
    EXPECT_NE(first.get(), third.get());
}

TEST_F(AssetWriterTest, AFullDiskFailsTheWriterInsteadOfCrashing) {
    std::string error;
    auto writer = MovieWriter::create("/dev/full", MovieContainer::WAVE, &error);
    ASSERT_NE(writer, nullptr) << error;
    auto input =
        writer->addAudioInput({.codec = MovieAudioCodec::LinearPCM, .sampleRate = 44100, .channelCount = 2}, 20);
    ASSERT_NE(input, nullptr);
    writer->startWriting();
    auto format = AudioFormatDescription::create(_stereo, kAudioChannelLayoutTag_Stereo);
    bool refused = false;
    // A megabyte and more of PCM cannot stay in FFmpeg's write buffer.
    for (int block = 0; block < 100 && !refused; ++block) {
        auto buffer =
            MediaSampleBuffer::create(format, 4410, CMTime::make(1, 44100), CMTime::make(block * 4410, 44100));
        ASSERT_TRUE(buffer->setDataBuffer(sine(_stereo, 4410)));
        while (!input->isReadyForMoreMediaData() && !writer->hasFailed()) std::this_thread::yield();
        refused = !input->appendSampleBuffer(buffer);
    }
    EXPECT_TRUE(refused);
    EXPECT_FALSE(writer->finishWriting());
    EXPECT_NE(writer->errorDescription().find("No space left on device"), std::string::npos)
        << writer->errorDescription();
}

}  // namespace
}  // namespace qm
