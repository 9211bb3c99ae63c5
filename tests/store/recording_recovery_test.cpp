#include "store/SCRecordingRecovery.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "codec/QVAudioFrame2.h"
#include "foundation/QMCommon.h"
#include "foundation/QVSampleDescription.h"
#include "platform/Log.h"
#include "platform/UserDefaults.h"
#include "store/AMResourceMgr.h"
#include "store/SCRecordingJournal.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int kWidth = 32;
constexpr int kHeight = 24;
constexpr int kSampleRate = 8000;
constexpr int kSamplesPerBlock = 160;
constexpr int64_t kFrameStep = 40 * 705'600;          // 40 ms
constexpr int64_t kProvisionalDuration = 23'520'000;  // 1/30 s

std::array<uint8_t, 3> colourOfFrame(int index) {
    return {static_cast<uint8_t>(30 + 60 * index), static_cast<uint8_t>(220 - 50 * index), 90};
}

int16_t sampleValue(int64_t sample) { return static_cast<int16_t>((sample * 37) % 20000 - 10000); }

// A recording written by hand the way the movie writer writes one: frames and audio blocks in two
// storages, each block journaled after its bytes.
class HandMadeRecording {
public:
    explicit HandMadeRecording(std::chrono::system_clock::time_point date) {
        SCRecordingJournalHeader header;
        header.creationDate = date;
        header.width = kWidth;
        header.height = kHeight;
        header.sampleRate = kSampleRate;
        header.numberOfChannels = 1;
        header.sampleFormat = QVSampleFormatS16;
        journal =
            SCRecordingJournal::createInDirectory(SCResourceStorage::pathOfResourceStoragePath(), header, video, audio);
    }

    void addFrame() {
        const auto colour = colourOfFrame(_frames);
        std::vector<uint8_t> pixels;
        for (int i = 0; i < kWidth * kHeight; ++i) pixels.insert(pixels.end(), {colour[0], colour[1], colour[2], 255});
        const auto jpeg = SCResource::encodeCGImage(Bitmap::createWithOpaquePixels(kWidth, kHeight, pixels));
        const auto block =
            SCVideoBlock::createWithOffset(_videoEnd, jpeg.size(), (_frames + 1) * kFrameStep, kProvisionalDuration);
        video->appendData(jpeg);
        journal->appendVideoBlock(*block);
        _videoEnd += jpeg.size();
        ++_frames;
    }

    void addAudioBlock() {
        std::vector<int16_t> values;
        for (int i = 0; i < kSamplesPerBlock; ++i) values.push_back(sampleValue(_samples + i));
        const auto archive = SCResource::encodeAudioFrame(QVAudioFrame2::create(
            QVSampleFormatS16, 1, kSampleRate, kSamplesPerBlock, reinterpret_cast<const uint8_t*>(values.data())));
        const auto block = SCAudioBlock::createWithOffset(_audioEnd, archive.size(), _samples, kSamplesPerBlock);
        audio->appendData(archive);
        journal->appendAudioBlock(*block);
        _audioEnd += archive.size();
        _samples += kSamplesPerBlock;
    }

    std::shared_ptr<SCResourceStorage> video = SCResourceStorage::create();
    std::shared_ptr<SCResourceStorage> audio = SCResourceStorage::create();
    std::shared_ptr<SCRecordingJournal> journal;

private:
    int _frames = 0;
    uint64_t _videoEnd = 0;
    int64_t _samples = 0;
    uint64_t _audioEnd = 0;
};

class RecordingRecoveryTest : public ::testing::Test {
protected:
    std::shared_ptr<AMResourceMgr> startManager() const {
        return AMResourceMgr::createWithDefaults(UserDefaults::createWithPath(_user.file("defaults.sqlite3")));
    }
    static void truncateFile(const std::string& path, uint64_t length) {
        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(length)), 0);
    }

    test::PrivateUserDirectories _user{"recording_recovery_test"};
    const std::chrono::system_clock::time_point _date =
        std::chrono::system_clock::time_point(std::chrono::seconds(1'767'322'800));
};

TEST_F(RecordingRecoveryTest, OnlySyncedEntriesAreInTheJournal) {
    HandMadeRecording recording(_date);
    ASSERT_NE(recording.journal, nullptr);
    recording.addFrame();
    recording.addAudioBlock();
    recording.addFrame();

    auto contents = SCRecordingJournal::readJournalAtPath(recording.journal->path());
    ASSERT_TRUE(contents.has_value());
    EXPECT_TRUE(contents->videoBlocks.empty());
    EXPECT_TRUE(contents->audioBlocks.empty());
    EXPECT_EQ(contents->header.videoCacheFile, recording.video->cacheFile());
    EXPECT_EQ(contents->header.audioCacheFile, recording.audio->cacheFile());
    EXPECT_EQ(contents->header.creationDate, _date);
    EXPECT_EQ(contents->header.width, kWidth);
    EXPECT_EQ(contents->header.sampleRate, kSampleRate);
    EXPECT_EQ(contents->header.sampleFormat, QVSampleFormatS16);

    ASSERT_TRUE(recording.journal->sync());
    // The buffered bytes reached the cache file before the entries were written.
    EXPECT_GE(std::filesystem::file_size(*recording.video->cacheFile()), 2u);
    contents = SCRecordingJournal::readJournalAtPath(recording.journal->path());
    ASSERT_EQ(contents->videoBlocks.size(), 2u);
    ASSERT_EQ(contents->audioBlocks.size(), 1u);
    EXPECT_FALSE(contents->torn);
    const auto& second = *contents->videoBlocks[1];
    EXPECT_EQ(second.offset(), contents->videoBlocks[0]->length());
    EXPECT_EQ(second.timestamp(), 2 * kFrameStep);
    EXPECT_EQ(second.duration(), kProvisionalDuration);
    EXPECT_EQ(contents->audioBlocks[0]->numberOfSamples(), static_cast<uint64_t>(kSamplesPerBlock));
    EXPECT_EQ(std::filesystem::file_size(*recording.video->cacheFile()), second.offset() + second.length());
}

TEST_F(RecordingRecoveryTest, ATornOrDamagedEntryEndsTheReading) {
    HandMadeRecording recording(_date);
    for (int i = 0; i < 5; ++i) recording.addFrame();
    ASSERT_TRUE(recording.journal->sync());
    const std::string path = recording.journal->path();
    const auto length = std::filesystem::file_size(path);

    // Each block entry is 4 + 8 + 33 bytes; a cut inside the last one drops only that one.
    truncateFile(path, length - 3);
    auto contents = SCRecordingJournal::readJournalAtPath(path);
    ASSERT_TRUE(contents.has_value());
    EXPECT_EQ(contents->videoBlocks.size(), 4u);
    EXPECT_TRUE(contents->torn);

    // A changed byte inside the third entry's payload fails its checksum.
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(length - 3 * 45 + 20));
        file.put('\x7f');
    }
    contents = SCRecordingJournal::readJournalAtPath(path);
    EXPECT_EQ(contents->videoBlocks.size(), 2u);
    EXPECT_TRUE(contents->torn);

    std::ofstream(path, std::ios::binary | std::ios::trunc) << "not a journal";
    EXPECT_FALSE(SCRecordingJournal::readJournalAtPath(path).has_value());
}

TEST_F(RecordingRecoveryTest, AJournalCutAtAnyByteKeepsItsWholeEntries) {
    HandMadeRecording recording(_date);
    for (int i = 0; i < 3; ++i) recording.addFrame();
    ASSERT_TRUE(recording.journal->sync());
    std::ifstream stream(recording.journal->path(), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    constexpr size_t entryLength = 45;
    const size_t headerEnd = bytes.size() - 3 * entryLength;

    const std::string cut = _user.file("cut" + std::string(SCRecordingJournal::fileExtension));
    for (size_t length = 0; length <= bytes.size(); ++length) {
        std::ofstream(cut, std::ios::binary | std::ios::trunc) << bytes.substr(0, length);
        const auto contents = SCRecordingJournal::readJournalAtPath(cut);
        if (length < headerEnd) {
            EXPECT_FALSE(contents.has_value()) << length;
            continue;
        }
        ASSERT_TRUE(contents.has_value()) << length;
        EXPECT_EQ(contents->videoBlocks.size(), (length - headerEnd) / entryLength) << length;
        EXPECT_EQ(contents->torn, (length - headerEnd) % entryLength != 0) << length;
    }
}

TEST_F(RecordingRecoveryTest, ASyncFailsWhenTheCacheFileLacksTheBytes) {
    HandMadeRecording recording(_date);
    recording.addFrame();
    ASSERT_TRUE(recording.journal->sync());
    recording.addFrame();
    recording.video->flushCacheBuffer();
    truncateFile(*recording.video->cacheFile(), 10);
    EXPECT_FALSE(recording.journal->sync());
    EXPECT_EQ(SCRecordingJournal::readJournalAtPath(recording.journal->path())->videoBlocks.size(), 1u);
}

TEST_F(RecordingRecoveryTest, TheManagerRecoversAnOrphanedRecordingOnce) {
    std::string journalPath;
    std::optional<std::string> videoFile;
    {
        HandMadeRecording recording(_date);
        for (int i = 0; i < 3; ++i) {
            recording.addFrame();
            recording.addAudioBlock();
        }
        ASSERT_TRUE(recording.journal->sync());
        // Not journaled: lost with the process.
        recording.addFrame();
        journalPath = recording.journal->path();
        videoFile = recording.video->cacheFile();
    }
    ASSERT_TRUE(std::filesystem::exists(journalPath));

    const auto manager = startManager();
    const auto recordings = manager->recordingResources();
    ASSERT_EQ(recordings.size(), 1u);
    const auto& resource = recordings[0];
    EXPECT_EQ(resource->humanReadableName(), "Recovered recording " + QMCommon::stringFromDate(_date));
    EXPECT_FALSE(std::filesystem::exists(journalPath));

    const auto video = resource->videoResource();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->storage()->cacheFile(), videoFile);
    EXPECT_EQ(video->width(), kWidth);
    ASSERT_EQ(video->numberOfFrames(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(video->blocks()[i]->timestamp(), (i + 1) * kFrameStep);
        EXPECT_EQ(video->blocks()[i]->duration(), i < 2 ? kFrameStep : kProvisionalDuration);
        const auto picture = video->cgImageAtTimestamp((i + 1) * kFrameStep);
        ASSERT_NE(picture, nullptr);
        const auto pixel = picture->pixelAt(kWidth / 2, kHeight / 2);
        const auto colour = colourOfFrame(i);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(pixel[c], colour[c], 6) << "frame " << i;
    }

    const auto audio = resource->audioResource();
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->sampleRate(), kSampleRate);
    EXPECT_EQ(audio->sampleFormat(), QVSampleFormatS16);
    ASSERT_EQ(audio->sampleRange().length(), 3 * kSamplesPerBlock);
    const auto samples = audio->sampleBufferWithRange(QVRange(0, 3 * kSamplesPerBlock));
    ASSERT_NE(samples, nullptr);
    const auto bytes = samples->data();
    ASSERT_EQ(bytes.size(), static_cast<size_t>(3 * kSamplesPerBlock * 2));
    for (int64_t i = 0; i < 3 * kSamplesPerBlock; i += 23) {
        int16_t value = 0;
        std::memcpy(&value, &bytes[static_cast<size_t>(i) * 2], 2);
        EXPECT_EQ(value, sampleValue(i)) << i;
    }

    // The record is durable and the next start does not recover it again.
    const auto again = startManager()->recordingResources();
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(again[0]->identifier(), resource->identifier());
    EXPECT_EQ(again[0]->videoResource()->numberOfFrames(), 3);
}

TEST_F(RecordingRecoveryTest, BlocksPastTheEndOfACacheFileAreLeftOut) {
    {
        HandMadeRecording recording(_date);
        for (int i = 0; i < 3; ++i) {
            recording.addFrame();
            recording.addAudioBlock();
        }
        ASSERT_TRUE(recording.journal->sync());
        const auto contents = SCRecordingJournal::readJournalAtPath(recording.journal->path());
        const auto& lastFrame = *contents->videoBlocks.back();
        truncateFile(*recording.video->cacheFile(), lastFrame.offset() + lastFrame.length() - 1);
        truncateFile(*recording.audio->cacheFile(), contents->audioBlocks[1]->offset());
    }
    const auto recordings = startManager()->recordingResources();
    ASSERT_EQ(recordings.size(), 1u);
    const auto video = recordings[0]->videoResource();
    ASSERT_EQ(video->numberOfFrames(), 2);
    EXPECT_EQ(video->blocks()[1]->duration(), kProvisionalDuration);
    EXPECT_NE(video->cgImageAtTimestamp(2 * kFrameStep), nullptr);
    EXPECT_EQ(recordings[0]->audioResource()->sampleRange().length(), kSamplesPerBlock);
}

TEST_F(RecordingRecoveryTest, AMediumWithoutAWholeBlockIsDropped) {
    std::optional<std::string> audioFile;
    {
        HandMadeRecording recording(_date);
        recording.addFrame();
        recording.addAudioBlock();
        ASSERT_TRUE(recording.journal->sync());
        audioFile = recording.audio->cacheFile();
        truncateFile(*audioFile, 0);
    }
    const auto recordings = startManager()->recordingResources();
    ASSERT_EQ(recordings.size(), 1u);
    EXPECT_EQ(recordings[0]->audioResource(), nullptr);
    EXPECT_EQ(recordings[0]->videoResource()->numberOfFrames(), 1);
    EXPECT_FALSE(std::filesystem::exists(*audioFile));
}

TEST_F(RecordingRecoveryTest, AnUnrecoverableOrphanIsRemovedWithOneLine) {
    std::string withoutCaches;
    {
        HandMadeRecording recording(_date);
        recording.addFrame();
        recording.addAudioBlock();
        ASSERT_TRUE(recording.journal->sync());
        withoutCaches = recording.journal->path();
        recording.video->cleanCache();
        recording.audio->cleanCache();
    }
    const std::string damaged =
        SCResourceStorage::pathOfResourceStoragePath() + "/damaged" + SCRecordingJournal::fileExtension;
    std::ofstream(damaged) << "QMRJ1\n\x03";

    LogCapture log;
    EXPECT_TRUE(startManager()->recordingResources().empty());
    EXPECT_EQ(log.count("Removed an unrecoverable recording: " + withoutCaches), 1u);
    EXPECT_EQ(log.count("Removed an unrecoverable recording: " + damaged), 1u);
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(withoutCaches));
    EXPECT_FALSE(std::filesystem::exists(damaged));
}

TEST_F(RecordingRecoveryTest, AJournalInUseIsLeftAlone) {
    auto recording = std::make_unique<HandMadeRecording>(_date);
    recording->addFrame();
    ASSERT_TRUE(recording->journal->sync());
    EXPECT_TRUE(startManager()->recordingResources().empty());
    EXPECT_TRUE(std::filesystem::exists(recording->journal->path()));

    recording.reset();
    EXPECT_EQ(startManager()->recordingResources().size(), 1u);
}

TEST_F(RecordingRecoveryTest, ARemovedJournalLeavesNothingToRecover) {
    HandMadeRecording recording(_date);
    recording.addFrame();
    ASSERT_TRUE(recording.journal->sync());
    recording.journal->remove();
    EXPECT_FALSE(std::filesystem::exists(recording.journal->path()));
    recording.journal.reset();
    EXPECT_TRUE(startManager()->recordingResources().empty());
    EXPECT_TRUE(std::filesystem::exists(*recording.video->cacheFile()));
}

}  // namespace
}  // namespace qm
