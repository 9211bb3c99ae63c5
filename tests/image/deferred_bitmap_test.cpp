#include "image/DeferredBitmap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ImageTestSupport.h"

namespace qm {
namespace {

using test::patternBitmap;
using test::renderPixels;

// A deferred copy of `bitmap` that counts its decodes.
std::shared_ptr<const DeferredBitmap> counted(const std::shared_ptr<const Bitmap>& bitmap, std::atomic<int>& decodes) {
    return DeferredBitmap::create(bitmap->width(), bitmap->height(), true, [bitmap, &decodes] {
        ++decodes;
        return bitmap;
    });
}

TEST(DeferredBitmapTest, DecodesOnceWhenFirstRenderedAndDrawsLikeTheBitmap) {
    const auto bitmap = patternBitmap(40, 30);
    std::atomic<int> decodes = 0;
    const Image deferred = Image::imageWithDeferredBitmap(counted(bitmap, decodes));
    const Image moved = deferred.transformed(AffineTransform{}.translateXBy(3.5, 2)).cropped({0, 0, 30, 25});
    EXPECT_EQ(deferred.extent(), (Rect{0, 0, 40, 30}));
    EXPECT_EQ(decodes, 0);

    const PixelRect region{0, 0, 40, 30};
    const auto expected = renderPixels(
        Image::imageWithBitmap(bitmap).transformed(AffineTransform{}.translateXBy(3.5, 2)).cropped({0, 0, 30, 25}),
        region, 16);
    std::vector<std::thread> renders;
    std::vector<test::RenderedPixels> results(4);
    for (size_t i = 0; i < results.size(); ++i) {
        renders.emplace_back([&, i] { results[i] = renderPixels(moved, region, 16); });
    }
    for (auto& render : renders) render.join();
    EXPECT_EQ(decodes, 1);
    for (const auto& result : results) EXPECT_EQ(result.data, expected.data);
}

TEST(DeferredBitmapTest, ARenderLoadsEverySourceItNeedsAndNoOther) {
    std::atomic<int> left = 0, right = 0, unseen = 0;
    const Image a = Image::imageWithDeferredBitmap(counted(patternBitmap(20, 20), left));
    const Image b = Image::imageWithDeferredBitmap(counted(patternBitmap(20, 20), right))
                        .transformed(AffineTransform{}.translateXBy(20, 0));
    const Image far = Image::imageWithDeferredBitmap(counted(patternBitmap(20, 20), unseen))
                          .transformed(AffineTransform{}.translateXBy(100, 0));
    const Image all = sourceOver(sourceOver(a, b), far);

    const auto pixels = renderPixels(all, {0, 0, 40, 20}, 8, 2);
    EXPECT_EQ(left, 1);
    EXPECT_EQ(right, 1);
    EXPECT_EQ(unseen, 0);
    const auto p = patternBitmap(20, 20)->pixelAt(5, 19 - 7);
    test::expectPixelNear(pixels.at(25, 7), test::byteColor(p), 1e-6f);
}

TEST(DeferredBitmapTest, AFailedOrMisfitDecodeRendersTransparentAtThePromisedSize) {
    const auto failed = DeferredBitmap::create(8, 6, true, [] { return std::shared_ptr<const Bitmap>(); });
    const auto misfit = DeferredBitmap::create(8, 6, true, [] { return patternBitmap(6, 8); });
    for (const auto& source : {failed, misfit}) {
        const Image image = Image::imageWithDeferredBitmap(source);
        EXPECT_EQ(image.extent(), (Rect{0, 0, 8, 6}));
        const auto pixels = renderPixels(sourceOver(image, Image::imageWithColor({1, 0, 0, 1})), {0, 0, 8, 6});
        // Promised opaque, so nothing beneath is drawn: the broken frame shows as a hole.
        test::expectPixelNear(pixels.at(3, 3), {0, 0, 0, 0}, 0);
        EXPECT_EQ(source->bitmap(), nullptr);
    }
}

TEST(DeferredBitmapTest, AReadyBitmapAnswersItsOwnOpacity) {
    auto translucent = test::makeBitmap(2, 2, [](int, int) { return std::array<uint8_t, 4>{10, 10, 10, 128}; });
    EXPECT_FALSE(DeferredBitmap::createWithBitmap(translucent)->isOpaque());
    EXPECT_TRUE(DeferredBitmap::createWithBitmap(patternBitmap(2, 2))->isOpaque());
    EXPECT_EQ(DeferredBitmap::createWithBitmap(translucent)->bitmap(), translucent);
}

}  // namespace
}  // namespace qm
