#include <gtest/gtest.h>

#include <cmath>
#include <thread>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include "codec/BitmapCodec.h"
#include "codec/QVJPEGEncoderHW.h"
#include "platform/Bitmap.h"

namespace qm {
namespace {

struct RGB {
    double r, g, b;
};

struct Matrix {
    double red, blue;
};

constexpr Matrix kBT601{0.299, 0.114};
constexpr Matrix kBT709{0.2126, 0.0722};

// A 4:2:0 picture of one colour, coded with `matrix` in limited or full range.
std::shared_ptr<PixelBuffer> solidYUV(int width, int height, RGB colour, Matrix matrix, bool fullRange, int format,
                                      int colorSpace) {
    const double y = matrix.red * colour.r + (1 - matrix.red - matrix.blue) * colour.g + matrix.blue * colour.b;
    const double cb = (colour.b - y) / (2 * (1 - matrix.blue));
    const double cr = (colour.r - y) / (2 * (1 - matrix.red));
    const auto code = [](double v) { return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0, 255.0))); };
    const uint8_t values[3] = {code(fullRange ? y * 255 : 16 + y * 219), code(128 + cb * (fullRange ? 255 : 224)),
                               code(128 + cr * (fullRange ? 255 : 224))};
    auto buffer = PixelBuffer::create(width, height, format);
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? height : (height + 1) / 2;
        for (int row = 0; row < rows; ++row) {
            std::fill_n(buffer->mutablePlane(plane) + row * buffer->bytesPerRow(plane), buffer->bytesPerRow(plane),
                        values[plane]);
        }
    }
    buffer->setColorDescription(colorSpace, fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    return buffer;
}

void expectColour(const std::vector<uint8_t>& jpeg, int width, int height, RGB expected, double tolerance) {
    auto picture = BitmapCodec::bitmapWithData(jpeg);
    ASSERT_NE(picture, nullptr);
    ASSERT_EQ(picture->width(), width);
    ASSERT_EQ(picture->height(), height);
    const uint8_t* centre = picture->data() + (height / 2) * picture->bytesPerRow() + (width / 2) * 4;
    EXPECT_NEAR(centre[0], expected.r * 255, tolerance);
    EXPECT_NEAR(centre[1], expected.g * 255, tolerance);
    EXPECT_NEAR(centre[2], expected.b * 255, tolerance);
}

TEST(JPEGEncoderTest, VideoOfEveryMatrixAndRangeDecodesToItsOwnColours) {
    auto encoder = QVJPEGEncoderHW::createWithQuality(95, true, 400, 300);
    for (RGB colour : {RGB{0.8, 0.1, 0.1}, RGB{0.1, 0.7, 0.2}, RGB{0.2, 0.3, 0.9}, RGB{0.5, 0.5, 0.5}}) {
        SCOPED_TRACE(::testing::Message() << colour.r << "," << colour.g << "," << colour.b);
        expectColour(encoder->encodeImageBuffer(*solidYUV(48, 32, colour, kBT709, false, AV_PIX_FMT_YUV420P,
                                                          AVCOL_SPC_BT709)),
                     48, 32, colour, 4);
        expectColour(encoder->encodeImageBuffer(*solidYUV(48, 32, colour, kBT601, false, AV_PIX_FMT_YUV420P,
                                                          AVCOL_SPC_SMPTE170M)),
                     48, 32, colour, 4);
        expectColour(encoder->encodeImageBuffer(*solidYUV(48, 32, colour, kBT601, true, AV_PIX_FMT_YUVJ420P,
                                                          AVCOL_SPC_BT470BG)),
                     48, 32, colour, 4);
        // 4:4:4 goes through a conversion first; odd sizes keep their size. A fresh thread starts
        // with empty scratch memory, so reads past an odd picture's planes are caught.
        std::thread([&] {
            expectColour(encoder->encodeImageBuffer(*solidYUV(33, 17, colour, kBT709, false, AV_PIX_FMT_YUV444P,
                                                              AVCOL_SPC_BT709)),
                         33, 17, colour, 5);
        }).join();
    }
}

TEST(JPEGEncoderTest, CapturedBGRAPixelsAndUnknownFormatsAreTakenOrRefused) {
    auto bgra = PixelBuffer::create(20, 10, AV_PIX_FMT_BGRA);
    for (int row = 0; row < 10; ++row) {
        uint8_t* p = bgra->mutablePlane(0) + row * bgra->bytesPerRow(0);
        for (int x = 0; x < 20; ++x, p += 4) std::copy_n(std::array<uint8_t, 4>{200, 100, 20, 255}.begin(), 4, p);
    }
    auto encoder = QVJPEGEncoderHW::create();
    EXPECT_EQ(encoder->quality(), QVDefaultQuality);
    expectColour(encoder->encodeImageBuffer(*bgra), 20, 10, {20 / 255.0, 100 / 255.0, 200 / 255.0}, 5);

    // Hardware-only formats cannot be read from memory.
    auto hardware = PixelBuffer::create(16, 16, AV_PIX_FMT_VAAPI);
    if (hardware) {
        EXPECT_TRUE(encoder->encodeImageBuffer(*hardware).empty());
    }
    EXPECT_EQ(QVJPEGEncoderHW::createWithQuality(500, false, 0, 0)->quality(), 100);
}

TEST(JPEGEncoderTest, OneEncoderServesSeveralThreadsAtOnce) {
    auto encoder = QVJPEGEncoderHW::createWithQuality(70, false, 400, 300);
    const RGB colours[4] = {{0.9, 0.2, 0.2}, {0.2, 0.9, 0.2}, {0.2, 0.2, 0.9}, {0.9, 0.9, 0.2}};
    std::vector<std::vector<uint8_t>> results(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            auto picture = solidYUV(64, 64, colours[t], kBT709, false, AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709);
            for (int i = 0; i < 20; ++i) results[t] = encoder->encodeImageBuffer(*picture);
        });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < 4; ++t) expectColour(results[t], 64, 64, colours[t], 6);
}

}  // namespace
}  // namespace qm
