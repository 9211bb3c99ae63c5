#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <vector>

#include "image/ImageTestSupport.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"

using namespace qm;
using namespace qm::test;

namespace {

// A bitmap seen through a BitmapView over all of its pixels.
struct ViewedBitmap {
    std::shared_ptr<const Bitmap> bitmap;
    BitmapView view;

    ViewedBitmap(int width, int height, PixelRect bounds) : bitmap(patternBitmap(width, height)) {
        const std::ptrdiff_t stride = std::ptrdiff_t(bitmap->bytesPerRow());
        view = BitmapView{bitmap->data() + std::ptrdiff_t(height - 1) * stride, stride, bounds};
    }
};

}  // namespace

TEST(PixelRowsTest, BoundsNarrowerThanTheBitmapCutTheSamples) {
    // A crop: pixels outside the bounds read as transparent even though the bitmap has them, and
    // a square that straddles the edge blends with transparent.
    const ViewedBitmap picture(64, 48, {10, 8, 30, 20});
    const int64_t one = 65536;
    std::vector<float> row(4 * 6);
    // Half way between columns 7 and 8, 8 and 9, 9 and 10 ...
    sampleBitmapRow(picture.view, 7 * one + one / 2, 15 * one, one, 0, 1.f, row.data(), 6);
    for (int i = 0; i < 3; ++i)
        for (int c = 0; c < 4; ++c) EXPECT_EQ(row[size_t(4 * i + c)], i < 2 ? 0.f : picture.view.pixel(10, 15)[c] / 2);
    sampleBitmapRow(picture.view, 50 * one, 15 * one, one, 0, 1.f, row.data(), 4);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(row[size_t(i)], 0.f);
}

TEST(PixelRowsTest, BilinearBytesRoundEachBlendToWholeSteps) {
    // The vector lanes against the one blend they stand for, channel by channel, over extreme
    // bytes and weights.
    std::mt19937 random(5);
    const uint8_t levels[] = {0, 1, 2, 127, 128, 129, 254, 255};
    const int weights[] = {0, 1, 2, 63, 64, 65, 126, 127, 128};
    for (int trial = 0; trial < 3000; ++trial) {
        uint8_t lower[8], upper[8];
        for (int i = 0; i < 8; ++i) {
            lower[i] = levels[random() % std::size(levels)];
            upper[i] = levels[random() % std::size(levels)];
        }
        const int wx = weights[random() % std::size(weights)], wy = weights[random() % std::size(weights)];
        const Float4 sample = bilinearBytes(lower, upper, wx, wy);
        for (int c = 0; c < 4; ++c) {
            const int left = fixed::blend<int>(lower[c], upper[c], wy);
            const int right = fixed::blend<int>(lower[4 + c], upper[4 + c], wy);
            ASSERT_EQ(sample[c], float(fixed::blend(left, right, wx))) << "trial " << trial << ", channel " << c;
        }
    }
    // Weights at their ends pick a pixel whole.
    const uint8_t a[8] = {10, 20, 30, 40, 50, 60, 70, 80}, b[8] = {90, 100, 110, 120, 130, 140, 150, 160};
    EXPECT_EQ(bilinearBytes(a, b, 0, 0)[1], 20.f);
    EXPECT_EQ(bilinearBytes(a, b, 128, 0)[1], 60.f);
    EXPECT_EQ(bilinearBytes(a, b, 128, 128)[1], 140.f);
}

TEST(PixelRowsTest, EnlargedRowsBlendTheTwoNearestReducedPixels) {
    // Rows starting on and between group boundaries, left of zero, with and without a tail.
    std::vector<float> reduced(40 * 4);
    for (size_t i = 0; i < reduced.size(); ++i) reduced[i] = float((i * 29) % 31) / 30.f;
    for (int factor : {2, 4, 8})
        for (int x : {-factor, -3, 0, 1, 5, 3 * factor})
            for (int count : {1, 2 * factor, 5 * factor + 3}) {
                const int first = int(std::floor((x + 0.5) / factor - 0.5));
                std::vector<float> out(size_t(count) * 4);
                enlargeRow(reduced.data(), first, factor, x, out.data(), count);
                for (int i = 0; i < count; ++i) {
                    const double u = (x + i + 0.5) / factor - 0.5;
                    const int i0 = int(std::floor(u));
                    for (int c = 0; c < 4; ++c) {
                        const double a = reduced[size_t(i0 - first) * 4 + size_t(c)];
                        const double b = reduced[size_t(i0 - first + 1) * 4 + size_t(c)];
                        ASSERT_NEAR(out[size_t(i) * 4 + size_t(c)], a + (b - a) * (u - i0), 1e-6)
                            << "factor " << factor << ", x " << x << ", pixel " << i << ", channel " << c;
                    }
                }
            }
}

TEST(PixelRowsTest, PremultipliedBytesMatchTheGeneralConversion) {
    // Values below 0, above 1 and in between, NaN and infinities, over a count that leaves a tail.
    const int count = 29;
    std::vector<float> pixels(size_t(count) * 4);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = float((i * 37) % 101) / 70.f - 0.2f;
    pixels[9] = std::numeric_limits<float>::quiet_NaN();
    pixels[10] = std::numeric_limits<float>::infinity();
    pixels[11] = -std::numeric_limits<float>::infinity();
    std::vector<uint8_t> fast(pixels.size()), general(pixels.size());
    premultipliedToBytes(pixels.data(), fast.data(), count);
    floatsToBytes(pixels.data(), general.data(), count, false, false);
    EXPECT_EQ(fast, general);
    EXPECT_EQ(fast[0], 0);  // -0.2 clamps to 0
    EXPECT_EQ(fast[1], std::lround(255 * (37 / 70.f - 0.2f)));
    EXPECT_EQ(fast[5], 255);  // 1.0
    EXPECT_EQ(fast[9], 0);
    EXPECT_EQ(fast[10], 255);
    EXPECT_EQ(fast[11], 0);

    std::vector<uint8_t> fastBGRA(pixels.size()), generalBGRA(pixels.size());
    premultipliedToBGRABytes(pixels.data(), fastBGRA.data(), count);
    floatsToBytes(pixels.data(), generalBGRA.data(), count, false, true);
    EXPECT_EQ(fastBGRA, generalBGRA);
    EXPECT_EQ(fastBGRA[2], fast[0]);
    EXPECT_EQ(fastBGRA[0], fast[2]);
}

TEST(PixelRowsTest, StraightAndSwappedBytes) {
    // Colour divided by alpha (none for transparent or NaN alpha), then red and blue swapped.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float pixels[] = {0.25f, 0.1f, 0.f,  0.5f, 0.3f, 0.2f, 0.1f, 0.f,
                            0.3f,  0.2f, 0.1f, nan,  0.6f, 0.9f, 2.f,  0.5f};
    uint8_t straight[16], swapped[16];
    floatsToBytes(pixels, straight, 4, true, false);
    floatsToBytes(pixels, swapped, 4, true, true);
    const uint8_t expected[16] = {128, 51, 0, 128, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 128};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(straight[i], expected[i]) << i;
        EXPECT_EQ(swapped[i], expected[(i & ~3) + (i % 4 == 3 ? 3 : 2 - i % 4)]) << i;
    }
}

TEST(PixelRowsTest, YUVRowsFollowTheLimitedRangeFormula) {
    // Every pixel of two rows against the BT.709 formula, over a width with whole groups of
    // eight, a pair and an odd last column.
    const int width = 19;
    std::vector<float> upper(size_t(width) * 4), lower(size_t(width) * 4);
    for (int i = 0; i < width; ++i)
        for (int c = 0; c < 4; ++c) {
            upper[size_t(i) * 4 + size_t(c)] = c == 3 ? 1.f : float((i * 7 + c * 5) % 13) / 12.f;
            lower[size_t(i) * 4 + size_t(c)] = c == 3 ? 1.f : float((i * 3 + c * 11) % 17) / 16.f;
        }
    std::vector<uint8_t> y0(width), y1(width), u((width + 1) / 2), v((width + 1) / 2);
    yuvRows(upper.data(), lower.data(), width, y0.data(), y1.data(), u.data(), v.data());
    auto luma = [](const auto* p) { return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2]; };
    for (int i = 0; i < width; ++i) {
        EXPECT_NEAR(y0[size_t(i)], 16 + 219 * luma(&upper[size_t(i) * 4]), 0.51) << i;
        EXPECT_NEAR(y1[size_t(i)], 16 + 219 * luma(&lower[size_t(i) * 4]), 0.51) << i;
    }
    for (int k = 0; k < (width + 1) / 2; ++k) {
        const int last = std::min(2 * k + 1, width - 1);
        double mean[3] = {0, 0, 0};
        for (int i : {2 * k, last})
            for (int c = 0; c < 3; ++c) mean[c] += (upper[size_t(i) * 4 + size_t(c)] + lower[size_t(i) * 4 + size_t(c)]) / 4;
        const double l = luma(mean);
        EXPECT_NEAR(u[size_t(k)], 128 + 224 * (mean[2] - l) / 1.8556, 0.51) << k;
        EXPECT_NEAR(v[size_t(k)], 128 + 224 * (mean[0] - l) / 1.5748, 0.51) << k;
    }
}

TEST(PixelMathTest, LaneFloorAndSquareRootMatchTheScalarOnes) {
    const float values[] = {-2.5f, -2.0f, -0.5f, -1e-7f, 0.0f, 0.3f,
                            1.0f, 7.99f, 1e6f + 0.5f, -123456.75f, 3.0f, 0.999999f};
    for (size_t i = 0; i + 4 <= std::size(values); i += 4) {
        const Float4 v{values[i], values[i + 1], values[i + 2], values[i + 3]};
        const Float4 floors = floorFloat4(v);
        const Float4 roots = sqrtFloat4(v * v + 2.0f);
        for (int lane = 0; lane < 4; ++lane) {
            EXPECT_EQ(floors[lane], std::floor(v[lane])) << v[lane];
            EXPECT_EQ(floors[lane], float(fastFloor(v[lane]))) << v[lane];
            const float root = std::sqrt(v[lane] * v[lane] + 2.0f);
            EXPECT_EQ(std::memcmp(&roots[lane], &root, sizeof root), 0) << v[lane];
        }
    }
}

TEST(PixelMathTest, BytesBecomeFloatsChannelByChannel) {
    // Every byte value, over counts that fill groups of four pixels and leave tails (which go
    // through bytesToFloat4).
    std::vector<uint8_t> bytes(4 * 75);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i * 7 + 3);
    for (int count : {0, 1, 3, 4, 5, 8, 75}) {
        std::vector<float> floats(size_t(4 * count), -1.f);
        bytesToFloats(bytes.data(), floats.data(), count);
        for (size_t i = 0; i < floats.size(); ++i)
            ASSERT_EQ(floats[i], float(bytes[i]) * kByteToFloat) << "count " << count << ", float " << i;
    }
}
