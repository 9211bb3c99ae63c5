#include <gtest/gtest.h>

#include <filesystem>

#include "DecodedMedia.h"
#include "ExportFakes.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using test::FakeSourceRecipe;
using test::TaskEvent;

std::vector<double> progressValues(const std::vector<TaskEvent>& events) {
    std::vector<double> values;
    for (const TaskEvent& event : events) {
        if (event.action == QVMuxerTaskActionProgress) values.push_back(*event.value);
    }
    return values;
}

class AssetWriterTaskTest : public ::testing::Test {
protected:
    std::shared_ptr<FMAssetWriterTask> makeTask(std::string_view fileType, const std::string& name,
                                                const FakeSourceRecipe& recipe, bool addVideo, bool addAudio) {
        _path = _directory.file(name);
        auto writer = FMAssetWriter::createWithFileType(fileType, _path);
        if (addVideo) writer->addVideoStreamWithWidth(recipe.width, recipe.height, recipe.framesPerSecond);
        if (addAudio) {
            writer->addAudioStreamWithAudioStreamDescription(
                test::describePCM(recipe.sampleRate, recipe.channels, recipe.sampleType));
        }
        auto task = FMAssetWriterTask::createWithAssetWrite(writer);
        _source = std::make_shared<test::FakeExportSource>(recipe);
        task->setDataSource(_source);
        return task;
    }

    test::TemporaryDirectory _directory;
    std::string _path;
    std::shared_ptr<test::FakeExportSource> _source;
};

TEST_F(AssetWriterTaskTest, FailedStartReportsStartThenCompleteOneAndAsksTheSourceNothing) {
    // A movie without a picture size cannot start, even though it would carry sound.
    auto task = makeTask(AVFileTypeMPEG4, "nosize.mp4", FakeSourceRecipe{}, false, true);
    const auto events = test::runToCompletion(*task);

    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].action, QVMuxerTaskActionStart);
    EXPECT_FALSE(events[0].value);
    EXPECT_EQ(events[1].action, QVMuxerTaskActionComplete);
    EXPECT_EQ(events[1].value, 1.0);
    EXPECT_EQ(_source->videoCalls + _source->audioCalls, 0);
    EXPECT_FALSE(std::filesystem::exists(_path));
}

TEST_F(AssetWriterTaskTest, CancelDuringTheFirstStepStillFinishesAPartialFileAndCompletesWithZero) {
    auto task = makeTask(AVFileTypeMPEG4, "cancelled.mp4", FakeSourceRecipe{}, true, true);
    _source->cancelOnFirstPicture = true;
    const auto events = test::runToCompletion(*task);

    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].action, QVMuxerTaskActionStart);
    EXPECT_EQ(events[1].action, QVMuxerTaskActionProgress);
    EXPECT_EQ(events[1].value, 0.0);
    EXPECT_EQ(events[2].action, QVMuxerTaskActionComplete);
    EXPECT_EQ(events[2].value, 0.0);
    EXPECT_TRUE(task->cancelled());
    EXPECT_EQ(_source->videoCalls, 1);
    EXPECT_EQ(_source->audioCalls, 0);

    const test::DecodedMedia media = test::decodeMedia(_path);
    ASSERT_EQ(media.error, "");
    ASSERT_TRUE(media.video);
    EXPECT_EQ(media.video->frameCount, 1);
}

TEST_F(AssetWriterTaskTest, AudioOnlyTypeRunsOnTheAudioClockAlone) {
    // 132300 samples in blocks of 1000: 133 blocks, then the empty answer that ends audio.
    auto task = makeTask(AVFileTypeAppleM4A, "sound.m4a", FakeSourceRecipe{}, true, true);
    const auto events = test::runToCompletion(*task);

    EXPECT_EQ(_source->videoCalls, 0);
    EXPECT_EQ(_source->audioCalls, 134);
    EXPECT_EQ(task->totalSamples(), 132300);
    const std::vector<double> progress = progressValues(events);
    ASSERT_EQ(progress.size(), 134u);
    // Each block reports the time of its first sample; the last step leaves the clock where it was.
    for (int block = 0; block < 133; ++block) {
        EXPECT_NEAR(progress[static_cast<size_t>(block)], block * 1000.0 / 132300, 1e-6) << block;
    }
    EXPECT_NEAR(progress.back(), 132000.0 / 132300, 1e-6);
    EXPECT_EQ(events.back().action, QVMuxerTaskActionComplete);
    EXPECT_EQ(events.back().value, 0.0);
}

TEST_F(AssetWriterTaskTest, WithoutAnAudioStreamOnlyVideoStepsRun) {
    auto task = makeTask(AVFileTypeQuickTimeMovie, "silent.mov", FakeSourceRecipe{}, true, false);
    const auto events = test::runToCompletion(*task);

    // 45 pictures and the null one that ends video; progress is frame k's time over 3 s.
    EXPECT_EQ(_source->videoCalls, 46);
    EXPECT_EQ(_source->audioCalls, 0);
    const std::vector<double> progress = progressValues(events);
    ASSERT_EQ(progress.size(), 46u);
    for (int frame = 0; frame < 45; ++frame) EXPECT_NEAR(progress[static_cast<size_t>(frame)], frame / 45.0, 1e-6);
    EXPECT_NEAR(progress.back(), 44 / 45.0, 1e-6);

    const test::DecodedMedia media = test::decodeMedia(_path);
    ASSERT_TRUE(media.video);
    EXPECT_EQ(media.video->frameCount, 45);
    EXPECT_FALSE(media.audio);
}

TEST_F(AssetWriterTaskTest, ASourceThatDoesNotAnswerForAudioEndsAudioAtTheFirstAudioStep) {
    FakeSourceRecipe recipe;
    recipe.audio = false;
    auto task = makeTask(AVFileTypeMPEG4, "noanswer.mp4", recipe, true, true);
    const auto events = test::runToCompletion(*task);

    EXPECT_EQ(_source->audioCalls, 1);
    EXPECT_EQ(_source->videoCalls, 46);
    EXPECT_EQ(task->totalSamples(), 0);
    EXPECT_EQ(events.back().value, 0.0);
}

TEST_F(AssetWriterTaskTest, LengthIsZeroWhenTheSourceDoesNotAnswer) {
    auto task = FMAssetWriterTask::createWithAssetWrite(FMAssetWriter::createWithFileType(AVFileTypeWAVE, "x.wav"));
    EXPECT_EQ(task->lengthOfDataSource(), 0);
    task->setDataSource(std::make_shared<FMAssetWriterTaskDataSource>());
    EXPECT_EQ(task->lengthOfDataSource(), 0);
    task->setDataSource(std::make_shared<test::FakeExportSource>(FakeSourceRecipe{}));
    EXPECT_EQ(task->lengthOfDataSource(), 3 * QVTimebase);
}

}  // namespace
}  // namespace qm
