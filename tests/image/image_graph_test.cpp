// The image graph: extents (finite, empty and infinite), null images through every operation,
// regions of interest (what each node pulls from its inputs) and the kernel extension point.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include "image/Image.h"
#include "image/ImageKernel.h"
#include "image/ImageTestSupport.h"

using namespace qm;
using namespace qm::test;

namespace {

// A source that records every rect it is asked to fill, and fills it with opaque grey.
struct RecordingSource {
    std::shared_ptr<std::mutex> mutex = std::make_shared<std::mutex>();
    std::shared_ptr<std::vector<PixelRect>> requests = std::make_shared<std::vector<PixelRect>>();

    Image image(const Rect& extent) const {
        auto kernel = std::make_shared<ImageKernel>();
        kernel->name = "recording";
        kernel->extent = [extent](std::span<const Rect>) { return extent; };
        kernel->render = [mutex = mutex, requests = requests](const ImageTile& out, std::span<const ConstImageTile>, TileScratch&) {
            {
                std::lock_guard lock(*mutex);
                requests->push_back(out.rect);
            }
            out.fill(Float4{0.5f, 0.5f, 0.5f, 1});
        };
        return applyKernel(kernel, {});
    }

    PixelRect unionOfRequests() const {
        PixelRect all;
        for (const PixelRect& r : *requests) all = all.unionWith(r);
        return all;
    }
    long long pixelsRendered() const {
        long long total = 0;
        for (const PixelRect& r : *requests) total += r.area();
        return total;
    }
};

Image square(double x, double y, double size) {
    return Image::imageWithColor(Color{1, 0, 0, 1}).cropped(Rect{x, y, size, size});
}

}  // namespace

TEST(ImageExtentTest, SourcesAndCrops) {
    const Image picture = Image::imageWithBitmap(patternBitmap(6, 4));
    EXPECT_EQ(picture.extent(), (Rect{0, 0, 6, 4}));
    EXPECT_TRUE(Image::imageWithColor(Color::white()).hasInfiniteExtent());
    EXPECT_EQ(picture.cropped(Rect{2, -1, 10, 3}).extent(), (Rect{2, 0, 4, 2}));
    EXPECT_EQ(Image::imageWithColor(Color::white()).cropped(Rect{-5, 3, 7, 2}).extent(), (Rect{-5, 3, 7, 2}));
    // A crop that holds the whole picture changes nothing; one beside it leaves an empty image.
    EXPECT_EQ(picture.cropped(Rect{-1, -1, 10, 10}), picture);
    const Image outside = picture.cropped(Rect{10, 10, 2, 2});
    ASSERT_FALSE(outside.isNull());
    EXPECT_TRUE(outside.extent().isEmpty());
    EXPECT_TRUE(Image::emptyImage().extent().isEmpty());
}

TEST(ImageExtentTest, OperationsMoveOrGrowTheExtent) {
    const Image picture = Image::imageWithBitmap(patternBitmap(10, 20));
    AffineTransform t;
    t.translateXBy(5, -3);
    t.scaleBy(2);
    EXPECT_EQ(picture.transformed(t).extent(), (Rect{5, -3, 20, 40}));
    AffineTransform quarter;
    quarter.rotateByDegrees(90);
    EXPECT_EQ(picture.transformed(quarter).extent(), (Rect{-20, 0, 20, 10}));
    EXPECT_EQ(picture.gaussianBlur(2).extent(), (Rect{-6, -6, 22, 32}));
    EXPECT_EQ(picture.median().extent(), picture.extent());
    EXPECT_EQ(picture.colorControls(0.1, 1.2, 0.5).extent(), picture.extent());
    EXPECT_EQ(picture.lanczosScale(0.5, 2).extent(), (Rect{0, 0, 10, 10}));
    EXPECT_EQ(sourceOver(square(0, 0, 4), square(10, 2, 4)).extent(), (Rect{0, 0, 14, 6}));
    EXPECT_EQ(sourceIn(square(0, 0, 4), square(2, 1, 4)).extent(), (Rect{2, 1, 2, 3}));
}

TEST(ImageExtentTest, InfiniteExtentsStayInfiniteUntilCropped) {
    const Image color = Image::imageWithColor(Color{0, 1, 0, 1});
    AffineTransform t;
    t.rotateByDegrees(30);
    t.scaleBy(3);
    EXPECT_TRUE(color.transformed(t).hasInfiniteExtent());
    EXPECT_TRUE(color.gaussianBlur(4).hasInfiniteExtent());
    EXPECT_TRUE(sourceOver(square(0, 0, 2), color).hasInfiniteExtent());
    EXPECT_EQ(sourceIn(color, square(1, 1, 2)).extent(), (Rect{1, 1, 2, 2}));
    // Rendering any window of an infinite image fills it.
    const RenderedPixels far = renderPixels(color.colorInvert(), {100000, -5000, 3, 3});
    expectPixelNear(far.at(100001, -4999), {1, 0, 1, 1}, 1e-6f);
}

TEST(ImageExtentTest, SingularTransformGivesAnEmptyImage) {
    AffineTransform flat{1, 0, 0, 0, 0, 0};
    const Image result = square(0, 0, 4).transformed(flat);
    ASSERT_FALSE(result.isNull());
    EXPECT_TRUE(result.extent().isEmpty());
}

TEST(ImageNullTest, NullRunsThroughEveryOperation) {
    const Image null;
    const Image some = square(0, 0, 2);
    EXPECT_TRUE(null.isNull());
    EXPECT_EQ(null.extent(), Rect{});
    EXPECT_TRUE(Image::imageWithBitmap(nullptr).isNull());
    EXPECT_TRUE(null.cropped(Rect{0, 0, 1, 1}).isNull());
    EXPECT_TRUE(null.transformed(AffineTransform{}.translateXBy(1, 1)).isNull());
    EXPECT_TRUE(null.lanczosScale(2, 1).isNull());
    EXPECT_TRUE(null.colorControls(0, 1, 1).isNull());
    EXPECT_TRUE(null.colorMatrix(ColorMatrix{}).isNull());
    EXPECT_TRUE(null.colorInvert().isNull());
    EXPECT_TRUE(null.photoEffect(PhotoEffect::Noir).isNull());
    EXPECT_TRUE(null.gaussianBlur(3).isNull());
    EXPECT_TRUE(null.median().isNull());
    EXPECT_TRUE(sourceOver(null, some).isNull());
    EXPECT_TRUE(sourceOver(some, null).isNull());
    EXPECT_TRUE(sourceIn(null, some).isNull());
    EXPECT_TRUE(sourceIn(some, null).isNull());

    auto kernel = std::make_shared<ImageKernel>();
    kernel->extent = [](std::span<const Rect> e) { return e[0]; };
    kernel->render = [](const ImageTile& out, std::span<const ConstImageTile>, TileScratch&) { out.clear(); };
    EXPECT_TRUE(applyKernel(kernel, {some, null}).isNull());
    EXPECT_FALSE(applyKernel(kernel, {some}).isNull());
    auto incomplete = std::make_shared<ImageKernel>();
    incomplete->extent = kernel->extent;
    EXPECT_TRUE(applyKernel(incomplete, {some}).isNull());

    // Rendering a null image gives transparent pixels.
    const RenderedPixels pixels = renderPixels(null, {0, 0, 2, 2});
    expectPixelNear(pixels.at(1, 1), {0, 0, 0, 0}, 0);
}

TEST(ImageRegionOfInterestTest, CropOfABlurPullsOnlyWhatTheCropNeeds) {
    RecordingSource source;
    // Sigma 2 blurs at full size, reaching ceil(3 * 2) = 6 pixels out.
    const Image blurred = source.image(Rect{0, 0, 1000, 1000}).gaussianBlur(2).cropped(Rect{100, 200, 30, 20});
    renderPixels(blurred, {0, 0, 1000, 1000});
    EXPECT_EQ(source.unionOfRequests(), (PixelRect{94, 194, 42, 32}));
}

TEST(ImageRegionOfInterestTest, LargeBlurPullsAReducedNeighbourhood) {
    RecordingSource source;
    // Sigma 12 blurs at a reduced size: the source is read around the crop only.
    const Image blurred = source.image(Rect{0, 0, 2000, 2000}).gaussianBlur(12).cropped(Rect{1000, 1000, 40, 40});
    const RenderedPixels pixels = renderPixels(blurred, {0, 0, 2000, 2000});
    const PixelRect pulled = source.unionOfRequests();
    EXPECT_TRUE(pulled.contains({1000 - 30, 1000 - 30, 100, 100}));
    EXPECT_TRUE((PixelRect{1000 - 80, 1000 - 80, 200, 200}).contains(pulled));
    // The middle of a large grey field stays grey.
    expectPixelNear(pixels.at(1020, 1020), {0.5f, 0.5f, 0.5f, 1}, 1e-3f);
}

TEST(ImageRegionOfInterestTest, TransformPullsTheMappedTileOnly) {
    RecordingSource source;
    AffineTransform t;
    t.translateXBy(0.5, 0);
    t.scaleBy(2);
    const Image moved = source.image(Rect{0, 0, 500, 500}).transformed(t).cropped(Rect{100, 100, 10, 10});
    renderPixels(moved, {0, 0, 1000, 1000});
    // Output [100, 110) maps back to [49.75, 54.75) in x and [50, 55) in y, plus one pixel for the
    // bilinear neighbours.
    EXPECT_EQ(source.unionOfRequests(), (PixelRect{48, 49, 8, 7}));
}

TEST(ImageRegionOfInterestTest, LanczosPullsItsTapsOnly) {
    RecordingSource source;
    const Image enlarged = source.image(Rect{0, 0, 500, 500}).lanczosScale(2, 1).cropped(Rect{20, 20, 10, 10});
    renderPixels(enlarged, {0, 0, 100, 100});
    // Output 20 centres on input 9.75 and output 29 on 14.25; three lobes each side reach
    // inputs 7 to 18.
    EXPECT_EQ(source.unionOfRequests(), (PixelRect{7, 7, 12, 12}));
}

TEST(ImageKernelTest, InputsArriveOverTheirRegionOfInterest) {
    RecordingSource source;
    auto shift = std::make_shared<ImageKernel>();
    shift->name = "shift right by 3";
    shift->extent = [](std::span<const Rect> e) { return e[0].offsetBy(3, 0); };
    shift->regionOfInterest = [](size_t, const Rect& r) { return r.offsetBy(-3, 0); };
    std::atomic<bool> rectsMatched{true};
    shift->render = [&rectsMatched](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        const PixelRect expected = PixelRect{out.rect.x - 3, out.rect.y, out.rect.width, out.rect.height}.intersection(
            PixelRect{0, 0, 50, 40});
        if (in.size() != 1 || in[0].rect != expected) rectsMatched = false;
        for (int y = out.rect.y; y < out.rect.maxY(); ++y)
            for (int x = out.rect.x; x < out.rect.maxX(); ++x) storeFloat4(out.at(x, y), in[0].pixel(x - 3, y));
    };
    const Image picture = Image::imageWithBitmap(patternBitmap(50, 40));
    const Image shifted = applyKernel(shift, {picture});
    EXPECT_EQ(shifted.extent(), (Rect{3, 0, 50, 40}));
    const RenderedPixels direct = renderPixels(picture, {0, 0, 50, 40});
    const RenderedPixels pixels = renderPixels(shifted, {0, 0, 60, 40}, 16);
    EXPECT_TRUE(rectsMatched);
    expectPixelNear(pixels.at(3, 0), direct.at(0, 0), 0);
    expectPixelNear(pixels.at(52, 39), direct.at(49, 39), 0);
    expectPixelNear(pixels.at(1, 10), {0, 0, 0, 0}, 0);
}

TEST(ImageKernelTest, WholeInputsAreRenderedOncePerRender) {
    RecordingSource source;
    auto mirror = std::make_shared<ImageKernel>();
    mirror->name = "mirror";
    mirror->extent = [](std::span<const Rect> e) { return e[0]; };
    // Each output pixel reads its mirror image across the vertical centre line of a 64-wide picture.
    mirror->regionOfInterest = [](size_t, const Rect& r) { return Rect{64 - r.maxX(), r.minY(), r.width(), r.height()}; };
    mirror->wholeInputs = {true};
    mirror->render = [](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
        for (int y = out.rect.y; y < out.rect.maxY(); ++y)
            for (int x = out.rect.x; x < out.rect.maxX(); ++x) storeFloat4(out.at(x, y), in[0].pixel(63 - x, y));
    };
    const Image mirrored = applyKernel(mirror, {source.image(Rect{0, 0, 64, 64})});
    const RenderedPixels pixels = renderPixels(mirrored, {0, 0, 64, 64}, 16);
    // 16 output tiles, yet the source's pixels were made once: 64 x 64 in all.
    EXPECT_EQ(source.pixelsRendered(), 64 * 64);
    expectPixelNear(pixels.at(5, 7), {0.5f, 0.5f, 0.5f, 1}, 0);
}

TEST(ImageKernelTest, RenderingDoesNotDependOnTilesOrThreads) {
    const Image picture = Image::imageWithBitmap(patternBitmap(90, 70));
    AffineTransform t;
    t.rotateByDegrees(17);
    t.scaleBy(0.7);
    const Image chain = sourceOver(picture.transformed(t).colorControls(0.1, 1.3, 0.6),
                                   picture.gaussianBlur(9).median());
    const PixelRect all = PixelRect::enclosing(chain.extent());
    const RenderedPixels a = renderPixels(chain, all, 16, 1);
    const RenderedPixels b = renderPixels(chain, all, 256, 2);
    EXPECT_EQ(a.data, b.data);
}

TEST(ImageKernelTest, BitmapInputsReadInPlaceGiveTheSamePixels) {
    // The same kernel reading its inputs as floats and, where they are bitmaps, in place: point
    // reads, bilinear samples between pixels and reads beyond the edges agree exactly.
    const auto makeKernel = [](bool bytes, std::shared_ptr<std::atomic<int>> byteTiles) {
        auto kernel = std::make_shared<ImageKernel>();
        kernel->name = "sample";
        kernel->extent = [](std::span<const Rect> e) { return e[0].unionWith(e[1]).insetBy(-2, -2); };
        kernel->regionOfInterest = [](size_t, const Rect& r) { return r.insetBy(-2, -2); };
        kernel->wholeInputs = {false, true};
        kernel->byteInputs = {bytes, bytes};
        kernel->render = [byteTiles](const ImageTile& out, std::span<const ConstImageTile> in, TileScratch&) {
            for (const ConstImageTile& tile : in) *byteTiles += tile.isBytes();
            for (int y = out.rect.y; y < out.rect.maxY(); ++y)
                for (int x = out.rect.x; x < out.rect.maxX(); ++x) {
                    const Float4 p = in[0].pixel(x + 1, y - 1) * 0.5f + in[1].sample(x + 0.8f, y + 0.35f) * 0.5f;
                    storeFloat4(out.at(x, y), p);
                }
        };
        return kernel;
    };
    const Image picture = Image::imageWithBitmap(patternBitmap(40, 30));
    const Image crop = picture.cropped(Rect{5, 4, 20, 17});
    for (const Image& second : {picture, crop, picture.colorControls(0.1, 1.2, 0.8)}) {
        const auto floatTiles = std::make_shared<std::atomic<int>>(0);
        const auto byteTiles = std::make_shared<std::atomic<int>>(0);
        const Image asFloats = applyKernel(makeKernel(false, floatTiles), {crop, second});
        const Image inPlace = applyKernel(makeKernel(true, byteTiles), {crop, second});
        const PixelRect all = PixelRect::enclosing(asFloats.extent());
        EXPECT_EQ(renderPixels(asFloats, all, 16).data, renderPixels(inPlace, all, 16).data);
        EXPECT_EQ(*floatTiles, 0);
        EXPECT_GT(*byteTiles, 0);
    }
    // The computed input (colour controls) still arrives as floats, rendered once for all tiles.
    const auto byteTiles = std::make_shared<std::atomic<int>>(0);
    RecordingSource source;
    const Image mixed = applyKernel(makeKernel(true, byteTiles), {picture, source.image(Rect{0, 0, 40, 30})});
    renderPixels(mixed, {0, 0, 40, 30}, 16);
    EXPECT_EQ(source.pixelsRendered(), 40 * 30);
}
