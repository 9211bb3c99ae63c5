// Randomised damage to store archives: every case must give nothing or something usable, never
// crash (run under ASan/UBSan).
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "codec/BitmapCodec.h"
#include "codec/QVAudioFrame2.h"
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
        switch (random() % 3) {
            case 0:  // flip a few bytes
                for (int i = 1 + static_cast<int>(random() % 8); i > 0; --i) {
                    data[random() % data.size()] ^= static_cast<uint8_t>(1 + random() % 255);
                }
                break;
            case 1:  // truncate
                data.resize(random() % (data.size() + 1));
                break;
            default: {  // overwrite a run with one value (an integer turned huge or zero)
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
        const auto png = BitmapCodec::PNGRepresentation(*Bitmap::createWithPixels(4, 4, std::vector<uint8_t>(64, 200)));
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

TEST_F(StoreFuzzTest, MadeUpBlocksIntoDamagedCacheFilesReadSafely) {
    std::mt19937_64 random(99);
    LogCapture quiet;
    int readable = 0;
    for (int round = 0; round < 100; ++round) {
        const auto audio = makeAudio(random, 5);
        const auto video = makeVideo(4);
        for (const auto& storage : {audio->storage(), video->storage()}) {
            if (round % 2) continue;
            const auto bytes = mutate(storage->readAllData(), random);
            std::ofstream(*storage->cacheFile(), std::ios::binary | std::ios::trunc)
                .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        }
        for (int variant = 0; variant < 25; ++variant) {
            // True blocks mixed with made-up ones, in order or not.
            std::vector<std::shared_ptr<SCAudioBlock>> audioBlocks = audio->blocks();
            for (auto& block : audioBlocks) {
                if (random() % 3 == 0) {
                    block = SCAudioBlock::createWithOffset(random() % 3000, random() % 3000, random() % 2500, random() % 600);
                }
            }
            std::vector<std::shared_ptr<SCVideoBlock>> videoBlocks = video->blocks();
            for (auto& block : videoBlocks) {
                if (random() % 3 == 0) {
                    const uint64_t length = random() % 2000;
                    block = SCVideoBlock::createWithOffset(random() % 5000, length, static_cast<int64_t>(random() % 6000) - 500,
                                                           static_cast<int64_t>(random() % 3000) - 100, random() % (length + 10));
                }
            }
            const QVRange range(static_cast<int64_t>(random() % 2500), 1 + static_cast<int64_t>(random() % 1200));
            if (SCAudioResource::createWithDataStorage(audio->storage(), audioBlocks, 48000, 2, 1, 0)
                    ->sampleBufferWithRange(range)) {
                ++readable;
            }
            const auto fuzzedVideo = SCVideoResource::createWithStorage(video->storage(), videoBlocks, 24, 16);
            if (fuzzedVideo->cgImageAtTimestamp(static_cast<int64_t>(random() % 5000))) ++readable;
            fuzzedVideo->thumbImageAtTimestamp(static_cast<int64_t>(random() % 5000));
        }
        audio->invalidate();
        video->invalidate();
    }
    EXPECT_GT(readable, 100);
}

}  // namespace
}  // namespace qm
