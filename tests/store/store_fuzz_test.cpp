// Randomised damage to store archives, cache files and block lists: every case must give
// nothing or something usable, never crash (run under ASan/UBSan).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "codec/QVAudioFrame2.h"
#include "codec/QVTimebase.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCResource.h"
#include "store/SCVideoResource.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

class StoreFuzzTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    // Stereo S16 frames of varied sizes.
    static std::shared_ptr<SCAudioResource> makeAudio(std::mt19937_64& random, int frames) {
        auto storage = SCResourceStorage::create();
        std::vector<std::shared_ptr<SCAudioBlock>> blocks;
        uint64_t offset = 0, index = 0;
        for (int k = 0; k < frames; ++k) {
            const int count = 64 + static_cast<int>(random() % 400);
            std::vector<int16_t> samples(count * 2);
            for (auto& s : samples) s = static_cast<int16_t>(random());
            const auto bytes = SCResource::encodeAudioFrame(
                QVAudioFrame2::create(1, 2, 48000, count, reinterpret_cast<const uint8_t*>(samples.data())));
            storage->appendData(bytes);
            blocks.push_back(SCAudioBlock::createWithOffset(offset, bytes.size(), index, count));
            offset += bytes.size();
            index += count;
        }
        storage->flushCacheBuffer();
        return SCAudioResource::createWithDataStorage(storage, blocks, 48000, 2, 1, 0);
    }

    static std::shared_ptr<SCVideoResource> makeVideo(int frames) {
        auto storage = SCResourceStorage::create();
        std::vector<std::shared_ptr<SCVideoBlock>> blocks;
        uint64_t offset = 0;
        for (int k = 0; k < frames; ++k) {
            std::vector<uint8_t> pixels(24 * 16 * 4, static_cast<uint8_t>(40 * k));
            const auto jpeg = SCResource::encodeCGImage(Bitmap::createWithPixels(24, 16, pixels));
            storage->appendData(jpeg);
            blocks.push_back(SCVideoBlock::createWithOffset(offset, jpeg.size(), k * 1000, 1000));
            offset += jpeg.size();
        }
        storage->flushCacheBuffer();
        return SCVideoResource::createWithStorage(storage, blocks, 24, 16);
    }

    static std::vector<uint8_t> mutate(std::vector<uint8_t> data, std::mt19937_64& random) {
        switch (random() % 4) {
            case 0:  // flip a few bytes
                for (int i = 1 + static_cast<int>(random() % 8); i > 0 && !data.empty(); --i) {
                    data[random() % data.size()] ^= static_cast<uint8_t>(1 + random() % 255);
                }
                break;
            case 1:  // truncate
                data.resize(random() % (data.size() + 1));
                break;
            case 2:  // insert random bytes
                data.insert(data.begin() + static_cast<std::ptrdiff_t>(random() % (data.size() + 1)),
                            1 + random() % 16, static_cast<uint8_t>(random()));
                break;
            default:  // overwrite a run with one value (an integer turned huge or zero)
                if (!data.empty()) {
                    const size_t at = random() % data.size();
                    const size_t run = std::min<size_t>(data.size() - at, 1 + random() % 9);
                    std::fill_n(data.begin() + static_cast<std::ptrdiff_t>(at), run, random() % 2 ? 0xFF : 0x00);
                }
        }
        return data;
    }

    // Reads a little of everything a record offers.
    static void exercise(const std::shared_ptr<SCResource>& record, std::mt19937_64& random) {
        record->signture();
        record->creationDate();
        if (const auto& audio = record->audioResource()) {
            audio->duration();
            const int64_t length = audio->sampleRange().length();
            for (int i = 0; i < 3; ++i) {
                const QVRange range(static_cast<int64_t>(random() % 3000) - 200, static_cast<int64_t>(random() % 1500));
                const auto buffer = audio->sampleBufferWithRange(range);
                if (buffer) {
                    EXPECT_LE(buffer->sampleRange().end(), length);
                }
            }
        }
        if (const auto& video = record->videoResource()) {
            video->duration();
            for (int i = 0; i < 3; ++i) {
                const int64_t t = static_cast<int64_t>(random() % 7000) - 500;
                video->findVideoBlockAtTimestamp(t);
                video->cgImageAtTimestamp(t);
                video->thumbImageAtTimestamp(t);
            }
        }
        if (const auto& image = record->imageResource()) image->numberOfImages();
    }

    test::PrivateUserDirectories _user{"store_fuzz_test"};
    const std::string _directory = _user.path();
};

TEST_F(StoreFuzzTest, DamagedArchivesOfRecordsListsAndStoragesDecodeSafely) {
    std::mt19937_64 random(20240604);
    const std::string picture = _directory + "/picture.png";
    {
        const auto png = Bitmap::createWithPixels(4, 4, std::vector<uint8_t>(64, 200))->PNGRepresentation();
        std::ofstream(picture, std::ios::binary).write(reinterpret_cast<const char*>(png.data()),
                                                       static_cast<std::streamsize>(png.size()));
    }
    auto record = SCResource::createWithIdentifierAudioVideo("FUZZ", makeAudio(random, 6), makeVideo(5));
    record->setOriginalPath(picture);
    const auto image = SCResource::createWithIdentifierImage("IMG", SCImageResource::createWithURL(picture));
    const std::vector<std::vector<uint8_t>> seeds{
        KeyedArchiver::archivedDataWithRootObject(record),
        KeyedArchiver::archivedDataWithRootObject(
            ArchivedList::createWithObjects(std::vector<std::shared_ptr<SCResource>>{record, image})),
        KeyedArchiver::archivedDataWithRootObject(record->audioResource()->storage()),
    };
    LogCapture quiet;
    int decoded = 0;
    for (int round = 0; round < 5000; ++round) {
        const auto damaged = mutate(seeds[round % seeds.size()], random);
        const auto object = KeyedUnarchiver::unarchiveObjectWithData(damaged);
        if (!object) continue;
        ++decoded;
        if (const auto list = std::dynamic_pointer_cast<ArchivedList>(object)) {
            for (const auto& one : list->objectsOfClass<SCResource>()) exercise(one, random);
        } else if (const auto one = std::dynamic_pointer_cast<SCResource>(object)) {
            exercise(one, random);
        } else if (const auto storage = std::dynamic_pointer_cast<SCResourceStorage>(object)) {
            storage->readDataOfLength(100, random() % 5000);
        }
    }
    // The mutations leave a fair share readable, so the readers were exercised too.
    EXPECT_GT(decoded, 100);
}

TEST_F(StoreFuzzTest, BlocksPointingAnywhereIntoDamagedCacheFilesReadSafely) {
    std::mt19937_64 random(99);
    LogCapture quiet;
    int readable = 0;
    for (int round = 0; round < 100; ++round) {
        const auto audio = makeAudio(random, 5);
        const auto video = makeVideo(4);
        // Damage the audio file's bytes and cut both files short at random.
        const std::string audioFile = *audio->storage()->cacheFile();
        const std::string videoFile = *video->storage()->cacheFile();
        auto bytes = audio->storage()->readAllData();
        if (round % 2 == 0) {
            bytes = mutate(bytes, random);
            std::ofstream(audioFile, std::ios::binary | std::ios::trunc)
                .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        }
        if (round % 3 == 0) {
            std::filesystem::resize_file(videoFile, random() % (std::filesystem::file_size(videoFile) + 1));
        }
        const uint64_t audioSize = std::filesystem::file_size(audioFile);
        const uint64_t videoSize = std::filesystem::file_size(videoFile) + 1;

        for (int variant = 0; variant < 25; ++variant) {
            // Block lists of true and made-up blocks, in order or not.
            std::vector<std::shared_ptr<SCAudioBlock>> audioBlocks;
            uint64_t index = 0;
            for (const auto& block : audio->blocks()) {
                const bool fake = random() % 3 == 0;
                const uint64_t count = fake ? random() % 600 : block->numberOfSamples();
                audioBlocks.push_back(SCAudioBlock::createWithOffset(
                    fake ? random() % (audioSize + 100) : block->offset(),
                    fake ? random() % 3000 : block->length(), random() % 8 == 0 ? random() % 5000 : index, count));
                index += count;
            }
            const auto fuzzedAudio = SCAudioResource::createWithDataStorage(audio->storage(), audioBlocks, 48000, 2, 1, 0);
            const auto buffer = fuzzedAudio->sampleBufferWithRange(
                QVRange(static_cast<int64_t>(random() % 2500), 1 + static_cast<int64_t>(random() % 1200)));
            if (buffer) ++readable;

            std::vector<std::shared_ptr<SCVideoBlock>> videoBlocks;
            for (const auto& block : video->blocks()) {
                const bool fake = random() % 3 == 0;
                const uint64_t length = fake ? random() % 2000 : block->length();
                videoBlocks.push_back(SCVideoBlock::createWithOffset(
                    fake ? random() % videoSize : block->offset(), length,
                    fake ? static_cast<int64_t>(random() % 6000) - 500 : block->timestamp(),
                    fake ? static_cast<int64_t>(random() % 3000) - 100 : block->duration(),
                    random() % 4 == 0 ? random() % (length + 10) : 0));
            }
            const auto fuzzedVideo = SCVideoResource::createWithStorage(video->storage(), videoBlocks, 24, 16);
            const int64_t t = static_cast<int64_t>(random() % 5000);
            if (fuzzedVideo->cgImageAtTimestamp(t)) ++readable;
            fuzzedVideo->thumbImageAtTimestamp(static_cast<int64_t>(random() % 5000));
        }
        audio->invalidate();
        video->invalidate();
    }
    EXPECT_GT(readable, 100);
}

}  // namespace
}  // namespace qm
