#include "store/SCImageResource.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "codec/BitmapCodec.h"
#include "codec/ImageSource.h"
#include "foundation/QMCommon.h"
#include "image/Image.h"
#include "platform/FileBookmark.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "store/SCResource.h"

#include "support/MediaFileWriter.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using Rgba = std::array<uint8_t, 4>;

constexpr Rgba kRed{220, 30, 30, 255};
constexpr Rgba kGreen{30, 200, 40, 255};

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

bool near(const Rgba& actual, const Rgba& expected, int tolerance = 6) {
    for (int c = 0; c < 4; ++c) {
        if (std::abs(int(actual[c]) - int(expected[c])) > tolerance) return false;
    }
    return true;
}

// The animation frame a picture shows, judged by its centre.
int frameShown(const std::shared_ptr<const Bitmap>& picture, int frames) {
    const Rgba centre = picture->pixelAt(picture->width() / 2, picture->height() / 2);
    return test::nearestFrameIndex({centre[0], centre[1], centre[2]}, frames);
}

std::shared_ptr<const Bitmap> solid(int width, int height, const Rgba& color) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) std::memcpy(&pixels[i], color.data(), 4);
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

class ImageResourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    std::string path(const std::string& name) const { return _directory + "/" + name; }

    // Three 40x30 frames, each of its own colour.
    std::string writeGif() const {
        const std::string file = path("three.gif");
        EXPECT_EQ(test::writeAnimatedGif(file, 40, 30, 3, 10), "");
        return file;
    }

    test::PrivateUserDirectories _user{"image_resource_test"};
    const std::string _directory = _user.path();
};

TEST_F(ImageResourceTest, SourceDecodesStillsAndGivesPremultipliedPixels) {
    writeFile(path("a.jpg"), BitmapCodec::JPEGRepresentation(*solid(40, 30, kGreen), 90));
    const auto jpeg = ImageSource::createWithURL(path("a.jpg"));
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->count(), 1u);
    EXPECT_TRUE(near(jpeg->createImageAtIndex(0)->pixelAt(20, 15), kGreen));

    // PNG stores straight alpha; the source gives it premultiplied.
    writeFile(path("alpha.png"), BitmapCodec::PNGRepresentation(*solid(8, 8, Rgba{100, 50, 25, 128})));
    const auto alpha = ImageSource::createWithURL(path("alpha.png"))->createImageAtIndex(0);
    ASSERT_TRUE(alpha);
    EXPECT_TRUE(near(alpha->pixelAt(3, 3), Rgba{100, 50, 25, 128}, 2));
}

TEST_F(ImageResourceTest, SourceRefusesMissingUnknownAndIcnsFilesAndSurvivesDamagedOnes) {
    EXPECT_EQ(ImageSource::createWithURL(path("missing.png")), nullptr);
    // An icns container: FFmpeg has no decoder for it.
    writeFile(path("icon.icns"), {'i', 'c', 'n', 's', 0, 0, 0, 16, 'i', 'c', '0', '8', 0, 0, 0, 8});
    EXPECT_EQ(ImageSource::createWithURL(path("icon.icns")), nullptr);
    writeFile(path("text.png"), std::vector<uint8_t>(100, 'x'));
    const auto text = ImageSource::createWithURL(path("text.png"));
    EXPECT_TRUE(!text || !text->createImageAtIndex(0));

    auto png = BitmapCodec::PNGRepresentation(*solid(64, 64, kRed));
    png.resize(png.size() / 2);
    writeFile(path("half.png"), png);
    const auto half = ImageSource::createWithURL(path("half.png"));
    const auto partial = half ? half->createImageAtIndex(0) : nullptr;
    EXPECT_TRUE(!partial || (partial->width() == 64 && partial->height() == 64));
}

TEST_F(ImageResourceTest, BookmarkRoundTripsAndResolvesOnlyToAReadableFile) {
    EXPECT_FALSE(FileBookmark::bookmarkWithPath(path("missing")));
    writeFile(path("f.png"), {1, 2, 3});
    const auto bookmark = FileBookmark::bookmarkWithPath(path("f.png"));
    ASSERT_TRUE(bookmark);
    const auto copy = FileBookmark::createWithData(bookmark->data());
    ASSERT_TRUE(copy);
    bool stale = true;
    EXPECT_EQ(copy->resolve(&stale), path("f.png"));
    EXPECT_FALSE(stale);

    writeFile(path("f.png"), {1, 2, 3, 4});
    EXPECT_EQ(copy->resolve(&stale), path("f.png"));
    EXPECT_TRUE(stale);
    std::filesystem::remove(path("f.png"));
    EXPECT_FALSE(copy->resolve());

    LogCapture capture;
    EXPECT_FALSE(FileBookmark::createWithData({0xA1, 0x61, 0x62}));
    EXPECT_EQ(capture.count("Error: damaged file bookmark."), 1u);
}

TEST_F(ImageResourceTest, ResourceDecodesEveryPictureAtTheFirstRequestAndKeepsThem) {
    const std::string file = writeGif();
    const auto gif = SCImageResource::createWithURL(file);
    EXPECT_EQ(gif->name(), "three");
    EXPECT_EQ(gif->cgImageAtIndex(-1), nullptr);
    EXPECT_EQ(gif->cgImageAtIndex(3), nullptr);
    EXPECT_EQ(gif->width(), 40);
    // Frames are decoded in any order.
    EXPECT_EQ(frameShown(gif->cgImageAtIndex(2), 3), 2);
    const auto first = gif->cgImageAtIndex(0);
    EXPECT_EQ(frameShown(first, 3), 0);
    std::filesystem::remove(file);
    EXPECT_EQ(gif->numberOfImages(), 3);
    EXPECT_EQ(gif->cgImageAtIndex(0), first);
    // The image for composition shows the same picture.
    const Image second = gif->ciImageAtIndex(1);
    EXPECT_EQ(second.extent(), (Rect{{0, 0}, {40, 30}}));
    const auto rendered = QMCommon::CGImageConvertFromCIImage(second);
    ASSERT_NE(rendered, nullptr);
    EXPECT_EQ(frameShown(rendered, 3), 1);
    EXPECT_TRUE(gif->imageAtIndex(3).isNull());

    const auto missing = SCImageResource::createWithURL(path("nothing.png"));
    EXPECT_EQ(missing->numberOfImages(), 0);
    EXPECT_EQ(missing->width(), 0);
}

TEST_F(ImageResourceTest, ConcurrentReadersShareOneCache) {
    const auto gif = SCImageResource::createWithURL(writeGif());
    std::vector<std::shared_ptr<const Bitmap>> seen(4);
    std::vector<std::thread> readers;
    for (int r = 0; r < 4; ++r) readers.emplace_back([&, r] { seen[r] = gif->cgImageAtIndex(r % 3); });
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(seen[0], seen[3]);
    EXPECT_TRUE(seen[1] && seen[2]);
}

TEST_F(ImageResourceTest, PosterDrawsAPictureUnscaledAtItsLowerLeft) {
    // A 4:3 picture: its source rectangle for the poster is its own size at the origin.
    writeFile(path("small.png"), BitmapCodec::PNGRepresentation(*solid(40, 30, kRed)));
    const auto poster = SCImageResource::createWithURL(path("small.png"))->thumbnail();
    ASSERT_TRUE(poster);
    EXPECT_EQ(poster->height(), 300);
    EXPECT_TRUE(near(poster->pixelAt(39, 270), kRed));
    EXPECT_EQ(poster->pixelAt(41, 295)[3], 0);
    EXPECT_EQ(poster->pixelAt(5, 268)[3], 0);
}

TEST_F(ImageResourceTest, ArchiveKeepsABookmarkAndAFileThatWentAwayReadsAsNothing) {
    writeFile(path("kept.png"), BitmapCodec::PNGRepresentation(*solid(10, 10, kGreen)));
    const auto archive = KeyedArchiver::archivedDataWithRootObject(SCImageResource::createWithURL(path("kept.png")));
    const auto decoded = std::dynamic_pointer_cast<SCImageResource>(KeyedUnarchiver::unarchiveObjectWithData(archive));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->url(), path("kept.png"));
    EXPECT_EQ(decoded->numberOfImages(), 1);

    std::filesystem::remove(path("kept.png"));
    LogCapture capture;
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(archive), nullptr);
    EXPECT_EQ(capture.count("Failed to access image(" + path("kept.png") + ")"), 1u);

    // A picture that was never there has no bookmark to keep.
    const auto never = KeyedArchiver::archivedDataWithRootObject(SCImageResource::createWithURL(path("never.png")));
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(never), nullptr);
    EXPECT_EQ(capture.count("Failed to access image((null))"), 1u);
}

}  // namespace
}  // namespace qm
