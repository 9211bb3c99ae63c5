#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "codec/BitmapCodec.h"
#include "platform/Bitmap.h"

using namespace qm;

namespace {

// A picture with a gradient, a half-transparent band and a clear corner, premultiplied.
std::shared_ptr<const Bitmap> testPicture(int width, int height) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* p = pixels.data() + (static_cast<size_t>(y) * width + x) * 4;
            const int alpha = y < height / 4 ? 128 : (x == 0 && y == height - 1 ? 0 : 255);
            p[0] = static_cast<uint8_t>(x * 255 / width * alpha / 255);
            p[1] = static_cast<uint8_t>(y * 255 / height * alpha / 255);
            p[2] = static_cast<uint8_t>(64 * alpha / 255);
            p[3] = static_cast<uint8_t>(alpha);
        }
    }
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

}  // namespace

TEST(BitmapTest, RefusesSizesTheBytesDoNotHold) {
    EXPECT_EQ(Bitmap::createWithPixels(4, 4, std::vector<uint8_t>(63)), nullptr);
    EXPECT_EQ(Bitmap::createWithPixels(4, 4, std::vector<uint8_t>(64), 15), nullptr);
    auto padded = Bitmap::createWithPixels(3, 2, std::vector<uint8_t>(32 + 12), 32);
    ASSERT_NE(padded, nullptr);
    EXPECT_EQ(padded->bytesPerRow(), 32u);
}

TEST(BitmapTest, PNGRoundTripKeepsPremultipliedPixels) {
    auto picture = testPicture(37, 21);
    auto decoded = BitmapCodec::bitmapWithData(BitmapCodec::PNGRepresentation(*picture));
    ASSERT_NE(decoded, nullptr);
    ASSERT_EQ(decoded->width(), 37);
    ASSERT_EQ(decoded->height(), 21);
    for (int y = 0; y < 21; ++y) {
        for (int x = 0; x < 37; ++x) {
            auto a = picture->pixelAt(x, y);
            auto b = decoded->pixelAt(x, y);
            for (int c = 0; c < 4; ++c) ASSERT_LE(std::abs(a[c] - b[c]), 1) << x << "," << y << " channel " << c;
        }
    }
    EXPECT_EQ(decoded->pixelAt(0, 20)[3], 0);
}

TEST(BitmapTest, JPEGRoundTripIsCloseAndOpaque) {
    std::vector<uint8_t> pixels(64 * 48 * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) std::copy_n(std::array<uint8_t, 4>{200, 40, 90, 255}.begin(), 4, &pixels[i]);
    auto decoded = BitmapCodec::bitmapWithData(BitmapCodec::JPEGRepresentation(*Bitmap::createWithPixels(64, 48, std::move(pixels)), 90));
    ASSERT_NE(decoded, nullptr);
    EXPECT_TRUE(decoded->isOpaque());
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(decoded->pixelAt(30, 20)[c], (std::array{200, 40, 90}[c]), 4);
}

TEST(BitmapTest, BytesThatAreNoPictureDecodeToNothing) {
    EXPECT_EQ(BitmapCodec::bitmapWithData({}), nullptr);
    auto png = BitmapCodec::PNGRepresentation(*testPicture(16, 16));
    png.resize(png.size() / 2);
    EXPECT_EQ(BitmapCodec::bitmapWithData(png), nullptr);
    auto huge = BitmapCodec::JPEGRepresentation(*testPicture(16, 16), 80);
    // The SOF0 frame header holds height then width, big-endian: declare 60000 x 60000.
    for (size_t i = 0; i + 8 < huge.size(); ++i) {
        if (huge[i] == 0xFF && huge[i + 1] == 0xC0) {
            huge[i + 5] = huge[i + 7] = 0xEA;
            huge[i + 6] = huge[i + 8] = 0x60;
            break;
        }
    }
    EXPECT_EQ(BitmapCodec::bitmapWithData(huge), nullptr);
    srand(7);
    for (int round = 0; round < 200; ++round) {
        auto jpeg = BitmapCodec::JPEGRepresentation(*testPicture(24, 24), 80);
        for (int flips = 0; flips < 8; ++flips) jpeg[rand() % jpeg.size()] ^= static_cast<uint8_t>(1 + rand() % 255);
        auto decoded = BitmapCodec::bitmapWithData(jpeg);
        if (decoded) {
            EXPECT_GT(decoded->width(), 0);
        }
    }
    // Damaged pictures leave the decoder able to read a sound one.
    const auto sound = BitmapCodec::bitmapWithData(BitmapCodec::JPEGRepresentation(*testPicture(24, 24), 80));
    ASSERT_NE(sound, nullptr);
    EXPECT_EQ(sound->width(), 24);
}

TEST(BitmapTest, ScalingAveragesAreas) {
    // Four 2x2 blocks of one value each shrink to one pixel per block.
    std::vector<uint8_t> pixels(4 * 4 * 4, 255);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) pixels[(y * 4 + x) * 4] = static_cast<uint8_t>((x < 2 ? 0 : 100) + (y < 2 ? 0 : 50));
    auto small = Bitmap::createWithPixels(4, 4, std::move(pixels))->scaledToSize(2, 2);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small->pixelAt(1, 0)[0], 100);
    EXPECT_EQ(small->pixelAt(0, 1)[0], 50);
    EXPECT_EQ(testPicture(8, 8)->scaledToSize(0, 3), nullptr);
}

TEST(BitmapTest, DeferredJPEGKeepsItsBytesUntilUsedAndPNGDecodesAtOnce) {
    const auto picture = testPicture(24, 16);
    auto jpeg = BitmapCodec::JPEGRepresentation(*picture, 90);
    const auto deferred = BitmapCodec::deferredBitmapWithData(jpeg);
    ASSERT_NE(deferred, nullptr);
    EXPECT_EQ(deferred->width(), 24);
    EXPECT_EQ(deferred->height(), 16);
    EXPECT_TRUE(deferred->isOpaque());
    const auto now = BitmapCodec::bitmapWithData(jpeg);
    ASSERT_NE(deferred->bitmap(), nullptr);
    EXPECT_EQ(deferred->bitmap()->pixelAt(7, 9), now->pixelAt(7, 9));

    const auto png = BitmapCodec::deferredBitmapWithData(BitmapCodec::PNGRepresentation(*picture));
    ASSERT_NE(png, nullptr);
    EXPECT_FALSE(png->isOpaque());

    // A header that does not read gives nothing at once; a body cut short decodes what is there.
    EXPECT_EQ(BitmapCodec::deferredBitmapWithData({0xFF, 0xD8, 0xFF, 0x00}), nullptr);
    EXPECT_EQ(BitmapCodec::deferredBitmapWithData({1, 2, 3}), nullptr);
    auto large = BitmapCodec::JPEGRepresentation(*testPicture(160, 120), 90);
    large.resize(large.size() * 3 / 4);
    const auto cut = BitmapCodec::deferredBitmapWithData(large);
    ASSERT_NE(cut, nullptr);
    const auto& partial = cut->bitmap();
    ASSERT_NE(partial, nullptr);
    EXPECT_EQ(partial->width(), 160);
}
