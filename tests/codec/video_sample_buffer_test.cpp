#include <gtest/gtest.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include "codec/QVJPEGEncoderHW.h"
#include "codec/VideoSampleBuffer.h"

namespace qm {
namespace {

TEST(VideoSampleBuffer, CarriesTheFormatOfItsPictureForEveryCaptureType) {
    for (const uint32_t type : {kCVPixelFormatType_32BGRA, kCVPixelFormatType_422YpCbCr8_yuvs,
                                kCVPixelFormatType_420YpCbCr8PlanarFullRange}) {
        auto picture = createPixelBufferWithType(64, 48, type);
        ASSERT_NE(picture, nullptr) << std::hex << type;
        EXPECT_EQ(picture->pixelFormat(), pixelFormatForType(type));
        const auto sample = VideoSampleBuffer::create(picture, CMTime::make(3, 30), CMTime::make(1, 30));
        ASSERT_NE(sample, nullptr);
        EXPECT_EQ(sample->formatDescription()->width(), 64);
        EXPECT_EQ(sample->formatDescription()->height(), 48);
        EXPECT_EQ(sample->formatDescription()->pixelFormatType(), type);
        EXPECT_EQ(sample->presentationTime().value, 3);
        EXPECT_EQ(sample->imageBuffer(), picture);
    }
}

TEST(VideoSampleBuffer, RefusesUnknownTypesSizesAndTimes) {
    EXPECT_EQ(pixelFormatForType(0x32767579), -1);
    EXPECT_EQ(createPixelBufferWithType(64, 48, 0x32767579), nullptr);
    EXPECT_EQ(createPixelBufferWithType(0, 48, kCVPixelFormatType_32BGRA), nullptr);
    EXPECT_EQ(VideoFormatDescription::create(64, 0, kCVPixelFormatType_32BGRA), nullptr);
    EXPECT_EQ(VideoFormatDescription::create(64, 48, 0), nullptr);
    const auto picture = createPixelBufferWithType(64, 48, kCVPixelFormatType_32BGRA);
    EXPECT_EQ(VideoSampleBuffer::create(picture, CMTime{}, CMTime::make(1, 30)), nullptr);
    EXPECT_EQ(VideoSampleBuffer::create(nullptr, CMTime::make(0, 30), CMTime::make(1, 30)), nullptr);
    // A buffer in a format that capture never gives has no four-character type.
    EXPECT_EQ(VideoSampleBuffer::create(PixelBuffer::create(64, 48, AV_PIX_FMT_NV12), CMTime::make(0, 30), CMTime{}),
              nullptr);
}

TEST(VideoSampleBuffer, CapturedPicturesEncodeAsJPEG) {
    const auto encoder = QVJPEGEncoderHW::create();
    for (const uint32_t type : {kCVPixelFormatType_32BGRA, kCVPixelFormatType_422YpCbCr8_yuvs}) {
        auto picture = createPixelBufferWithType(32, 16, type);
        for (int row = 0; row < 16; ++row) {
            std::fill_n(picture->mutablePlane(0) + row * picture->bytesPerRow(0), picture->bytesPerRow(0), 0x80);
        }
        const auto jpeg = encoder->encodeImageBuffer(*picture);
        ASSERT_GT(jpeg.size(), 4u);
        EXPECT_EQ(jpeg[0], 0xFF);
        EXPECT_EQ(jpeg[1], 0xD8);
    }
}

}  // namespace
}  // namespace qm
