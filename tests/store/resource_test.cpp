#include "store/SCResource.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "codec/BitmapCodec.h"
#include "codec/QVAudioFrame2.h"
#include "foundation/QMCommon.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCVideoResource.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

std::shared_ptr<const Bitmap> solid(int width, int height, uint8_t red, uint8_t green, uint8_t blue) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = red, pixels[i + 1] = green, pixels[i + 2] = blue, pixels[i + 3] = 255;
    }
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

// An archive of class "SCResource" holding only an identifier and audio, as an older writer made it.
class PartialRecord : public Archivable {
public:
    std::shared_ptr<Archivable> audio;

    std::string archiveClassName() const override { return "SCResource"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeString("identifier", "OLD");
        coder.encodeObject("audioResource", audio);
    }
};

class ResourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    static std::shared_ptr<SCAudioResource> makeAudio() {
        auto storage = SCResourceStorage::create();
        const std::vector<int16_t> samples(64 * 2, 1234);
        const auto bytes = SCResource::encodeAudioFrame(
            QVAudioFrame2::create(1, 2, 44100, 64, reinterpret_cast<const uint8_t*>(samples.data())));
        storage->appendData(bytes);
        storage->flushCacheBuffer();
        return SCAudioResource::createWithDataStorage(storage, {SCAudioBlock::createWithOffset(0, bytes.size(), 0, 64)},
                                                      44100, 2, 1, 0);
    }
    static std::shared_ptr<SCVideoResource> makeVideo() {
        auto storage = SCResourceStorage::create();
        const auto jpeg = SCResource::encodeCGImage(solid(64, 48, 10, 200, 10));
        storage->appendData(jpeg);
        storage->flushCacheBuffer();
        return SCVideoResource::createWithStorage(storage, {SCVideoBlock::createWithOffset(0, jpeg.size(), 0, 1000)},
                                                  64, 48);
    }
    std::string writePicture(const std::string& name) const {
        const std::string path = _directory + "/" + name;
        const auto png = BitmapCodec::PNGRepresentation(*solid(40, 30, 200, 10, 10));
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(png.data()),
                                                    static_cast<std::streamsize>(png.size()));
        return path;
    }
    static std::shared_ptr<SCResource> roundTrip(const std::shared_ptr<Archivable>& object) {
        return std::dynamic_pointer_cast<SCResource>(
            KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(object)));
    }

    test::PrivateUserDirectories _user{"resource_test"};
    const std::string _directory = _user.path();
};

TEST_F(ResourceTest, SignatureIsTheIdentifierUntilThePathIsLongEnoughThenTheFileSignatureIsKept) {
    const auto record = SCResource::createWithAudio(makeAudio(), nullptr);
    EXPECT_EQ(record->identifier().size(), 36u);
    EXPECT_NE(record->identifier(), SCResource::createWithAudio(nullptr, nullptr)->identifier());
    EXPECT_EQ(record->signture(), record->identifier());
    record->setOriginalPath("a.b");
    EXPECT_EQ(record->signture(), record->identifier());

    const std::string path = writePicture("source.png");
    const std::string expected = QMCommon::calcSigntureWithURL(path);
    ASSERT_FALSE(expected.empty());
    record->setOriginalPath(path);
    EXPECT_EQ(record->signture(), expected);
    // Stored: a changed file no longer matters.
    std::ofstream(path, std::ios::binary | std::ios::app) << "more bytes";
    EXPECT_EQ(record->signture(), expected);
}

TEST_F(ResourceTest, ArchiveRoundTripKeepsFieldsAndPayloads) {
    const auto record = SCResource::createWithIdentifierAudioVideo("REC", makeAudio(), makeVideo());
    record->setHumanReadableName("Meeting");
    const std::string path = writePicture("orig.png");
    record->setOriginalPath(path);

    const auto decoded = roundTrip(record);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->identifier(), "REC");
    EXPECT_EQ(decoded->humanReadableName(), "Meeting");
    EXPECT_EQ(decoded->originalPath(), path);
    // The signature was computed while archiving.
    EXPECT_EQ(decoded->signture(), QMCommon::calcSigntureWithURL(path));
    EXPECT_LE(std::chrono::abs(decoded->creationDate() - record->creationDate()), std::chrono::microseconds(1));
    ASSERT_TRUE(decoded->audioExist() && decoded->videoExist());
    EXPECT_TRUE(decoded->audioResource()->sampleBufferWithRange(QVRange(0, 64)));
    EXPECT_TRUE(decoded->videoResource()->cgImageAtTimestamp(10));

    const auto picture = roundTrip(SCResource::createWithIdentifierImage("PIC", SCImageResource::createWithURL(path)));
    ASSERT_TRUE(picture && picture->imageExist() && !picture->audioExist());
    EXPECT_EQ(picture->humanReadableName(), "orig");
}

TEST_F(ResourceTest, ArchiveLosingSomePayloadsKeepsTheRestAndLosingAllReadsAsNothing) {
    const auto record = SCResource::createWithIdentifierAudioVideo("REC", makeAudio(), makeVideo());
    const auto archive = KeyedArchiver::archivedDataWithRootObject(record);
    std::filesystem::remove(*record->videoResource()->storage()->cacheFile());
    const auto partial = std::dynamic_pointer_cast<SCResource>(KeyedUnarchiver::unarchiveObjectWithData(archive));
    ASSERT_TRUE(partial);
    EXPECT_TRUE(partial->audioExist());
    EXPECT_FALSE(partial->videoExist());

    std::filesystem::remove(*record->audioResource()->storage()->cacheFile());
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(archive), nullptr);
}

TEST_F(ResourceTest, ArchiveWithoutDateOrPathGetsNowAtFirstReadAndAPayloadOfTheWrongClassIsRefused) {
    auto older = std::make_shared<PartialRecord>();
    older->audio = makeAudio();
    const auto decoded = roundTrip(older);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->originalPath(), "");
    EXPECT_EQ(decoded->signture(), "OLD");
    const auto first = decoded->creationDate();
    EXPECT_LE(std::chrono::abs(first - SCResource::Clock::now()), std::chrono::seconds(5));
    EXPECT_EQ(decoded->creationDate(), first);

    older->audio = makeVideo();
    LogCapture capture;
    EXPECT_EQ(roundTrip(older), nullptr);
    EXPECT_EQ(capture.count("Warning: unexpected class SCVideoResource for key audioResource"), 1u);
}

TEST_F(ResourceTest, ThumbnailPrefersVideoThenImageThenAudio) {
    const auto video = makeVideo();
    const auto image = SCImageResource::createWithURL(writePicture("p.png"));
    const auto audio = makeAudio();
    EXPECT_EQ(SCResource::createWithAudio(audio, video)->thumbnail(), video->thumbnail());
    EXPECT_EQ(SCResource::createWithImage(image)->thumbnail(), image->thumbnail());
    EXPECT_EQ(SCResource::createWithAudio(audio, nullptr)->thumbnail(), SCAudioResource::defaultThumbnail());
    EXPECT_EQ(SCResource::createWithAudio(nullptr, nullptr)->thumbnail(), nullptr);
}

TEST_F(ResourceTest, InvalidateDeletesStoredMediaButNotThePictureFile) {
    const auto audio = makeAudio();
    const auto video = makeVideo();
    const std::string audioFile = *audio->storage()->cacheFile();
    const std::string videoFile = *video->storage()->cacheFile();
    SCResource::createWithAudio(audio, video)->invalidateResource();
    EXPECT_FALSE(std::filesystem::exists(audioFile) || std::filesystem::exists(videoFile));

    const std::string picture = writePicture("keep.png");
    SCResource::createWithImage(SCImageResource::createWithURL(picture))->invalidateResource();
    EXPECT_TRUE(std::filesystem::exists(picture));
}

TEST_F(ResourceTest, PictureAndFrameCodecsRoundTripAndRefuseGarbage) {
    EXPECT_TRUE(SCResource::encodeCGImage(nullptr).empty());
    EXPECT_EQ(SCResource::decodeCGImage(std::vector<uint8_t>(100, 7)), nullptr);

    const std::vector<int16_t> samples{1, -1, 300, -300};
    const auto frame = QVAudioFrame2::create(1, 2, 8000, 2, reinterpret_cast<const uint8_t*>(samples.data()));
    const auto back = SCResource::decodeAudioFrame(SCResource::encodeAudioFrame(frame));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->dataOfPackedSamples(), frame->dataOfPackedSamples());
    LogCapture capture;
    EXPECT_EQ(SCResource::decodeAudioFrame({1, 2, 3}), nullptr);
    EXPECT_EQ(SCResource::decodeAudioFrame(KeyedArchiver::archivedDataWithRootObject(makeAudio())), nullptr);
    EXPECT_EQ(SCResource::decodeAudioFrame({}), nullptr);
    EXPECT_EQ(capture.lines().size(), 2u);
}

}  // namespace
}  // namespace qm
