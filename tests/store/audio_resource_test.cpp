#include "store/SCAudioResource.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "codec/QVAudioFrame2.h"
#include "codec/QVTimebase.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "store/SCResource.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int64_t kRate = 48000;

// The test signal: a value per sample position and channel that no two nearby samples share.
int16_t sampleValue(int64_t position, int channel) {
    return static_cast<int16_t>((position * 3 + channel * 1000) % 30000);
}

class AudioResourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    // Stereo S16 frames of the given sizes, stored the way a writer stores them.
    static std::shared_ptr<SCAudioResource> makeAudio(const std::vector<int>& blockSizes) {
        auto storage = SCResourceStorage::create();
        std::vector<std::shared_ptr<SCAudioBlock>> blocks;
        uint64_t offset = 0;
        int64_t index = 0;
        for (const int count : blockSizes) {
            std::vector<int16_t> samples;
            for (int i = 0; i < count; ++i) {
                for (int c = 0; c < 2; ++c) samples.push_back(sampleValue(index + i, c));
            }
            const auto frame = QVAudioFrame2::create(QVSampleFormatS16, 2, kRate, count,
                                                     reinterpret_cast<const uint8_t*>(samples.data()));
            const auto bytes = SCResource::encodeAudioFrame(frame);
            storage->appendData(bytes);
            blocks.push_back(SCAudioBlock::createWithOffset(offset, bytes.size(), index, count));
            offset += bytes.size();
            index += count;
        }
        storage->flushCacheBuffer();
        return SCAudioResource::createWithDataStorage(storage, blocks, kRate, 2, QVSampleFormatS16, 0);
    }

    // Whether `buffer` holds exactly the test signal over `range`.
    static void expectSignal(const std::shared_ptr<QVSampleBuffer>& buffer, const QVRange& range) {
        ASSERT_TRUE(buffer);
        EXPECT_TRUE(buffer->sampleRange().isEqualRange(range)) << buffer->sampleRange().description();
        const auto data = buffer->data();
        ASSERT_EQ(data.size(), static_cast<size_t>(range.length()) * 4);
        for (int64_t i = 0; i < range.length(); ++i) {
            for (int c = 0; c < 2; ++c) {
                int16_t value = 0;
                std::memcpy(&value, data.data() + i * 4 + c * 2, 2);
                ASSERT_EQ(value, sampleValue(range.location() + i, c)) << "sample " << range.location() + i;
            }
        }
    }

    static std::vector<int64_t> starts(const std::vector<std::shared_ptr<SCAudioBlock>>& blocks) {
        std::vector<int64_t> result;
        for (const auto& block : blocks) result.push_back(static_cast<int64_t>(block->indexOfSamples()));
        return result;
    }

    test::PrivateUserDirectories _user{"audio_resource_test"};
    const std::string _directory = _user.path();
};

TEST_F(AudioResourceTest, ConstructionRefusesZeroChannelsAndResolvesTheDefaultLayout) {
    LogCapture capture;
    EXPECT_EQ(SCAudioResource::createWithDataStorage(SCResourceStorage::create(), {}, kRate, 0, QVSampleFormatS16, 0),
              nullptr);
    EXPECT_EQ(capture.count("Error channel settings"), 1u);

    EXPECT_EQ(makeAudio({10})->chsLayout(), QVAudioFrame2::defaultChannelLayoutByChannel(2));
    const auto empty = SCAudioResource::createWithDataStorage(SCResourceStorage::create(), {}, kRate, 2,
                                                              QVSampleFormatS16, 0);
    EXPECT_EQ(empty->duration(), 0);
    EXPECT_EQ(empty->sampleBufferWithRange(QVRange(0, 10)), nullptr);
}

TEST_F(AudioResourceTest, BlockSearchSkipsBlocksEndingAtTheStartAndStopsAtBlocksStartingAtTheEnd) {
    const auto audio = makeAudio({1000, 500, 2000});
    EXPECT_TRUE(audio->sampleRange().isEqualRange(QVRange(0, 3500)));
    EXPECT_EQ(audio->duration(), 3500 * QVTimebase / kRate);
    EXPECT_EQ(starts(audio->quickFindBlocksInRange(QVRange(1000, 500))), (std::vector<int64_t>{1000}));
    EXPECT_EQ(starts(audio->quickFindBlocksInRange(QVRange(999, 2))), (std::vector<int64_t>{0, 1000}));
    EXPECT_EQ(starts(audio->quickFindBlocksInRange(QVRange(0, 3500))), (std::vector<int64_t>{0, 1000, 1500}));
    EXPECT_TRUE(audio->quickFindBlocksInRange(QVRange(1500, 0)).empty());
    EXPECT_TRUE(audio->quickFindBlocksInRange(QVRange(3500, 10)).empty());
}

TEST_F(AudioResourceTest, ReadSamplesGivesWholeBlocks) {
    const auto audio = makeAudio({1000, 500, 2000});
    expectSignal(audio->readSamplesWithRange(QVRange(1200, 10)), QVRange(1000, 500));
    expectSignal(audio->readSamplesWithRange(QVRange(999, 600)), QVRange(0, 3500));
    EXPECT_EQ(audio->readSamplesWithRange(QVRange(4000, 10)), nullptr);
}

TEST_F(AudioResourceTest, SampleBufferWithRangeGivesExactlyTheSamplesThatExist) {
    const auto audio = makeAudio({1000, 500, 2000});
    // Last sample of one block and first of the next.
    expectSignal(audio->sampleBufferWithRange(QVRange(1499, 2)), QVRange(1499, 2));
    // Clipped at both ends, never padded.
    expectSignal(audio->sampleBufferWithRange(QVRange(-5, 10)), QVRange(0, 5));
    expectSignal(audio->sampleBufferWithRange(QVRange(3490, 100)), QVRange(3490, 10));
    EXPECT_EQ(audio->sampleBufferWithRange(QVRange(3500, 10)), nullptr);
    EXPECT_EQ(audio->sampleBufferWithRange(QVRange(-10, 5)), nullptr);
}

TEST_F(AudioResourceTest, OneRunCacheAnswersInsideItAndIsReplacedOnAMiss) {
    const auto audio = makeAudio({1000, 500, 2000});
    expectSignal(audio->sampleBufferWithRange(QVRange(10, 20)), QVRange(10, 20));
    // With the file gone, only the cached run can still answer.
    audio->invalidate();
    {
        LogCapture capture;
        expectSignal(audio->sampleBufferWithRange(QVRange(30, 900)), QVRange(30, 900));
        EXPECT_TRUE(capture.lines().empty());
    }
    LogCapture capture;
    EXPECT_EQ(audio->sampleBufferWithRange(QVRange(1200, 5)), nullptr);
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{"Error: No process found.", "Failed to decode audio frame..."}));
    // The failed miss left no cache: the first run is gone too.
    EXPECT_EQ(audio->sampleBufferWithRange(QVRange(10, 20)), nullptr);
    EXPECT_EQ(capture.count("Failed to decode audio frame..."), 2u);
}

TEST_F(AudioResourceTest, ConcurrentReadersEachGetTheirOwnSamples) {
    std::vector<int> sizes(40, 1024);
    const auto audio = makeAudio(sizes);
    std::vector<std::thread> readers;
    std::vector<int> failures(4, 0);
    for (int r = 0; r < 4; ++r) {
        readers.emplace_back([&, r] {
            for (int i = 0; i < 50; ++i) {
                const QVRange range((r * 9000 + i * 700) % 40000, 300);
                const auto buffer = audio->sampleBufferWithRange(range);
                int16_t first = 0;
                if (buffer) std::memcpy(&first, buffer->data().data(), 2);
                if (!buffer || !buffer->sampleRange().isEqualRange(range) || first != sampleValue(range.location(), 0)) {
                    ++failures[r];
                }
            }
        });
    }
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(failures, (std::vector<int>{0, 0, 0, 0}));
}

TEST_F(AudioResourceTest, DamagedBlocksGiveNothingWithTheDecodeLine) {
    const auto good = makeAudio({100, 100});
    const auto& blocks = good->blocks();
    // A block past the end of the file, and one whose bytes archive another class.
    const uint64_t end = blocks[1]->offset() + blocks[1]->length();
    const auto foreign = KeyedArchiver::archivedDataWithRootObject(SCAudioBlock::createWithOffset(1, 2, 3, 4));
    const auto extra = SCResourceStorage::create();
    extra->appendData(foreign);
    extra->flushCacheBuffer();
    const auto pastEnd = SCAudioResource::createWithDataStorage(
        good->storage(), {blocks[0], SCAudioBlock::createWithOffset(end + 10, 500, 100, 100)}, kRate, 2, QVSampleFormatS16, 0);
    const auto wrongClass = SCAudioResource::createWithDataStorage(
        extra, {SCAudioBlock::createWithOffset(0, foreign.size(), 0, 4)}, kRate, 2, QVSampleFormatS16, 0);

    LogCapture capture;
    EXPECT_EQ(pastEnd->sampleBufferWithRange(QVRange(50, 100)), nullptr);
    EXPECT_EQ(wrongClass->sampleBufferWithRange(QVRange(0, 4)), nullptr);
    EXPECT_EQ(capture.count("Failed to decode audio frame..."), 2u);
    // The good block alone still reads.
    expectSignal(pastEnd->sampleBufferWithRange(QVRange(0, 100)), QVRange(0, 100));

    // A block whose count disagrees with its frame is refused.
    const auto lying = SCAudioResource::createWithDataStorage(
        good->storage(), {SCAudioBlock::createWithOffset(0, blocks[0]->length(), 0, 90)}, kRate, 2, QVSampleFormatS16, 0);
    EXPECT_EQ(lying->sampleBufferWithRange(QVRange(0, 10)), nullptr);
    EXPECT_EQ(capture.count("Error input audio frame."), 1u);
}

TEST_F(AudioResourceTest, ArchiveRoundTripKeepsFormatBlocksAndArtwork) {
    const auto audio = makeAudio({300, 200});
    std::vector<uint8_t> red(16 * 8 * 4);
    for (size_t i = 0; i < red.size(); i += 4) red[i] = 255, red[i + 3] = 255;
    audio->setArtworkImage(Bitmap::createWithPixels(16, 8, red));

    const auto decoded = std::dynamic_pointer_cast<SCAudioResource>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(audio)));
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->sampleDescription().isEqualTo(audio->sampleDescription()));
    EXPECT_EQ(starts(decoded->blocks()), (std::vector<int64_t>{0, 300}));
    expectSignal(decoded->sampleBufferWithRange(QVRange(250, 100)), QVRange(250, 100));
    const auto artwork = decoded->thumbnail();
    ASSERT_TRUE(artwork);
    EXPECT_GT(artwork->pixelAt(8, 4)[0], 240);
}

TEST_F(AudioResourceTest, ThumbnailWithoutArtworkIsTheMusicPictureAndIsKept) {
    const auto plain = makeAudio({10});
    const auto music = plain->thumbnail();
    EXPECT_EQ(music, SCAudioResource::defaultThumbnail());
    ASSERT_TRUE(music);
    // White ink on the note's head.
    EXPECT_EQ(music->pixelAt(170, 210), (std::array<uint8_t, 4>{255, 255, 255, 255}));

    // Artwork set after the first read does not show.
    std::vector<uint8_t> green(8 * 8 * 4, 0);
    for (size_t i = 0; i < green.size(); i += 4) green[i + 1] = 255, green[i + 3] = 255;
    plain->setArtworkImage(Bitmap::createWithPixels(8, 8, green));
    EXPECT_EQ(plain->thumbnail(), music);
}

TEST_F(AudioResourceTest, InvalidateDeletesSamplesAndArtworkFiles) {
    const auto audio = makeAudio({10});
    std::vector<uint8_t> pixels(4 * 4 * 4, 255);
    audio->setArtworkImage(Bitmap::createWithPixels(4, 4, pixels));
    const std::filesystem::path directory = SCResourceStorage::pathOfResourceStoragePath();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()), 2);
    audio->invalidate();
    EXPECT_TRUE(std::filesystem::is_empty(directory));
    EXPECT_FALSE(audio->storage()->cacheFile());
}

}  // namespace
}  // namespace qm
