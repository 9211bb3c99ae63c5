#include <gtest/gtest.h>

#include "DecodedMedia.h"
#include "ExportFakes.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using test::FakeSourceRecipe;
using test::SampleType;

struct FileTypeCase {
    const char* name;
    const char* extension;
    std::string_view fileType;
    std::optional<uint32_t> formatID;  // set after creation when given
    const char* audioCodec;
    bool storesVideo;
    SampleType sampleType;
    int channels;
    // Samples a decoder may give beyond the input: the encoder's last frame is padded.
    int paddingSamples;
};

const FileTypeCase kCases[] = {
    {"MPEG4", "mp4", AVFileTypeMPEG4, std::nullopt, "aac", true, SampleType::Int16, 2, 1024},
    {"QuickTime", "mov", AVFileTypeQuickTimeMovie, std::nullopt, "aac", true, SampleType::Float32, 2, 1024},
    {"M4A", "m4a", AVFileTypeAppleM4A, std::nullopt, "aac", false, SampleType::Int16, 2, 1024},
    {"MP3", "mp3", AVFileTypeMPEGLayer3, std::nullopt, "mp3", false, SampleType::Float32, 1, 1152},
    {"WAVE", "wav", AVFileTypeWAVE, std::nullopt, "adpcm_ima_wav", false, SampleType::Int16, 2, 1017},
    {"WAVELinearPCM", "wav", AVFileTypeWAVE, kAudioFormatLinearPCM, "pcm_s16le", false, SampleType::Float32, 1, 0},
};

class ExportFileTypeTest : public ::testing::TestWithParam<FileTypeCase> {
protected:
    test::TemporaryDirectory _directory;
};

// Three seconds of 160x120 pictures at 15 fps and a 44.1 kHz sine, pulled in blocks of 1000
// samples: 45 frames and 132300 samples go in.
TEST_P(ExportFileTypeTest, ExportDecodesToThePicturesAndSamplesThatWentIn) {
    const FileTypeCase& type = GetParam();
    const std::string path = _directory.file(std::string(type.name) + "." + type.extension);
    auto writer = FMAssetWriter::createWithFileType(type.fileType, path);
    if (type.formatID) writer->setFormatID(*type.formatID);
    FakeSourceRecipe recipe{.channels = type.channels, .sampleType = type.sampleType};
    writer->addVideoStreamWithWidth(recipe.width, recipe.height, recipe.framesPerSecond);
    writer->addAudioStreamWithAudioStreamDescription(
        test::describePCM(recipe.sampleRate, recipe.channels, recipe.sampleType));
    EXPECT_EQ(writer->videoValidate(), type.storesVideo);

    auto task = FMAssetWriterTask::createWithAssetWrite(writer);
    auto source = std::make_shared<test::FakeExportSource>(recipe);
    task->setDataSource(source);
    const auto events = test::runToCompletion(*task);
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().action, QVMuxerTaskActionComplete);
    EXPECT_EQ(events.back().value, 0.0);
    EXPECT_EQ(writer->totalSampleInput(), 132300);

    const test::DecodedMedia media = test::decodeMedia(path);
    ASSERT_EQ(media.error, "");
    EXPECT_NEAR(media.durationSeconds, 3.0, 0.05);
    ASSERT_TRUE(media.audio);
    EXPECT_EQ(media.audio->codec, type.audioCodec);
    EXPECT_EQ(media.audio->sampleRate, 44100);
    EXPECT_EQ(media.audio->channels, type.channels);
    EXPECT_GE(media.audio->sampleCount, 132300);
    EXPECT_LE(media.audio->sampleCount, 132300 + type.paddingSamples);
    EXPECT_NEAR(media.audio->peak, 0.5, 0.06);

    ASSERT_EQ(media.video.has_value(), type.storesVideo);
    if (!type.storesVideo) return;
    EXPECT_EQ(media.video->codec, "h264");
    EXPECT_EQ(media.video->width, 160);
    EXPECT_EQ(media.video->height, 120);
    EXPECT_EQ(media.video->frameCount, 45);
    ASSERT_EQ(media.video->frameTimes.size(), 45u);
    EXPECT_NEAR(media.video->frameTimes.front(), 0.0, 1e-3);
    EXPECT_NEAR(media.video->frameTimes.back(), 44.0 / 15, 1e-3);
    // Frame k is the colour (k/45, 0.3, 1 - k/45) with a 20x20 yellow square (1/48 of the picture).
    // In BT.709 limited range the means are 81.7 for the first frame and 111.2 for the last.
    EXPECT_NEAR(media.video->meanLuma.front(), 81.7, 3);
    EXPECT_NEAR(media.video->meanLuma.back(), 111.2, 3);
}

INSTANTIATE_TEST_SUITE_P(EveryFileType, ExportFileTypeTest, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<FileTypeCase>& param) {
                             return std::string(param.param.name);
                         });

}  // namespace
}  // namespace qm
