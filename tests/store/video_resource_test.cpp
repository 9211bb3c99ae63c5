#include "store/SCVideoResource.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "image/Image.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "store/SCResource.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

struct Span {
    int64_t timestamp;
    int64_t duration;
};

std::shared_ptr<const Bitmap> solid(int width, int height, uint8_t red, uint8_t green, uint8_t blue) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = red, pixels[i + 1] = green, pixels[i + 2] = blue, pixels[i + 3] = 255;
    }
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

// Frame k is a solid colour of its own.
uint8_t redOfFrame(size_t k) { return static_cast<uint8_t>(20 + (k * 37) % 200); }

bool near(uint8_t value, uint8_t expected) { return std::abs(int(value) - int(expected)) <= 4; }

class VideoResourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    // Blocks only, over an empty storage: enough for the search.
    static std::shared_ptr<SCVideoResource> makeBlocks(const std::vector<Span>& spans) {
        std::vector<std::shared_ptr<SCVideoBlock>> blocks;
        for (const auto& span : spans) blocks.push_back(SCVideoBlock::createWithOffset(0, 0, span.timestamp, span.duration));
        return SCVideoResource::createWithStorage(SCResourceStorage::create(), blocks, 32, 24);
    }

    // Solid 32x24 frames, each followed by an 8x6 thumbnail of the same colour when `thumbs`.
    static std::shared_ptr<SCVideoResource> makeVideo(const std::vector<Span>& spans, bool thumbs = false) {
        auto storage = SCResourceStorage::create();
        std::vector<std::shared_ptr<SCVideoBlock>> blocks;
        uint64_t offset = 0;
        for (size_t k = 0; k < spans.size(); ++k) {
            auto bytes = SCResource::encodeCGImage(solid(32, 24, redOfFrame(k), 60, 200));
            uint64_t thumbLength = 0;
            if (thumbs) {
                const auto thumb = SCResource::encodeCGImage(solid(8, 6, redOfFrame(k), 60, 200));
                bytes.insert(bytes.end(), thumb.begin(), thumb.end());
                thumbLength = thumb.size();
            }
            storage->appendData(bytes);
            blocks.push_back(
                SCVideoBlock::createWithOffset(offset, bytes.size(), spans[k].timestamp, spans[k].duration, thumbLength));
            offset += bytes.size();
        }
        storage->flushCacheBuffer();
        return SCVideoResource::createWithStorage(storage, blocks, 32, 24);
    }

    // One frame showing `picture`, the resource as large as the picture.
    static std::shared_ptr<SCVideoResource> still(const std::shared_ptr<const Bitmap>& picture) {
        auto storage = SCResourceStorage::create();
        const auto jpeg = SCResource::encodeCGImage(picture);
        storage->appendData(jpeg);
        storage->flushCacheBuffer();
        return SCVideoResource::createWithStorage(storage, {SCVideoBlock::createWithOffset(0, jpeg.size(), 0, 100)},
                                                  picture->width(), picture->height());
    }

    static int64_t found(const SCVideoResource& video, int64_t t) {
        const auto block = video.findVideoBlockAtTimestamp(t);
        return block ? block->timestamp() : -1;
    }

    static bool showsFrame(const std::shared_ptr<const Bitmap>& picture, size_t k) {
        return picture && near(picture->pixelAt(picture->width() / 2, picture->height() / 2)[0], redOfFrame(k));
    }

    test::PrivateUserDirectories _user{"video_resource_test"};
    const std::string _directory = _user.path();
};

TEST_F(VideoResourceTest, SearchAtBlockEdgesInHolesAndOutside) {
    const struct {
        std::vector<Span> spans;
        int64_t at;
        int64_t expected;
    } cases[] = {
        {{{0, 100}, {100, 100}}, 99, 0},
        {{{0, 100}, {100, 100}}, 100, 100},
        {{{0, 100}, {100, 100}}, 199, 100},
        // In a hole the nearer block wins and a tie goes to the later one.
        {{{0, 100}, {300, 100}}, 150, 0},
        {{{0, 100}, {300, 100}}, 200, 300},
        {{{0, 100}, {300, 100}}, 100, 0},
        {{{50, 50}, {100, 100}}, -1000, 50},
        {{{50, 50}, {100, 100}}, 200, -1},
        {{}, 0, -1},
        // A zero total duration finds nothing.
        {{{0, 0}}, 0, -1},
        {{{0, QMNoTimeLimited}}, int64_t(1) << 60, 0},
        // A last frame that lasts for ever shows from its start on, wherever it starts.
        {{{0, 100}, {250, QMNoTimeLimited}}, 300, 250},
        {{{0, 100}, {250, QMNoTimeLimited}}, int64_t(1) << 60, 250},
    };
    for (const auto& c : cases) EXPECT_EQ(found(*makeBlocks(c.spans), c.at), c.expected) << "at " << c.at;
    EXPECT_EQ(makeBlocks({{0, 100}, {300, 50}})->duration(), 350);
    EXPECT_EQ(makeBlocks({{0, 100}, {100, QMNoTimeLimited}})->duration(), QMNoTimeLimited);
}

TEST_F(VideoResourceTest, SearchAgreesWithTheNearestBlockOverRandomFrameRatesAndHoles) {
    std::mt19937_64 random(7);
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<Span> spans;
        int64_t t = static_cast<int64_t>(random() % 1000);
        for (size_t k = 1 + random() % 60; k > 0; --k) {
            spans.push_back({t, 1 + static_cast<int64_t>(random() % 500)});
            t += spans.back().duration + (random() % 4 == 0 ? static_cast<int64_t>(random() % 2000) : 0);
        }
        const auto video = makeBlocks(spans);
        for (int probe = 0; probe < 50; ++probe) {
            const int64_t at = static_cast<int64_t>(random() % static_cast<uint64_t>(t + 200)) - 100;
            int64_t expected = at < spans.front().timestamp ? spans.front().timestamp : -1;
            for (size_t k = 0; k < spans.size() && expected < 0; ++k) {
                const int64_t end = spans[k].timestamp + spans[k].duration;
                if (at >= spans[k].timestamp && at < end) expected = spans[k].timestamp;
                if (k + 1 < spans.size() && at >= end && at < spans[k + 1].timestamp) {
                    expected = at - end < spans[k + 1].timestamp - at ? spans[k].timestamp : spans[k + 1].timestamp;
                }
            }
            ASSERT_EQ(found(*video, at), expected) << "trial " << trial << " t " << at;
        }
    }
}

TEST_F(VideoResourceTest, OneFrameCacheAnswersWithinItsBlockAndIsReplacedOnAMiss) {
    const auto video = makeVideo({{0, 100}, {100, 100}, {300, 100}});
    EXPECT_EQ(video->thumbImageAtTimestamp(401), nullptr);
    EXPECT_EQ(video->cgImageAtTimestamp(400), nullptr);
    EXPECT_TRUE(showsFrame(video->cgImageAtTimestamp(199), 1));
    const auto first = video->cgImageAtTimestamp(10);
    ASSERT_TRUE(showsFrame(first, 0));
    video->invalidate();
    LogCapture capture;
    EXPECT_EQ(video->cgImageAtTimestamp(99), first);
    EXPECT_EQ(video->thumbImageAtTimestamp(50), first);
    // A negative time is refused before the cache is looked at.
    EXPECT_EQ(video->cgImageAtTimestamp(-5), nullptr);
    EXPECT_TRUE(capture.lines().empty());

    EXPECT_EQ(video->cgImageAtTimestamp(150), nullptr);
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{"Error: No process found.", "Failed to read video image cache buffer."}));
    EXPECT_EQ(video->cgImageAtTimestamp(10), nullptr);
}

TEST_F(VideoResourceTest, ATimeInAHoleDecodesTheNearestFrameEveryTime) {
    const auto video = makeVideo({{0, 100}, {300, 100}});
    EXPECT_TRUE(showsFrame(video->cgImageAtTimestamp(150), 0));
    video->invalidate();
    LogCapture capture;
    EXPECT_EQ(video->cgImageAtTimestamp(150), nullptr);
    EXPECT_EQ(capture.count("Failed to read video image cache buffer."), 1u);
}

TEST_F(VideoResourceTest, ThumbnailBytesFollowTheFullPictureInTheBlock) {
    const auto video = makeVideo({{0, 100}, {100, 100}}, true);
    EXPECT_TRUE(video->ciImageAtTimestamp(-1).isNull());
    EXPECT_TRUE(showsFrame(QMCommon::CGImageConvertFromCIImage(video->ciImageAtTimestamp(10)), 0));
    const auto full = video->cgImageAtTimestamp(120);
    const auto thumb = video->thumbImageAtTimestamp(120);
    ASSERT_TRUE(full && thumb);
    EXPECT_EQ(full->width(), 32);
    EXPECT_EQ(thumb->width(), 8);
    EXPECT_TRUE(showsFrame(thumb, 1));

    // A recorded resource has no thumbnails: the full picture stands in.
    const auto recorded = makeVideo({{0, 100}});
    EXPECT_EQ(recorded->thumbImageAtTimestamp(5), recorded->cgImageAtTimestamp(5));
}

TEST_F(VideoResourceTest, DamagedBlocksGiveNothingAndNeverCrash) {
    const auto good = makeVideo({{0, 100}});
    const auto storage = good->storage();
    const uint64_t size = good->blocks()[0]->length();
    storage->writeData(std::vector<uint8_t>(3000, 0x5A), "junk");
    const uint64_t junk = storage->blocksWithKey("junk")[0].location();
    const auto video = SCVideoResource::createWithStorage(
        storage,
        {SCVideoBlock::createWithOffset(junk, 3000, 0, 100),              // not a JPEG
         SCVideoBlock::createWithOffset(size + 4000, 500, 100, 100),      // runs past the end into zeros
         SCVideoBlock::createWithOffset(1u << 30, 100, 200, 100),         // starts past the end
         SCVideoBlock::createWithOffset(0, size, 300, 100, size + 1)},    // thumbnail longer than the block
        32, 24);
    LogCapture capture;
    EXPECT_EQ(video->cgImageAtTimestamp(50), nullptr);
    EXPECT_EQ(video->cgImageAtTimestamp(150), nullptr);
    EXPECT_EQ(capture.count("Failed to read video image cache buffer."), 0u);
    EXPECT_EQ(video->cgImageAtTimestamp(250), nullptr);
    EXPECT_EQ(capture.count("Failed to read video image cache buffer."), 1u);
    // All that was read counts as the thumbnail, which leaves no picture.
    EXPECT_EQ(video->cgImageAtTimestamp(350), nullptr);
    EXPECT_TRUE(showsFrame(video->thumbImageAtTimestamp(350), 0));
}

TEST_F(VideoResourceTest, ABlockRunningPastTheEndOfTheFileDecodesTheBytesThatWereRead) {
    for (const bool thumbs : {false, true}) {
        const auto stored = makeVideo({{0, 100}}, thumbs);
        const SCVideoBlock& block = *stored->blocks()[0];
        const auto video = SCVideoResource::createWithStorage(
            stored->storage(), {SCVideoBlock::createWithOffset(0, block.length() + 300, 0, 100, block.thumbLength())},
            32, 24);
        LogCapture capture;
        EXPECT_TRUE(showsFrame(video->cgImageAtTimestamp(50), 0)) << thumbs;
        const auto thumb = video->thumbImageAtTimestamp(50);
        ASSERT_TRUE(thumb);
        EXPECT_EQ(thumb->width(), thumbs ? 8 : 32);
        EXPECT_TRUE(capture.lines().empty());
    }
}

TEST_F(VideoResourceTest, ArchiveRoundTripKeepsBlocksAndSize) {
    const auto video = makeVideo({{0, 100}, {250, QMNoTimeLimited}}, true);
    const auto decoded = std::dynamic_pointer_cast<SCVideoResource>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(video)));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->height(), 24);
    ASSERT_EQ(decoded->numberOfFrames(), 2);
    const auto& block = *decoded->blocks()[1];
    EXPECT_EQ(block.thumbLength(), video->blocks()[1]->thumbLength());
    EXPECT_EQ(block.timestamp(), 250);
    EXPECT_EQ(decoded->duration(), QMNoTimeLimited);
    EXPECT_TRUE(showsFrame(decoded->cgImageAtTimestamp(50), 0));
}

TEST_F(VideoResourceTest, PosterShrinksAWidePictureIntoARectangleAtTheBottom) {
    const auto video = still(solid(192, 108, 240, 240, 20));
    const auto banner = video->thumbnail();
    EXPECT_EQ(video->thumbnail(), banner);
    ASSERT_TRUE(banner);
    EXPECT_EQ(banner->pixelAt(58, 280)[3], 255);
    EXPECT_GT(banner->pixelAt(58, 280)[0], 200);
    EXPECT_EQ(banner->pixelAt(20, 280)[3], 0);
    EXPECT_EQ(banner->pixelAt(100, 280)[3], 0);
    EXPECT_EQ(banner->pixelAt(58, 250)[3], 0);
}

TEST_F(VideoResourceTest, ConcurrentReadersEachGetTheirFrame) {
    std::vector<Span> spans;
    for (int k = 0; k < 20; ++k) spans.push_back({k * 100, 100});
    const auto video = makeVideo(spans);
    std::vector<int> failures(4, 0);
    std::vector<std::thread> readers;
    for (int r = 0; r < 4; ++r) {
        readers.emplace_back([&, r] {
            for (int i = 0; i < 40; ++i) {
                const size_t k = static_cast<size_t>((r * 7 + i * 3) % 20);
                if (!showsFrame(video->cgImageAtTimestamp(static_cast<int64_t>(k) * 100 + 50), k)) ++failures[r];
            }
        });
    }
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(failures, (std::vector<int>{0, 0, 0, 0}));
}

}  // namespace
}  // namespace qm
