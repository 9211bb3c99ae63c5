// QMCommon's image operations: the shared render context, conversions between images, bitmaps
// and pixel memory, and encoding by type identifier.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "codec/BitmapCodec.h"
#include "foundation/QMCommon.h"
#include "image/Image.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

using namespace qm;

namespace {

std::shared_ptr<const Bitmap> gradient(int width, int height) {
    std::vector<uint8_t> rgba(size_t(width * height * 4));
    for (int i = 0; i < width * height; ++i) {
        rgba[size_t(i * 4)] = uint8_t(i * 7);
        rgba[size_t(i * 4 + 1)] = uint8_t(255 - i * 3);
        rgba[size_t(i * 4 + 2)] = uint8_t(i);
        rgba[size_t(i * 4 + 3)] = 255;
    }
    return Bitmap::createWithPixels(width, height, std::move(rgba));
}

}  // namespace

TEST(QMCommonImageTest, ImagesBecomeBitmapsOverTheirExtent) {
    const Image square = Image::imageWithColor(Color{0, 0, 1, 0.5}).cropped(Rect{10, 20, 3, 2});
    const auto bitmap = QMCommon::CGImageConvertFromCIImage(square);
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(bitmap->width(), 3);
    EXPECT_EQ(bitmap->height(), 2);
    EXPECT_EQ(bitmap->pixelAt(2, 1), (std::array<uint8_t, 4>{0, 0, 128, 128}));
    EXPECT_EQ(QMCommon::CGImageConvertFromCIImage(Image()), nullptr);
    EXPECT_EQ(QMCommon::CGImageConvertFromCIImage(Image::imageWithColor(Color::white())), nullptr);
    EXPECT_EQ(QMCommon::NSImageConvertFromCIImage(Image::emptyImage()), nullptr);
}

TEST(QMCommonImageTest, PixelBufferMemoryBecomesAPremultipliedBitmap) {
    // Two BGRA pixels with straight alpha, rows 12 bytes apart (4 bytes of padding).
    const std::vector<uint8_t> bgra{255, 0, 100, 128, 10, 20, 30, 255, 0, 0, 0, 0,
                                    0, 255, 0, 255, 40, 50, 60, 0, 0, 0, 0, 0};
    const auto bitmap = QMCommon::convertFromCVPixelBuffer(bgra.data(), 2, 2, 12, PixelFormat::BGRA8);
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(bitmap->pixelAt(0, 0), (std::array<uint8_t, 4>{50, 0, 128, 128}));
    EXPECT_EQ(bitmap->pixelAt(1, 0), (std::array<uint8_t, 4>{30, 20, 10, 255}));
    // Premultiplied RGBA is copied as it is.
    const auto copy = QMCommon::convertFromCVPixelBuffer(bgra.data(), 2, 2, 12, PixelFormat::RGBA8Premultiplied);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->pixelAt(0, 0), (std::array<uint8_t, 4>{255, 0, 100, 128}));
    EXPECT_EQ(QMCommon::convertFromCVPixelBuffer(nullptr, 2, 2, 8, PixelFormat::BGRA8), nullptr);
    EXPECT_EQ(QMCommon::convertFromCVPixelBuffer(bgra.data(), 0, 2, 8, PixelFormat::BGRA8), nullptr);
}

TEST(QMCommonImageTest, SavesPNGAndJPEGByTypeIdentifier) {
    const auto bitmap = gradient(16, 8);
    const auto png = QMCommon::saveImageToData(bitmap, "public.png");
    ASSERT_TRUE(png.has_value());
    const auto decoded = BitmapCodec::bitmapWithData(*png);
    ASSERT_NE(decoded, nullptr);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 16; ++x) ASSERT_EQ(decoded->pixelAt(x, y), bitmap->pixelAt(x, y));
    const auto jpeg = QMCommon::saveImageToData(bitmap, "public.jpeg");
    ASSERT_TRUE(jpeg.has_value());
    EXPECT_NE(BitmapCodec::bitmapWithData(*jpeg), nullptr);
    EXPECT_FALSE(QMCommon::saveImageToData(bitmap, "public.tiff").has_value());
    EXPECT_FALSE(QMCommon::saveImageToData(nullptr, "public.png").has_value());
}
