#include <gtest/gtest.h>

#include "DecodedMedia.h"
#include "ExportFakes.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

// Ten minutes at 160x120 and 10 fps with a mono 44.1 kHz track, pulled in blocks of 1000 samples
// (blocks that do not line up with frames or with AAC's 1024). A flash and a beep mark the middle
// of every minute: 30 s, 90 s, ... 570 s. Both must come out where they went in, within a frame.
TEST(ExportSyncTest, FlashAndBeepStayWithinAFrameOverTenMinutes) {
    test::TemporaryDirectory directory;
    const std::string path = directory.file("ten-minutes.mp4");
    const test::FakeSourceRecipe recipe{.framesPerSecond = 10,
                                        .frameCount = 6000,
                                        .channels = 1,
                                        .sampleType = test::SampleType::Float32,
                                        .totalSamples = 600 * 44100,
                                        .markPeriodSeconds = 60};
    auto writer = FMAssetWriter::createWithFileType(AVFileTypeMPEG4, path);
    writer->addVideoStreamWithWidth(recipe.width, recipe.height, recipe.framesPerSecond);
    writer->addAudioStreamWithAudioStreamDescription(
        test::describePCM(recipe.sampleRate, recipe.channels, recipe.sampleType));
    auto task = FMAssetWriterTask::createWithAssetWrite(writer);
    task->setDataSource(std::make_shared<test::FakeExportSource>(recipe));
    const auto events = test::runToCompletion(*task);
    ASSERT_FALSE(events.empty());
    ASSERT_EQ(events.back().action, QVMuxerTaskActionComplete);

    const test::DecodedMedia media = test::decodeMedia(path);
    ASSERT_EQ(media.error, "");
    ASSERT_TRUE(media.video && media.audio);
    EXPECT_EQ(media.video->frameCount, 6000);
    EXPECT_NEAR(media.durationSeconds, 600.0, 0.05);
    const double frame = 1.0 / recipe.framesPerSecond;
    ASSERT_EQ(media.video->whiteFrameTimes.size(), 10u);
    ASSERT_EQ(media.audio->onsetTimes.size(), 10u);
    for (size_t mark = 0; mark < 10; ++mark) {
        const double expected = 30.0 + 60.0 * static_cast<double>(mark);
        const double flash = media.video->whiteFrameTimes[mark];
        const double beep = media.audio->onsetTimes[mark];
        EXPECT_NEAR(flash, expected, frame / 2) << "flash " << mark;
        EXPECT_NEAR(beep, expected, frame / 2) << "beep " << mark;
        EXPECT_LT(std::abs(flash - beep), frame) << "mark " << mark;
    }
}

}  // namespace
}  // namespace qm
